#include "PanelActs.h"

#include <memory>
#include <utility>

#include "PanelPicture.h"
#include "PngFile.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace kvo::demo {

using namespace media::hardware;

namespace {

using Window = host::ScalerChannel::Window;

constexpr unsigned int kChannel = 0;

/// The kind of source that a decoder's display port is to the scaler client.
constexpr std::uint32_t kDecoderSource = 1;

// The windows of the act, in pixels of the panel.
constexpr Window kWholePanel{0, 0, 1920, 1080};
constexpr Window kCorner{1272, 60, 576, 324};
constexpr Window kMiddle{240, 180, 1440, 810};

/// The space in which the television's programs place windows: 1280 by 720, whatever the panel.
Region onScreen(std::uint32_t left, std::uint32_t top, std::uint32_t right, std::uint32_t bottom) {
    return {left, top, right, bottom, 1280, 720};
}

/// Returns what the scaler client is to show: all of the pictures at the player's port. The output
/// region is up to the caller.
IVideoScalerClient::LayerInfo layerOf(Show const& show, Player const& player) {
    auto const width = static_cast<std::uint32_t>(show.clip.width);
    auto const height = static_cast<std::uint32_t>(show.clip.height);
    IVideoScalerClient::LayerInfo layer;
    layer.type = kDecoderSource;
    layer.port = static_cast<std::uint8_t>(player.granted().getInt32(key::kVideoPort, -1));
    layer.inputRegion = {0, 0, width, height, width, height};
    return layer;
}

std::string windowText(Window const& window) {
    return sizeText(window.width, window.height) + " at " + std::to_string(window.x) + "," +
           std::to_string(window.y);
}

/// Requires that the window is shown or blank, and shows this port in this place of the panel.
void requireWindow(int port, bool blank, Window const& place) {
    host::ScalerChannel const channel = host::scalerChannel(kChannel);
    Window const& is = channel.output;
    require(channel.source && channel.source->port == port, "the scaler shows another port");
    require(channel.blank == blank, blank ? "the window is not blank" : "the window is blank");
    require(
        is.x == place.x && is.y == place.y && is.width == place.width && is.height == place.height,
        "the window is " + windowText(is) + ", not " + windowText(place));
}

void savePanel(Show& show, DisplayPorts& ports, std::string const& name,
               std::string const& content) {
    writePng(show.addFile("panel-" + name + ".png", "the panel: " + content), *drawPanel(ports));
}

/// Plays the clip in a window that fills the panel and then moves to its corner.
void playInWindows(Show& show, std::shared_ptr<DisplayPorts> const& ports,
                   VideoScalerClientTvhwImpl& scaler) {
    Player player(show.clip, {Player::Mode::kTunnel, false, false, ports, {}});
    Answers answers;
    answers.require("configure", player.configure());
    IVideoScalerClient::LayerInfo layer = layerOf(show, player);
    scaler.connect(layer);
    player.start();
    player.waitForFrames(show.clip.frames / 4 + 1);
    layer.outputRegion = onScreen(0, 0, 1280, 720);
    scaler.updateRegion(layer);
    requireWindow(layer.port, false, kWholePanel);
    savePanel(show, *ports, "1-full-screen", "the clip in a window of all of it");

    player.waitForFrames(show.clip.frames / 2 + 1);
    layer.outputRegion = onScreen(848, 40, 1232, 256);
    scaler.updateRegion(layer);
    requireWindow(layer.port, false, kCorner);
    Player::Result const result = finishClip(show, player, answers);
    savePanel(show, *ports, "2-corner", "the clip in a window of " + windowText(kCorner));
    answers.require("release", player.decoder().release().status());
    show.rows.push_back(rowOf("4 in windows", player, result, answers, show.progress.seconds()));
}

/// Connects the window to the clip as an adaptive stream, and shows the middle of its pictures.
void playAdaptive(Show& show, std::shared_ptr<DisplayPorts> const& ports,
                  VideoScalerClientTvhwImpl& scaler) {
    double const began = show.progress.seconds();
    Player player(show.clip, {Player::Mode::kTunnel, false, true, ports, {}});
    Answers answers;
    answers.require("configure", player.configure());
    IVideoScalerClient::LayerInfo layer = layerOf(show, player);
    layer.adaptive = 1;
    scaler.connect(layer);
    player.start();
    player.waitForFrames(1);
    requireWindow(layer.port, true, kCorner);
    require(ports->picture(layer.port) != nullptr, "the port has no picture to hide");
    savePanel(show, *ports, "3-blank", "the same window, blank while the source changes");

    // The middle half, whatever the size of the picture is by then.
    layer.inputRegion = onScreen(320, 180, 960, 540);
    layer.outputRegion = onScreen(160, 120, 1120, 660);
    scaler.updateRegion(layer);
    requireWindow(layer.port, false, kMiddle);
    require(host::scalerChannel(kChannel).inputInPanelPixels,
            "the scaler does not treat the stream as adaptive");
    Player::Result const result = finishClip(show, player, answers);
    savePanel(show, *ports, "4-adaptive",
              "the middle of an adaptive stream in a window of " + windowText(kMiddle));
    answers.require("release", player.decoder().release().status());
    show.rows.push_back(
        rowOf("  adaptive", player, result, answers, show.progress.seconds() - began));
}

}  // namespace

void playOnPanel(Show& show) {
    show.progress.begin("4 television");
    {
        auto const ports = std::make_shared<DisplayPorts>();
        VideoScalerClientTvhwImpl scaler(kChannel);
        playInWindows(show, ports, scaler);
        playAdaptive(show, ports, scaler);
        scaler.disconnect();
        require(!host::scalerChannel(kChannel).source, "the scaler is still connected");
    }
    require(!host::scalerChannel(kChannel).opened, "the scaler channel is still open");
    requireNothingHeld();
    show.progress.end("the window moved, was blank while the source changed, and came back");
}

void showStill(Show& show) {
    show.progress.begin("5 still");
    Size const size = fitInto({show.lastPicture.info.width, show.lastPicture.info.height},
                              {kWholePanel.width, kWholePanel.height});
    FramePtr const pixels =
        convertFrame(*toFrame(show.lastPicture), AV_PIX_FMT_RGB0, size.width, size.height);
    auto const length =
        static_cast<std::size_t>(pixels->linesize[0]) * static_cast<std::size_t>(size.height);
    std::uint32_t const handle = host::registerMemory(
        std::make_shared<std::vector<unsigned char>>(pixels->data[0], pixels->data[0] + length));
    Answers answers;
    {
        ImageSinkTvhwImpl sink;
        Configuration config;
        config.setInt32(key::kWidth, size.width);
        config.setInt32(key::kHeight, size.height);
        answers.require("configure", sink.configure(config).status());
        Image image;
        image.width = size.width;
        image.height = size.height;
        image.buffer = handle;
        image.bufferLength = static_cast<std::int32_t>(length);
        image.stride = pixels->linesize[0];
        answers.require("display", sink.displayPicture(image).status());
        host::unregisterMemory(handle);
        auto const shown = host::videoOutput().picture;
        require(shown && shown->handle == handle, "the video output does not show the still");
        DisplayPorts noPorts;
        savePanel(show, noPorts, "5-still", "the last picture of the clip as a still");
        answers.require("close", sink.close().status());
    }
    require(host::videoOutput().opens == 0, "the video output is still open");
    show.rows.push_back({"5 still", "1", sizeText(size.width, size.height), "", "", answers.text(),
                         secondsText(show.progress.seconds())});
    show.progress.end("shown, and closed");
}

}  // namespace kvo::demo
