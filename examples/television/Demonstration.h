#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include "Clip.h"
#include "Player.h"
#include "ProgressLine.h"

namespace kvo::media::hardware::example {

/// A row of the closing table: act, pictures, size, core, port, time, and what was answered.
using Row = std::array<std::string, 7>;

/// What the acts share: the clip, what is told on the way, and the closing summary.
struct Demonstration {
    struct File {
        std::string path;
        std::string content;  ///< What there is to see in it.
    };

    Clip clip;
    std::string outputDirectory;
    ProgressLine progress;
    std::vector<Row> rows;
    std::vector<File> files;
    FramePtr lastPicture;  ///< Of the clip, from playPixels() on.

    /// Lists a file for the summary, with what it shows, and returns its path.
    std::string addFile(std::string const& name, std::string content);

    /// Adds a row for calls that were all answered as they should.
    void addRow(std::string act, unsigned int pictures, Size size, std::string core,
                std::string port, double seconds);

    /// Adds a row for a decoder of `player` that was granted what it asked for.
    void addRow(std::string act, Player const& player, Player::Result const& result,
                double seconds);
};

std::string sizeText(Size size);

/// Throws Failure unless the call `call` was answered with `expected`.
void expect(std::string const& call, Status answer, int expected = 0);

/// Throws Failure when a client of the resource manager is open.
void requireNothingHeld();

/// Configures a player of the demo's clip, which no other keeps from its core. Throws Failure
/// on failure, and UnusableFile when no core takes the clip.
void configure(Demonstration const& demo, Player& player);

/// Waits for the end of a player that was started, and requires that `pictures` came and nothing
/// failed.
Player::Result finish(Demonstration& demo, Player& player, unsigned int pictures);

/// Prints the table and, below it, the files. Throws Failure when that fails.
void printSummary(Demonstration const& demo);

}  // namespace kvo::media::hardware::example
