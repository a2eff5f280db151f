#pragma once

#include <string>
#include <vector>

#include "ClipReader.h"
#include "Picture.h"
#include "Player.h"
#include "Report.h"

namespace kvo::demo {

/// What the acts of the demo share.
struct Show {
    Clip clip;
    std::string outputDirectory;
    Progress progress;
    std::vector<SummaryRow> rows;
    std::vector<WrittenFile> files;
    Picture lastPicture;  ///< Of the clip, from the first act on.

    /// Lists a file for the summary, with what it shows, and returns its path.
    std::string addFile(std::string const& name, std::string content);
};

std::string sizeText(int width, int height);
std::string secondsText(double seconds);

/// Throws DemoFailure when a client of the resource manager is open.
void requireNothingHeld();

/// Waits for the end of a player that was started, and requires that all pictures of the clip came
/// and nothing failed.
Player::Result finishClip(Show& show, Player& player, Answers& answers);

/// Returns what the summary says of a player in `seconds` of work.
SummaryRow rowOf(std::string act, Player const& player, Player::Result const& result,
                 Answers const& answers, double seconds);

}  // namespace kvo::demo
