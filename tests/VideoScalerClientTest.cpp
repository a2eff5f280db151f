#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <map>
#include <memory>
#include <thread>

#include "Journal.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"
#include "tvhw_vsc.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;
using kvo::host::scalerChannel;
using LayerInfo = IVideoScalerClient::LayerInfo;

constexpr std::uint32_t kMax = 4294967295U;
constexpr Region kPicture{0, 0, 1280, 720, 1280, 720};

LayerInfo layer(std::uint32_t type, std::uint8_t port, std::int32_t adaptive = 0,
                Region const& input = kPicture, Region const& output = kPicture) {
    return {type, port, 60, adaptive, 0, input, output, 0};
}

/// What `action` did, without what all lines share, the log's tag or the prefix of the scaler's
/// calls, and on request with the details, which surround each call of the scaler.
template <typename Action>
Lines told(Action const& action, bool details = false) {
    static std::regex const kShared("^(\\d )VideoScalerTvhw |^TVHW_VSC_");
    Lines lines;
    for (auto const& line : recorded(action)) {
        if (details || line[0] != '3') {
            lines.push_back(std::regex_replace(line, kShared, "$1"));
        }
    }
    return lines;
}

class Listener : public IVideoScalerClient::Callback {
public:
    void onBbdRegion(Region const& region) override {
        last = &region;
        ++calls;
    }

    std::atomic<Region const*> last{nullptr};
    std::atomic<int> calls{0};
};

class VideoScalerClientTest : public testing::Test {
protected:
    void TearDown() override { kvo::host::reset(); }

    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
};

TEST_F(VideoScalerClientTest, ConnectsPlacesAndDisconnectsInOrder) {
    auto client = std::make_unique<VideoScalerClientTvhwImpl>(0);
    EXPECT_EQ(only("isconnect", told([&] { client->disconnect(); }, true)),
              (Lines{"3 disconnect: +++ vsc-disconnect [0]: type=3", "Disconnect(0, 3, 0, 0)",
                     "3 disconnect: --- vsc-disconnect [0]",
                     "0 disconnect: disconnect vsc 0(vscType 3, port 0)fail"}));
    EXPECT_EQ(
        told([&] { client->connect(layer(4, 5, 2)); }, true),
        (Lines{"3 setWinBlank: +++ win-blank [0]: enable=1", "SetWinBlank(0, 1, 0)",
               "3 setWinBlank: --- win-blank [0]", "3 connect: +++ vsc-connect [0]: type=2, idx=5",
               "Connect(0, 2, 5, 0)", "3 connect: --- vsc-connect [0]",
               "3 connect: +++ vsc-adaptive [0]: adaptive=1", "SetAdaptiveStreamEx(0, 1)",
               "3 connect: --- vsc-adaptive [0]"}));

    // The stream counts as adaptive until the next record is stored.
    EXPECT_EQ(told([&] { client->updateRegion(layer(5, 6, 0)); }, true),
              (Lines{"3 updateRegion: +++ set-input-adaptive [0]: input=0/0/1920/1080",
                     "SetInputRegion_ForAdaptive(0, 0, 0, 1920, 1080)",
                     "3 updateRegion: --- set-input-adaptive [0]",
                     "3 updateRegion: +++ set-output [0]: output=0/0/1920/1080 "
                     "displayRegion=1920/1080",
                     "SetOutputRegion(0, 0, 0, 1920, 1080)", "3 updateRegion: --- set-output [0]",
                     "3 setWinBlank: +++ win-blank [0]: enable=0", "SetWinBlank(0, 0, 0)",
                     "3 setWinBlank: --- win-blank [0]"}));
    auto const trace = told([&] { client->updateRegion(layer(4, 5, 1)); }, true);
    EXPECT_EQ((Lines{trace.begin(), trace.begin() + 3}),
              (Lines{"3 updateRegion: +++ set-input [0]: input=0/0/1280/720",
                     "SetInputRegion(0, 0, 0, 1280, 720)", "3 updateRegion: --- set-input [0]"}));

    EXPECT_EQ(told([&] { client->disconnect(); }),
              (Lines{"SetWinBlank(0, 1, 0)", "Disconnect(0, 2, 5, 0)", "SetWinBlank(0, 0, 0)"}));
    EXPECT_EQ(told([&] { client->disconnect(); })[2],
              "0 disconnect: disconnect vsc 0(vscType 2, port 5)fail");

    client->connect(layer(1, 1));
    EXPECT_EQ(told([&] { client.reset(); }, true), Lines{"Close(0)"});
}

TEST_F(VideoScalerClientTest, MapsTheTypeOfTheSourceWithEachConnect) {
    VideoScalerClientTvhwImpl client(1);
    for (auto const& test : std::map<std::uint32_t, int>{
             {0, 3}, {1, 3}, {2, 3}, {3, 3}, {4, 2}, {5, 0}, {6, 3}, {7, 0}, {8, 3}, {kMax, 3}}) {
        std::string const source = std::to_string(test.second) + ", 255";
        EXPECT_EQ(told([&] { client.connect(layer(test.first, 255)); }),
                  (Lines{"SetWinBlank(1, 1, 0)", "Connect(1, " + source + ", 0)",
                         "SetAdaptiveStreamEx(1, 0)"}))
            << test.first;
    }
}

TEST_F(VideoScalerClientTest, RegionsReachTheScalerAsWindows) {
    Region const corner{100, 50, 740, 410, 1280, 720};
    auto const place = [](kvo::host::Panel const& panel, int adaptive, Region const& input,
                          Region const& output, std::string const& in, std::string const& out) {
        kvo::host::setPanel(panel);
        VideoScalerClientTvhwImpl client(0);
        client.connect(layer(1, 1, adaptive));
        std::string const path = adaptive != 0 ? "_ForAdaptive" : "";
        EXPECT_EQ(told([&] { client.updateRegion(layer(1, 1, adaptive, input, output)); }),
                  (Lines{"SetInputRegion" + path + "(0, " + in + ")",
                         "SetOutputRegion(0, " + out + ")", "SetWinBlank(0, 0, 0)"}));
    };
    place({}, 0, {10, 20, 650, 500, 7, 9}, corner, "10, 20, 640, 480", "150, 75, 960, 540");
    place({3840, 2160}, 1, {0, 0, 960, 540, 1920, 1080}, kPicture, "0, 0, 1920, 1080",
          "0, 0, 3840, 2160");
    place({1920, 1080, false}, 1, corner, corner, "100, 50, 640, 360", "100, 50, 640, 360");
    // Edges of more than 16 bits, and ends before the starts.
    place({}, 0, {70000, 65536, 70010, 65539, 0, 0}, kPicture, "4464, 0, 10, 3",
          "0, 0, 1920, 1080");
    place({}, 0, {10, 8, 5, 0, 0, 0}, kPicture, "10, 8, 65531, 65528", "0, 0, 1920, 1080");
}

TEST_F(VideoScalerClientTest, AFailureIsLoggedAndLeavesTheConnectionBefore) {
    VideoScalerClientTvhwImpl client(0);
    client.setCallback(listener);
    client.connect(layer(5, 1, 1));
    std::map<std::string, std::string> const failures{
        {"Connect(0, 2, 7, 0)", "connect vsc 0(vscType 2, port 7)fail"},
        {"SetAdaptiveStreamEx(0, 0)", "setAdaptive vsc 0(0)fail"}};
    for (auto const& [call, line] : failures) {
        failCall("TVHW_VSC_" + call.substr(0, call.find('(')), 3);
        auto const trace = told([&] { client.connect(layer(4, 7)); }, true);
        EXPECT_EQ(trace.back(), "0 connect: " + line);
        EXPECT_EQ(trace[trace.size() - 3], call);
    }
    client.bbdCallbackRegion({});
    EXPECT_EQ(listener->calls, 1);

    failCall("TVHW_VSC_SetInputRegion_ForAdaptive", -3);
    failCall("TVHW_VSC_SetOutputRegion", -3);
    failCall("TVHW_VSC_SetWinBlank", -3);
    EXPECT_EQ(told([&] { client.updateRegion(layer(6, 9)); }),
              (Lines{"SetInputRegion_ForAdaptive(0, 0, 0, 1920, 1080)",
                     "0 updateRegion: set-input-adaptive [0]: err=-3, input=0/0/1920/1080",
                     "SetOutputRegion(0, 0, 0, 1920, 1080)",
                     "0 updateRegion: set-output [0]: err=-3, output=0/0/1920/1080",
                     "SetWinBlank(0, 0, 0)", "0 setWinBlank: winblank vsc 0 (0) fail"}));
    failCall("TVHW_VSC_SetInputRegion", 4);
    EXPECT_EQ(told([&] { client.updateRegion(layer(6, 9)); }, true)[3],
              "0 updateRegion: set-input [0]: err=4, input=0/0/1280/720");

    // The scaler refuses: the record names another source by now.
    failCall("TVHW_VSC_SetWinBlank", 5);
    EXPECT_EQ(
        told([&] { client.disconnect(); }),
        (Lines{"SetWinBlank(0, 1, 0)", "0 setWinBlank: winblank vsc 0 (1) fail",
               "Disconnect(0, 3, 9, 0)", "0 disconnect: disconnect vsc 0(vscType 3, port 9)fail",
               "SetWinBlank(0, 0, 0)"}));
    client.bbdCallbackRegion({});
    EXPECT_EQ(listener->calls, 1) << "still connected";
}

TEST_F(VideoScalerClientTest, ReportedRegionsReachALiveCallbackWhileConnected) {
    Region const region{1, 2, 3, 4, 5, 6};
    VideoScalerClientTvhwImpl client(1);
    auto const report = [&] { client.bbdCallbackRegion(region); };
    std::string const line = "3 bbdCallbackRegion: bbdCallbackRegion Rect [1] 5,6 - 1,2,3,4 - ";
    client.setCallback(std::make_shared<Listener>());
    client.setCallback(listener);
    EXPECT_EQ(told(report, true), Lines{line + "0,0"});
    EXPECT_EQ(listener->calls, 0) << "not connected";
    client.connect(layer(1, 1));
    EXPECT_EQ(told(report, true), Lines{line + "1280,720"});
    EXPECT_EQ(listener->calls, 1);
    EXPECT_EQ(listener->last, &region);

    report();
    client.setCallback(nullptr);
    report();
    EXPECT_EQ(listener->calls, 2);
    client.setCallback(listener);
    std::weak_ptr<Listener> const last = listener;
    listener.reset();
    EXPECT_TRUE(last.expired()) << "the client keeps its callback alive";
    report();
}

TEST_F(VideoScalerClientTest, RegionsMayBeReportedWhileTheOwnerWorks) {
    VideoScalerClientTvhwImpl client(0);
    std::atomic<bool> done{false};
    std::thread reporter([&] {
        while (!done) {
            client.bbdCallbackRegion({});
        }
    });
    for (int round = 0; round < 200 || (listener->calls == 0 && round < 1000000); ++round) {
        client.setCallback(listener);
        client.connect(layer(1, 1, round % 2));
        client.updateRegion(layer(1, 1));
        std::this_thread::yield();
        client.disconnect();
    }
    done = true;
    reporter.join();
    EXPECT_GT(listener->calls, 0);
}

void useAnUninitialisedScaler() {
    EXPECT_LT(TVHW_VSC_Open(0), 0);
    for (std::uint64_t const nth : {1U, 2U, 3U}) {
        failCall("TVHW_VSC_Initialize", -5, nth);
    }
    std::string const failed = "0 init: failed to init vsc: ret=-5";
    EXPECT_EQ(told([] {
                  VideoScalerClientTvhwImpl client(0);
                  client.connect({});
                  client.updateRegion({});
              }),
              (Lines{"Initialize()", failed, "TVHW_VBE_DISP_GetPanelSize()",
                     "2 setDisplayPanelSize: panel size =1920/1080", "Initialize()", failed,
                     "0 connect: vsc-connect: device not opened", "Initialize()", failed,
                     "0 updateRegion: vsc-updateRegion: device not opened"}));
    failCall("TVHW_VSC_Open", -6);
    failCall("TVHW_VSC_Close", 7);
    kvo::host::setPanel({1920, 1080, false});
    EXPECT_EQ(
        told([] {
            VideoScalerClientTvhwImpl first(1);
            first.updateRegion(layer(1, 1, 1));
            VideoScalerClientTvhwImpl(kMax).disconnect();
        }),
        (Lines{"Initialize()", "Open(1)", "0 checkOpen: failed to open vsc, ret=-6, idx=1",
               "TVHW_VBE_DISP_GetPanelSize()", "Open(1)", "SetInputRegion(1, 0, 0, 1280, 720)",
               "SetOutputRegion(1, 0, 0, 1280, 720)", "SetWinBlank(1, 0, 0)", "Open(4294967295)",
               "0 checkOpen: failed to open vsc, ret=-22, idx=4294967295",
               "TVHW_VBE_DISP_GetPanelSize()", "Open(4294967295)",
               "0 checkOpen: failed to open vsc, ret=-22, idx=4294967295",
               "0 disconnect: vsc-disconnect: device not opened", "Close(1)",
               "0 ~VideoScalerClientTvhwImpl: failed to close vsc, ret=7, idx=1"}));
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(VideoScalerClientDeathTest, InitialisesTheScalerAndOpensTheChannelOnceButTriesAgain) {
    EXPECT_EXIT(useAnUninitialisedScaler(), testing::ExitedWithCode(0), "");
}

TEST_F(VideoScalerClientTest, TheHostScalerRefusesWhatADriverWould) {
    EXPECT_LT(TVHW_VSC_SetWinBlank(0, 1, 0), 0) << "not opened";
    VideoScalerClientTvhwImpl client(0);
    EXPECT_LT(TVHW_VSC_Open(0), 0) << "in use";
    EXPECT_LT(TVHW_VSC_Connect(0, {1, 0, 0, {}}, 0), 0) << "unknown source";
    EXPECT_LT(TVHW_VSC_Connect(0, {3, 1, 0, {}}, 0), 0) << "reserved field";
    EXPECT_EQ(TVHW_VSC_SetOutputRegion(0, {960, 540, 960, 540}), 0);
    EXPECT_LT(TVHW_VSC_SetOutputRegion(0, {961, 540, 960, 540}), 0) << "outside the panel";
    EXPECT_LT(TVHW_VSC_SetOutputRegion(0, {960, 540, 960, 541}), 0) << "outside the panel";
    EXPECT_LT(TVHW_VSC_SetInputRegion_ForAdaptive(0, {0, 0, 1921, 1}), 0) << "outside the panel";
    EXPECT_EQ(scalerChannel(0).output.width, 960);
}

}  // namespace
