#include "DecoderActs.h"

#include <unistd.h>

#include <algorithm>
#include <utility>

#include "PngFile.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::demo {

using namespace media::hardware;

namespace {

/// Pictures that the first of two players shows before the second one comes.
constexpr unsigned int kPicturesBeforeTakeover = 25;

/// Requires that all pictures of a tunnel carried the player's resources and were shown.
void requireTunnelled(Player const& player, Player::Result const& result) {
    require(player.granted().getInt32(key::kVideoPort, -1) >= 0, "no display port was granted");
    require(result.wrongStamps == 0, std::to_string(result.wrongStamps) +
                                         " output buffers did not name port, resource and process");
    require(result.rendered == result.frames, "not every picture was reported as shown");
}

/// Requires that the calls of a decoder that lost its core are refused.
void requireRefusals(VideoDecoderClientWrapperResource& decoder, Answers& answers) {
    constexpr int kRefused = status::kReclaimed.code();
    unsigned char const data[1]{};
    answers.require("write", decoder.writeInputFrame(0, 0, data, sizeof(data)).status(), kRefused);
    answers.require("dequeue", decoder.dequeueOutputBuffer().status(), kRefused);
    answers.require("flush", decoder.flush().status());
}

void requireJournalled(std::vector<host::JournalEntry> const& journal, std::string const& call) {
    require(std::any_of(journal.begin(), journal.end(),
                        [&](auto const& entry) { return entry.text == call; }),
            "the library did not call " + call);
}

}  // namespace

void playPixels(Show& show) {
    show.progress.begin("1 pixel mode");
    {
        Player::Settings settings;
        settings.sink = [&show](Picture const& picture) {
            show.lastPicture = picture;
            return status::kSuccess;
        };
        Player player(show.clip, std::move(settings));
        Status const configured = player.configure();
        if (configured.code() == status::kResourceFailed.code()) {
            throw UnusableFile(show.clip.path + ": no decoder core of the platform takes " +
                               show.clip.codecName + " pictures of " +
                               sizeText(show.clip.width, show.clip.height));
        }
        Answers answers;
        answers.require("configure", configured);
        player.start();
        Player::Result const result = finishClip(show, player, answers);
        answers.require("release", player.decoder().release().status());
        show.rows.push_back(
            rowOf("1 pixel mode", player, result, answers, show.progress.seconds()));
    }
    requireNothingHeld();
    writePng(show.addFile("last-picture.png", "the last picture of the clip"),
             *toFrame(show.lastPicture));
    show.progress.end("all " + std::to_string(show.clip.frames) + " pictures came");
}

void playTunnel(Show& show) {
    show.progress.begin("2 tunnel mode");
    {
        Player::Settings settings;
        settings.mode = Player::Mode::kTunnel;
        Player player(show.clip, std::move(settings));
        Answers answers;
        answers.require("configure", player.configure());
        player.start();
        Player::Result const result = finishClip(show, player, answers);
        requireTunnelled(player, result);
        answers.require("release", player.decoder().release().status());
        show.rows.push_back(
            rowOf("2 tunnel mode", player, result, answers, show.progress.seconds()));
    }
    requireNothingHeld();
    show.progress.end("every output buffer named port, resource and process");
}

void loseCore(Show& show) {
    show.progress.begin("3 two players, one core");
    host::setPool({host::CodecCore{}});
    host::startJournal();
    {
        Player::Settings settings;
        settings.mode = Player::Mode::kTunnel;
        settings.loop = true;
        Player first(show.clip, settings);
        Answers firstAnswers;
        firstAnswers.require("configure", first.configure());
        first.start();
        require(first.waitForFrames(kPicturesBeforeTakeover), "the first player came to an end");

        settings.loop = false;
        Player second(show.clip, settings);
        Answers secondAnswers;
        secondAnswers.require("configure", second.configure());

        Player::Result const lost = first.finish([](unsigned int) {});
        double const firstSeconds = show.progress.seconds();
        firstAnswers.require("feed", lost.feed, status::kReclaimed.code());
        firstAnswers.require("drain", lost.drain, status::kReclaimed.code());
        requireRefusals(first.decoder(), firstAnswers);

        second.start();
        Player::Result const result = finishClip(show, second, secondAnswers);
        requireTunnelled(second, result);
        firstAnswers.require("release", first.decoder().release().status());
        secondAnswers.require("release", second.decoder().release().status());

        show.rows.push_back(rowOf("3 first player", first, lost, firstAnswers, firstSeconds));
        show.rows.push_back(rowOf("  second player", second, result, secondAnswers,
                                  show.progress.seconds() - firstSeconds));
    }
    std::vector<host::JournalEntry> const journal = host::stopJournal();
    std::string const pid = std::to_string(getpid());
    requireJournalled(journal, "onProcessReclaimed(" + pid + ")");
    requireJournalled(journal, "onReclaimedClientReleased(" + pid + ")");
    requireNothingHeld();
    show.progress.end("the first stopped in mid-stream, the second played to the end");
}

}  // namespace kvo::demo
