#include <memory>
#include <utility>

#include "Acts.h"
#include "Panel.h"
#include "fmt/core.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"

namespace kvo::media::hardware::example {

namespace {

constexpr unsigned int kChannel = 0;

/// The space in which the television's programs place windows, whatever the panel.
constexpr Size kScreen{1280, 720};
constexpr Size kPanel{1920, 1080};

// The places that the program has for the video, in pixels of the screen. All are even, so that
// they fall on whole pixels of the panel.
constexpr Window kWholeScreen{0, 0, 1280, 720};
constexpr Window kCorner{848, 40, 384, 216};
constexpr Window kMiddle{160, 120, 960, 540};

/// Returns what a window of the screen is on the panel.
Window onPanel(Window const& window) {
    return {window.x * kPanel.width / kScreen.width, window.y * kPanel.height / kScreen.height,
            window.width * kPanel.width / kScreen.width,
            window.height * kPanel.height / kScreen.height};
}

/// Requires that the window is shown or blank, and shows this port in this place of the panel.
void requireWindow(int port, bool blank, Window const& place) {
    host::ScalerChannel const channel = host::scalerChannel(kChannel);
    require(channel.source && channel.source->port == port, "the scaler shows another port");
    require(channel.blank == blank, blank ? "the window is not blank" : "the window is blank");
    std::string const is = windowText(channel.output);
    require(is == windowText(place), "the window is " + is + ", not " + windowText(place));
}

/// The television's program: a window of the panel, and the ports whose pictures it shows.
class Screen {
public:
    explicit Screen(Demonstration& demo) : mDemo(demo) {}

    [[nodiscard]] std::shared_ptr<DisplayPorts> const& ports() const { return mPorts; }

    /// Connects the window to a player's port; it stays blank.
    void connect(Player const& player, bool adaptive) {
        mVideo.connect(player, adaptive);
        requireWindow(mVideo.port(), true, mWindow);
    }

    /// Shows the port's picture, or that part of an adaptive stream's, in `place`.
    void place(Window const& place, Window const& adaptivePart = kWholeScreen) {
        require(mVideo.place(place, adaptivePart), "the port has no picture");
        mPlace = onPanel(place);
        mWindow = onPanel(mVideo.window());
        requireWindow(mVideo.port(), false, mWindow);
        require(host::scalerChannel(kChannel).inputInPanelPixels == mVideo.isAdaptive(),
                "the scaler mistakes whether the stream is adaptive");
    }

    /// Writes what the panel shows.
    void save(std::string const& name, std::string const& caption) {
        std::string const path = mDemo.addFile("panel-" + name + ".png", "the panel: " + caption);
        writePng(path, *drawPanel(*mPorts, mPlace, caption));
    }

    [[nodiscard]] std::string window() const { return windowText(mWindow); }

    void disconnect() {
        mVideo.disconnect();
        require(!host::scalerChannel(kChannel).source, "the scaler is still connected");
    }

private:
    Demonstration& mDemo;
    std::shared_ptr<DisplayPorts> const mPorts = std::make_shared<DisplayPorts>();
    VideoWindow mVideo{kChannel, kScreen, mPorts};
    Window mPlace;   ///< Pixels of the panel.
    Window mWindow;  ///< As mPlace; within it.
};

/// Plays the clip in a window that fills the panel and then moves to its corner.
void playInWindows(Demonstration& demo, Screen& screen) {
    Player player(demo.clip,
                  {Player::Mode::kTunnel, {}, false, false, false, 0, screen.ports(), {}});
    configure(demo, player);
    screen.connect(player, false);
    player.start();
    player.waitForFrames(demo.clip.frames / 4 + 1);
    screen.place(kWholeScreen);
    screen.save("1-full-screen", "The clip on the whole panel, " + screen.window());
    player.waitForFrames(demo.clip.frames / 2 + 1);
    screen.place(kCorner);
    Player::Result const result = finish(demo, player, demo.clip.frames);
    screen.place(kCorner);  // The last picture may be of another size.
    screen.save("2-corner", "The clip moved to the corner, " + screen.window());
    expect("release", player.decoder().release().status());
    demo.addRow("4 in windows", player, result, demo.progress.seconds());
}

/// Connects the window to the clip as an adaptive stream, and shows the middle of its pictures.
void playAdaptive(Demonstration& demo, Screen& screen) {
    double const began = demo.progress.seconds();
    Player player(demo.clip,
                  {Player::Mode::kTunnel, {}, false, true, false, 0, screen.ports(), {}});
    configure(demo, player);
    screen.connect(player, true);
    player.start();
    player.waitForFrames(1);
    screen.save("3-blank", "The same window, blank while the source changes");
    // The middle half, whatever the size of the picture is by then.
    screen.place(kMiddle, {320, 180, 640, 360});
    Player::Result const result = finish(demo, player, demo.clip.frames);
    screen.save("4-adaptive", "The middle half of the clip as an adaptive stream, enlarged");
    expect("release", player.decoder().release().status());
    demo.addRow("  adaptive", player, result, demo.progress.seconds() - began);
}

}  // namespace

void playOnPanel(Demonstration& demo) {
    demo.progress.begin("4 television");
    {
        Screen screen(demo);
        playInWindows(demo, screen);
        playAdaptive(demo, screen);
        screen.disconnect();
    }
    require(!host::scalerChannel(kChannel).opened, "the scaler channel is still open");
    requireNothingHeld();
    demo.progress.end("the window moved, was blank while the source changed, and came back");
}

void showStill(Demonstration& demo) {
    if (demo.lastPicture == nullptr) {
        playPixels(demo);
    }
    demo.progress.begin("5 still");
    Size const size = fitInto(shapeOf(*demo.lastPicture), kPanel);
    FramePtr const pixels =
        filtered({demo.lastPicture.get()},
                 fmt::format("[in0]scale={}:{},setsar=1,format=rgb24,pad={}:{}:-1:-1,format=rgb0",
                             size.width, size.height, kPanel.width, kPanel.height));
    auto const length =
        static_cast<std::size_t>(pixels->linesize[0]) * static_cast<std::size_t>(pixels->height);
    std::uint32_t const handle = host::registerMemory(
        std::make_shared<std::vector<unsigned char>>(pixels->data[0], pixels->data[0] + length));
    {
        ImageSinkTvhwImpl sink;
        Configuration config;
        config.setInt32(key::kWidth, pixels->width);
        config.setInt32(key::kHeight, pixels->height);
        expect("configure", sink.configure(config).status());
        Image image;
        image.width = pixels->width;
        image.height = pixels->height;
        image.buffer = handle;
        image.bufferLength = static_cast<std::int32_t>(length);
        image.stride = pixels->linesize[0];
        expect("display", sink.displayPicture(image).status());
        host::unregisterMemory(handle);
        auto const shown = host::videoOutput().picture;
        require(shown && shown->handle == handle, "the video output does not show the still");
        DisplayPorts noPorts;
        std::string const caption = "The last picture of the clip as a still";
        writePng(demo.addFile("panel-5-still.png", "the panel: " + caption),
                 *drawPanel(noPorts, onPanel(kWholeScreen), caption));
        expect("close", sink.close().status());
    }
    require(host::videoOutput().opens == 0, "the video output is still open");
    demo.addRow("5 still", 1, kPanel, "", "", demo.progress.seconds());
    demo.progress.end("shown, and closed");
}

}  // namespace kvo::media::hardware::example
