#include <unistd.h>

#include <algorithm>
#include <utility>

#include "Acts.h"
#include "fmt/core.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

/// Pictures that the first of two players shows before the second one comes.
constexpr unsigned int kPicturesBeforeTakeover = 25;

/// Requires that all pictures of a tunnel carried the player's resources and were shown.
void requireTunnelled(Player const& player, Player::Result const& result) {
    require(player.granted().getInt32(key::kVideoPort, -1) >= 0, "no display port was granted");
    require(result.wrongStamps == 0,
            fmt::format("{} output buffers did not name port, resource and process",
                        result.wrongStamps));
    require(result.rendered == result.frames, "not every picture was reported as shown");
}

/// Requires that the calls of a decoder that lost its core are refused.
void requireRefusals(VideoDecoderClientWrapperResource& decoder) {
    constexpr int kRefused = status::kReclaimed.code();
    unsigned char const data[1]{};
    expect("write", decoder.writeInputFrame(0, 0, data, sizeof(data)).status(), kRefused);
    expect("dequeue", decoder.dequeueOutputBuffer().status(), kRefused);
    expect("flush", decoder.flush().status());
}

void requireJournalled(std::vector<host::JournalEntry> const& journal, std::string const& call) {
    require(std::any_of(journal.begin(), journal.end(),
                        [&](auto const& entry) { return entry.text == call; }),
            "the library did not call " + call);
}

/// Plays the clip through a player of these settings and releases it.
Player::Result playThrough(Demonstration& demo, std::string const& act, Player::Settings settings) {
    Player player(demo.clip, std::move(settings));
    configure(demo, player);
    player.start();
    Player::Result result = finish(demo, player, demo.clip.frames);
    expect("release", player.decoder().release().status());
    demo.addRow(act, player, result, demo.progress.seconds());
    if (settings.mode == Player::Mode::kTunnel) {
        requireTunnelled(player, result);
    }
    return result;
}

}  // namespace

void playPixels(Demonstration& demo) {
    demo.progress.begin("1 pixel mode");
    Player::Settings settings;
    settings.sink = [&demo](AVFrame const& picture) {
        demo.lastPicture.reset(av_frame_clone(&picture));
        return status::kSuccess;
    };
    Player::Result const result = playThrough(demo, "1 pixel mode", std::move(settings));
    requireNothingHeld();
    writePng(demo.addFile("last-picture.png", "the last picture of the clip"),
             *filtered({demo.lastPicture.get()}, "[in0]scale=iw*sar:ih,setsar=1"));
    std::string const dropped =
        result.dropped > 0 ? fmt::format("; {} coded frames were dropped", result.dropped) : "";
    demo.progress.end(fmt::format("all {} pictures came{}", result.frames, dropped));
}

void playTunnel(Demonstration& demo) {
    demo.progress.begin("2 tunnel mode");
    Player::Settings settings;
    settings.mode = Player::Mode::kTunnel;
    playThrough(demo, "2 tunnel mode", std::move(settings));
    requireNothingHeld();
    demo.progress.end("every output buffer named port, resource and process");
}

void loseCore(Demonstration& demo) {
    demo.progress.begin("3 two players, one core");
    host::setPool({host::CodecCore{}});
    host::startJournal();
    {
        Player::Settings settings;
        settings.mode = Player::Mode::kTunnel;
        settings.loop = true;
        Player first(demo.clip, settings);
        configure(demo, first);
        first.start();
        require(first.waitForFrames(kPicturesBeforeTakeover), "the first player came to an end");

        settings.loop = false;
        Player second(demo.clip, settings);
        configure(demo, second);

        Player::Result const lost = first.finish([](unsigned int) {});
        double const firstSeconds = demo.progress.seconds();
        expect("feeding", lost.feed, status::kReclaimed.code());
        expect("draining", lost.drain, status::kReclaimed.code());
        requireRefusals(first.decoder());

        second.start();
        Player::Result const result = finish(demo, second, demo.clip.frames);
        requireTunnelled(second, result);
        expect("release", first.decoder().release().status());
        expect("release", second.decoder().release().status());
        demo.addRow("3 first player", first, lost, firstSeconds);
        demo.addRow("  second player", second, result, demo.progress.seconds() - firstSeconds);
    }
    std::vector<host::JournalEntry> const journal = host::stopJournal();
    std::string const pid = std::to_string(getpid());
    requireJournalled(journal, "onProcessReclaimed(" + pid + ")");
    requireJournalled(journal, "onReclaimedClientReleased(" + pid + ")");
    requireNothingHeld();
    demo.progress.end("the first stopped in mid-stream, the second played to the end");
}

}  // namespace kvo::media::hardware::example
