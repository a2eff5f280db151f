#include "Show.h"

#include <algorithm>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <utility>

#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::demo {

using namespace media::hardware;

namespace {

/// Left-aligned, but for the numbers of pictures; the last column takes what it needs.
constexpr std::array<int, 7> kColumnWidths{-16, 8, -9, -13, -4, 7, 0};

void printRow(Row const& row) {
    for (Row::size_type column = 0; column < row.size(); ++column) {
        int const width = kColumnWidths[column];
        std::cout << (width < 0 ? std::left : std::right) << std::setw(std::abs(width))
                  << row[column] << (column + 1 < row.size() ? "  " : "\n");
    }
}

std::string secondsText(double seconds) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << seconds << " s";
    return text.str();
}

}  // namespace

std::string Show::addFile(std::string const& name, std::string content) {
    std::string path = outputDirectory + "/" + name;
    files.push_back({path, std::move(content)});
    return path;
}

void Show::addRow(std::string act, unsigned int pictures, Size size, std::string core,
                  std::string port, double seconds) {
    rows.push_back({std::move(act), std::to_string(pictures), sizeText(size), std::move(core),
                    std::move(port), secondsText(seconds), "as expected"});
}

void Show::addRow(std::string act, Player const& player, Player::Result const& result,
                  double seconds) {
    Configuration const& granted = player.granted();
    std::int32_t const port = granted.getInt32(key::kVideoPort, -1);
    addRow(
        std::move(act), result.frames, result.size,
        std::to_string(granted.getInt32(key::kResourceCoreType, 0)) + " " +
            sizeText({granted.getInt32(key::kMaxWidth, -1), granted.getInt32(key::kMaxHeight, -1)}),
        port < 0 ? "none" : std::to_string(port), seconds);
}

std::string sizeText(Size size) {
    return std::to_string(size.width) + "x" + std::to_string(size.height);
}

void expect(std::string const& call, Status answer, int expected) {
    require(answer.code() == expected, call + " answered " + std::to_string(answer.code()) +
                                           ", not " + std::to_string(expected));
}

void requireNothingHeld() {
    require(host::crmClients().empty(), "a client of the resource manager is left over");
}

void configure(Show const& show, Player& player) {
    Status const configured = player.configure();
    if (configured.code() == status::kResourceFailed.code()) {
        throw UnusableFile(show.clip.path + ": no decoder core of the platform takes " +
                           show.clip.codecName + " pictures of " + sizeText(show.clip.coded));
    }
    expect("configure", configured);
}

Player::Result finish(Show& show, Player& player, unsigned int pictures) {
    Player::Result result =
        player.finish([&](unsigned int done) { show.progress.update(done, pictures); });
    expect("feeding", result.feed);
    expect("draining", result.drain);
    require(result.frames == pictures, "the player got " + std::to_string(result.frames) +
                                           " pictures, not " + std::to_string(pictures));
    return result;
}

void printSummary(Show const& show) {
    std::cout << '\n';
    printRow({"Act", "Pictures", "Size", "Core up to", "Port", "Time", "Answers"});
    std::for_each(show.rows.begin(), show.rows.end(), printRow);
    std::cout << '\n';
    if (show.dropped + show.clip.damaged > 0) {
        std::cout << "The clip is damaged: the decoder dropped " << show.dropped
                  << " coded frames, and mended " << show.clip.damaged << " pictures.\n\n";
    }
    for (Show::File const& file : show.files) {
        std::cout << file.path << ": " << file.content << '\n';
    }
    requirePrinted();
}

}  // namespace kvo::demo
