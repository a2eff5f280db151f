#include "Show.h"

#include <iomanip>
#include <sstream>
#include <utility>

#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::demo {

namespace key = media::hardware::key;

std::string Show::addFile(std::string const& name, std::string content) {
    std::string path = outputDirectory + "/" + name;
    files.push_back({path, std::move(content)});
    return path;
}

std::string sizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

std::string secondsText(double seconds) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << seconds << " s";
    return text.str();
}

void requireNothingHeld() {
    require(host::crmClients().empty(), "a client of the resource manager is left over");
}

Player::Result finishClip(Show& show, Player& player, Answers& answers) {
    unsigned int const total = show.clip.frames;
    Player::Result result =
        player.finish([&](unsigned int pictures) { show.progress.update(pictures, total); });
    answers.require("feed", result.feed);
    answers.require("drain", result.drain);
    require(result.frames == total, "the player got " + std::to_string(result.frames) +
                                        " pictures, but the clip holds " + std::to_string(total));
    return result;
}

SummaryRow rowOf(std::string act, Player const& player, Player::Result const& result,
                 Answers const& answers, double seconds) {
    media::hardware::Configuration const& granted = player.granted();
    std::int32_t const port = granted.getInt32(key::kVideoPort, -1);
    return {
        std::move(act),
        std::to_string(result.frames),
        sizeText(result.width, result.height),
        std::to_string(granted.getInt32(key::kResourceCoreType, 0)) + " up to " +
            sizeText(granted.getInt32(key::kMaxWidth, -1), granted.getInt32(key::kMaxHeight, -1)),
        port < 0 ? "none" : std::to_string(port),
        answers.text(),
        secondsText(seconds)};
}

}  // namespace kvo::demo
