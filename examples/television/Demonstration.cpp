#include "Demonstration.h"

#include <utility>

#include "fmt/core.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

void printRow(Row const& row) {
    auto const& [act, pictures, size, core, port, time, answers] = row;
    fmt::print("{:16}  {:>8}  {:9}  {:13}  {:4}  {:>7}  {}\n", act, pictures, size, core, port,
               time, answers);
}

}  // namespace

std::string Demonstration::addFile(std::string const& name, std::string content) {
    std::string path = outputDirectory + "/" + name;
    files.push_back({path, std::move(content)});
    return path;
}

void Demonstration::addRow(std::string act, unsigned int pictures, Size size, std::string core,
                           std::string port, double seconds) {
    rows.push_back({std::move(act), std::to_string(pictures), sizeText(size), std::move(core),
                    std::move(port), fmt::format("{:.2f} s", seconds), "as expected"});
}

void Demonstration::addRow(std::string act, Player const& player, Player::Result const& result,
                           double seconds) {
    Configuration const& granted = player.granted();
    std::int32_t const port = granted.getInt32(key::kVideoPort, -1);
    Size const largest{granted.getInt32(key::kMaxWidth, -1), granted.getInt32(key::kMaxHeight, -1)};
    addRow(std::move(act), result.frames, result.size,
           fmt::format("{} {}", granted.getInt32(key::kResourceCoreType, 0), sizeText(largest)),
           port < 0 ? "none" : std::to_string(port), seconds);
}

std::string sizeText(Size size) { return fmt::format("{}x{}", size.width, size.height); }

void expect(std::string const& call, Status answer, int expected) {
    require(answer.code() == expected,
            fmt::format("{} answered {}, not {}", call, answer.code(), expected));
}

void requireNothingHeld() {
    require(host::crmClients().empty(), "a client of the resource manager is left over");
}

void configure(Demonstration const& demo, Player& player) {
    Status const configured = player.configure();
    if (configured.code() == status::kResourceFailed.code()) {
        throw UnusableFile(fmt::format("{}: no decoder core of the platform takes {} of {}",
                                       demo.clip.path, demo.clip.codecName,
                                       sizeText(demo.clip.coded)));
    }
    expect("configure", configured);
}

Player::Result finish(Demonstration& demo, Player& player, unsigned int pictures) {
    Player::Result result = player.finish([&](unsigned int done) {
        demo.progress.update(fmt::format("{} of {} pictures", done, pictures));
    });
    expect("feeding", result.feed);
    expect("draining", result.drain);
    require(result.frames == pictures,
            fmt::format("the player got {} pictures, not {}", result.frames, pictures));
    return result;
}

void printSummary(Demonstration const& demo) {
    fmt::print("\n");
    printRow({"Act", "Pictures", "Size", "Core up to", "Port", "Time", "Answers"});
    for (Row const& row : demo.rows) {
        printRow(row);
    }
    fmt::print("\n");
    if (demo.clip.undecodable > 0) {
        fmt::print("The clip is damaged: {} of its coded frames gave no picture.\n\n",
                   demo.clip.undecodable);
    }
    for (Demonstration::File const& file : demo.files) {
        fmt::print("{}: {}\n", file.path, file.content);
    }
    requirePrinted();
}

}  // namespace kvo::media::hardware::example
