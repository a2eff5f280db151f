#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
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

LayerInfo layer(std::uint32_t type, std::uint8_t port, std::int32_t adaptive, Region const& input,
                Region const& output) {
    LayerInfo info;
    info.type = type;
    info.port = port;
    info.adaptive = adaptive;
    info.inputRegion = input;
    info.outputRegion = output;
    return info;
}

LayerInfo source(std::uint32_t type, std::uint8_t port, std::int32_t adaptive = 0) {
    return layer(type, port, adaptive, {0, 0, 1280, 720, 1280, 720}, {0, 0, 1280, 720, 1280, 720});
}

/// Leaves out the details, which surround each call of the scaler.
Lines withoutDetails(Lines const& lines) {
    Lines result;
    for (auto const& line : lines) {
        if (line.rfind("3 ", 0) != 0) {
            result.push_back(line);
        }
    }
    return result;
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
    void SetUp() override { ASSERT_TRUE(VideoScalerClientTvhwImpl::init()); }
    void TearDown() override { kvo::host::reset(); }
};

TEST_F(VideoScalerClientTest, ConnectsPlacesAndDisconnectsInOrder) {
    auto client = std::make_unique<VideoScalerClientTvhwImpl>(0);
    EXPECT_EQ(
        recorded([&] { client->connect(source(4, 5, 2)); }),
        (Lines{"3 VideoScalerTvhw setWinBlank: +++ win-blank [0]: enable=1",
               "TVHW_VSC_SetWinBlank(0, 1, 0)", "3 VideoScalerTvhw setWinBlank: --- win-blank [0]",
               "3 VideoScalerTvhw connect: +++ vsc-connect [0]: type=2, idx=5",
               "TVHW_VSC_Connect(0, 2, 5, 0)", "3 VideoScalerTvhw connect: --- vsc-connect [0]",
               "3 VideoScalerTvhw connect: +++ vsc-adaptive [0]: adaptive=1",
               "TVHW_VSC_SetAdaptiveStreamEx(0, 1)",
               "3 VideoScalerTvhw connect: --- vsc-adaptive [0]"}));
    EXPECT_TRUE(scalerChannel(0).blank);

    // The stream counts as adaptive until the next record is stored.
    EXPECT_EQ(recorded([&] { client->updateRegion(source(5, 6, 0)); }),
              (Lines{"3 VideoScalerTvhw updateRegion: +++ set-input-adaptive [0]: "
                     "input=0/0/1920/1080",
                     "TVHW_VSC_SetInputRegion_ForAdaptive(0, 0, 0, 1920, 1080)",
                     "3 VideoScalerTvhw updateRegion: --- set-input-adaptive [0]",
                     "3 VideoScalerTvhw updateRegion: +++ set-output [0]: output=0/0/1920/1080 "
                     "displayRegion=1920/1080",
                     "TVHW_VSC_SetOutputRegion(0, 0, 0, 1920, 1080)",
                     "3 VideoScalerTvhw updateRegion: --- set-output [0]",
                     "3 VideoScalerTvhw setWinBlank: +++ win-blank [0]: enable=0",
                     "TVHW_VSC_SetWinBlank(0, 0, 0)",
                     "3 VideoScalerTvhw setWinBlank: --- win-blank [0]"}));
    EXPECT_FALSE(scalerChannel(0).blank);
    auto const log = recorded([&] { client->updateRegion(source(4, 5, 1)); });
    EXPECT_EQ((Lines{log.begin(), log.begin() + 3}),
              (Lines{"3 VideoScalerTvhw updateRegion: +++ set-input [0]: input=0/0/1280/720",
                     "TVHW_VSC_SetInputRegion(0, 0, 0, 1280, 720)",
                     "3 VideoScalerTvhw updateRegion: --- set-input [0]"}));

    EXPECT_EQ(
        recorded([&] { client->disconnect(); }),
        (Lines{"3 VideoScalerTvhw setWinBlank: +++ win-blank [0]: enable=1",
               "TVHW_VSC_SetWinBlank(0, 1, 0)", "3 VideoScalerTvhw setWinBlank: --- win-blank [0]",
               "3 VideoScalerTvhw disconnect: +++ vsc-disconnect [0]: type=2",
               "TVHW_VSC_Disconnect(0, 2, 5, 0)",
               "3 VideoScalerTvhw disconnect: --- vsc-disconnect [0]",
               "3 VideoScalerTvhw setWinBlank: +++ win-blank [0]: enable=0",
               "TVHW_VSC_SetWinBlank(0, 0, 0)",
               "3 VideoScalerTvhw setWinBlank: --- win-blank [0]"}));
    EXPECT_FALSE(scalerChannel(0).source);

    client->connect(source(1, 1));
    EXPECT_EQ(withoutDetails(recorded([&] { client->connect(source(7, 2)); })),
              (Lines{"TVHW_VSC_SetWinBlank(0, 1, 0)", "TVHW_VSC_Connect(0, 0, 2, 0)",
                     "TVHW_VSC_SetAdaptiveStreamEx(0, 0)"}));
    EXPECT_EQ(recorded([&] { client.reset(); }), Lines{"TVHW_VSC_Close(0)"});
}

TEST_F(VideoScalerClientTest, MapsTheTypeOfTheSource) {
    struct Case {
        std::uint32_t type;
        int vscType;
    };
    VideoScalerClientTvhwImpl client(1);
    for (auto const& test : {Case{0, 3}, Case{1, 3}, Case{2, 3}, Case{3, 3}, Case{4, 2}, Case{5, 0},
                             Case{6, 3}, Case{7, 0}, Case{8, 3}, Case{kMax, 3}}) {
        client.connect(source(test.type, 255));
        ASSERT_TRUE(scalerChannel(1).source);
        EXPECT_EQ(scalerChannel(1).source->type, test.vscType) << test.type;
        EXPECT_EQ(scalerChannel(1).source->port, 255);
    }
}

TEST_F(VideoScalerClientTest, AnUnconnectedClientDisconnectsTheDefaultSource) {
    VideoScalerClientTvhwImpl client(0);
    EXPECT_EQ(withoutDetails(recorded([&] { client.disconnect(); })),
              (Lines{"TVHW_VSC_SetWinBlank(0, 1, 0)", "TVHW_VSC_Disconnect(0, 3, 0, 0)",
                     "0 VideoScalerTvhw disconnect: disconnect vsc 0(vscType 3, port 0)fail",
                     "TVHW_VSC_SetWinBlank(0, 0, 0)"}));
}

TEST_F(VideoScalerClientTest, RegionsReachTheScalerAsWindows) {
    struct Case {
        char const* what;
        kvo::host::Panel panel;
        int adaptive;
        Region input;
        Region output;
        std::string inputCall;
        std::string outputCall;
    };
    Region const whole{0, 0, 1920, 1080, 1920, 1080};
    Region const corner{100, 50, 740, 410, 1280, 720};
    Case const cases[]{
        {"a corner",
         {},
         0,
         {10, 20, 650, 500, 7, 9},
         corner,
         "SetInputRegion(0, 10, 20, 640, 480)",
         "SetOutputRegion(0, 150, 75, 960, 540)"},
        {"adaptive",
         {3840, 2160},
         1,
         {0, 0, 960, 540, 1920, 1080},
         whole,
         "SetInputRegion_ForAdaptive(0, 0, 0, 1920, 1080)",
         "SetOutputRegion(0, 0, 0, 3840, 2160)"},
        {"an unreadable panel",
         {1920, 1080, false},
         1,
         corner,
         corner,
         "SetInputRegion_ForAdaptive(0, 100, 50, 640, 360)",
         "SetOutputRegion(0, 100, 50, 640, 360)"},
        {"no reference size",
         {},
         1,
         {1, 2, 33, 44, 0, 9},
         {1, 2, 33, 44, 9, 0},
         "SetInputRegion_ForAdaptive(0, 1, 2, 32, 42)",
         "SetOutputRegion(0, 1, 2, 32, 42)"},
        {"edges of more than 16 bits",
         {},
         0,
         {70000, 65536, 70010, 65539, 0, 0},
         whole,
         "SetInputRegion(0, 4464, 0, 10, 3)",
         "SetOutputRegion(0, 0, 0, 1920, 1080)"},
        {"an end before its start",
         {},
         0,
         {10, 8, 5, 0, 0, 0},
         whole,
         "SetInputRegion(0, 10, 8, 65531, 65528)",
         "SetOutputRegion(0, 0, 0, 1920, 1080)"},
        {"edges too far to scale",
         {},
         1,
         {kMax, 0, kMax, 1, 1, 1},
         whole,
         "SetInputRegion_ForAdaptive(0, 65535, 0, 0, 1080)",
         "SetOutputRegion(0, 0, 0, 1920, 1080)"},
    };
    for (Case const& test : cases) {
        SCOPED_TRACE(test.what);
        kvo::host::setPanel(test.panel);
        VideoScalerClientTvhwImpl client(0);
        client.connect(source(1, 1, test.adaptive));
        EXPECT_EQ(withoutDetails(recorded([&] {
                      client.updateRegion(layer(1, 1, test.adaptive, test.input, test.output));
                  })),
                  (Lines{"TVHW_VSC_" + test.inputCall, "TVHW_VSC_" + test.outputCall,
                         "TVHW_VSC_SetWinBlank(0, 0, 0)"}));
    }
}

TEST_F(VideoScalerClientTest, AFailureIsLoggedAndLeavesTheConnectionBefore) {
    struct Case {
        std::string call;
        std::string line;
    };
    auto const listener = std::make_shared<Listener>();
    VideoScalerClientTvhwImpl client(0);
    client.setCallback(listener);
    client.connect(source(5, 1, 1));
    for (Case const& test : {Case{"Connect", "connect vsc 0(vscType 2, port 7)fail"},
                             Case{"SetAdaptiveStreamEx", "setAdaptive vsc 0(0)fail"}}) {
        failCall("TVHW_VSC_" + test.call, 3);
        auto const log = recorded([&] { client.connect(source(4, 7)); });
        EXPECT_EQ(log.back(), "0 VideoScalerTvhw connect: " + test.line);
        EXPECT_EQ(log[log.size() - 2].substr(0, 31), "3 VideoScalerTvhw connect: --- ");
        EXPECT_EQ(log[log.size() - 3].find("TVHW_VSC_" + test.call), 0U);
        EXPECT_TRUE(scalerChannel(0).blank);
    }
    client.bbdCallbackRegion({});
    EXPECT_EQ(listener->calls, 1);

    for (char const* const call :
         {"SetInputRegion_ForAdaptive", "SetOutputRegion", "SetWinBlank"}) {
        failCall(std::string("TVHW_VSC_") + call, -3);
    }
    EXPECT_EQ(withoutDetails(recorded([&] { client.updateRegion(source(6, 9)); })),
              (Lines{"TVHW_VSC_SetInputRegion_ForAdaptive(0, 0, 0, 1920, 1080)",
                     "0 VideoScalerTvhw updateRegion: set-input-adaptive [0]: err=-3, "
                     "input=0/0/1920/1080",
                     "TVHW_VSC_SetOutputRegion(0, 0, 0, 1920, 1080)",
                     "0 VideoScalerTvhw updateRegion: set-output [0]: err=-3, output=0/0/1920/1080",
                     "TVHW_VSC_SetWinBlank(0, 0, 0)",
                     "0 VideoScalerTvhw setWinBlank: winblank vsc 0 (0) fail"}));
    failCall("TVHW_VSC_SetInputRegion", 4);
    EXPECT_EQ(only("err=", recorded([&] { client.updateRegion(source(6, 9)); })),
              (Lines{"0 VideoScalerTvhw updateRegion: set-input [0]: err=4, input=0/0/1280/720"}));

    // The scaler refuses: the record names another source by now.
    failCall("TVHW_VSC_SetWinBlank", 5);
    EXPECT_EQ(withoutDetails(recorded([&] { client.disconnect(); })),
              (Lines{"TVHW_VSC_SetWinBlank(0, 1, 0)",
                     "0 VideoScalerTvhw setWinBlank: winblank vsc 0 (1) fail",
                     "TVHW_VSC_Disconnect(0, 3, 9, 0)",
                     "0 VideoScalerTvhw disconnect: disconnect vsc 0(vscType 3, port 9)fail",
                     "TVHW_VSC_SetWinBlank(0, 0, 0)"}));
    client.bbdCallbackRegion({});
    EXPECT_EQ(listener->calls, 1) << "still connected";
}

TEST_F(VideoScalerClientTest, OpensTheChannelWhenItCan) {
    auto const log = recorded([] {
        failCall("TVHW_VSC_Open", -5);
        VideoScalerClientTvhwImpl client(0);
        client.connect(source(1, 1));
        failCall("TVHW_VSC_Close", 7);
    });
    EXPECT_EQ(
        withoutDetails(log),
        (Lines{"TVHW_VSC_Open(0)", "0 VideoScalerTvhw checkOpen: failed to open vsc, ret=-5, idx=0",
               "TVHW_VBE_DISP_GetPanelSize()",
               "2 VideoScalerTvhw setDisplayPanelSize: panel size =1920/1080", "TVHW_VSC_Open(0)",
               "TVHW_VSC_SetWinBlank(0, 1, 0)", "TVHW_VSC_Connect(0, 3, 1, 0)",
               "TVHW_VSC_SetAdaptiveStreamEx(0, 0)", "TVHW_VSC_Close(0)",
               "0 VideoScalerTvhw ~VideoScalerClientTvhwImpl: failed to close vsc, ret=7, "
               "idx=0"}));

    std::string const open = "TVHW_VSC_Open(4294967295)";
    std::string const failed =
        "0 VideoScalerTvhw checkOpen: failed to open vsc, ret=-22, idx=4294967295";
    kvo::host::setPanel({1920, 1080, false});
    EXPECT_EQ(recorded([] {
                  VideoScalerClientTvhwImpl client(kMax);
                  client.connect({});
                  client.updateRegion({});
                  client.disconnect();
              }),
              (Lines{open, failed, "TVHW_VBE_DISP_GetPanelSize()", open, failed,
                     "0 VideoScalerTvhw connect: vsc-connect: device not opened", open, failed,
                     "0 VideoScalerTvhw updateRegion: vsc-updateRegion: device not opened", open,
                     failed, "0 VideoScalerTvhw disconnect: vsc-disconnect: device not opened"}));
}

TEST_F(VideoScalerClientTest, ReportedRegionsReachALiveCallbackWhileConnected) {
    Region const region{1, 2, 3, 4, 5, 6};
    auto listener = std::make_shared<Listener>();
    VideoScalerClientTvhwImpl client(1);
    auto const report = [&] { client.bbdCallbackRegion(region); };
    client.setCallback(listener);
    EXPECT_EQ(recorded(report), Lines{"3 VideoScalerTvhw bbdCallbackRegion: bbdCallbackRegion Rect "
                                      "[1] 5,6 - 1,2,3,4 - 0,0"});
    EXPECT_EQ(listener->calls, 0) << "not connected";

    client.connect(source(1, 1));
    EXPECT_EQ(recorded(report), Lines{"3 VideoScalerTvhw bbdCallbackRegion: bbdCallbackRegion Rect "
                                      "[1] 5,6 - 1,2,3,4 - 1280,720"});
    EXPECT_EQ(listener->calls, 1);
    EXPECT_EQ(listener->last, &region);

    auto const second = std::make_shared<Listener>();
    client.setCallback(second);
    report();
    client.setCallback(nullptr);
    report();
    EXPECT_EQ(second->calls, 1);
    client.setCallback(listener);
    std::weak_ptr<Listener> const first = listener;
    listener.reset();
    EXPECT_TRUE(first.expired()) << "the client keeps its callback alive";
    report();
}

TEST_F(VideoScalerClientTest, RegionsMayBeReportedWhileTheOwnerWorks) {
    VideoScalerClientTvhwImpl client(0);
    auto const listener = std::make_shared<Listener>();
    std::atomic<bool> done{false};
    std::thread reporter([&] {
        while (!done) {
            client.bbdCallbackRegion({});
        }
    });
    for (int round = 0; round < 200 || (listener->calls == 0 && round < 1000000); ++round) {
        client.setCallback(listener);
        client.connect(source(1, 1, round % 2));
        client.updateRegion(source(1, 1));
        std::this_thread::yield();
        client.disconnect();
    }
    done = true;
    reporter.join();
    EXPECT_GT(listener->calls, 0);
    EXPECT_FALSE(scalerChannel(0).source);
}

void useAnUninitialisedScaler() {
    failCall("TVHW_VSC_Initialize", -5, 1);
    failCall("TVHW_VSC_Initialize", -6, 2);
    EXPECT_EQ(TVHW_VSC_Open(0), -6);
    EXPECT_EQ(
        withoutDetails(recorded([] {
            VideoScalerClientTvhwImpl first(0);
            first.disconnect();
            first.updateRegion(source(1, 1, 1));
            VideoScalerClientTvhwImpl const second(1);
        })),
        (Lines{"TVHW_VSC_Initialize()", "0 VideoScalerTvhw init: failed to init vsc: ret=-5",
               "TVHW_VBE_DISP_GetPanelSize()",
               "2 VideoScalerTvhw setDisplayPanelSize: panel size =1920/1080",
               "TVHW_VSC_Initialize()", "0 VideoScalerTvhw init: failed to init vsc: ret=-6",
               "0 VideoScalerTvhw disconnect: vsc-disconnect: device not opened",
               "TVHW_VSC_Initialize()", "TVHW_VSC_Open(0)",
               "TVHW_VSC_SetInputRegion(0, 0, 0, 1280, 720)",
               "TVHW_VSC_SetOutputRegion(0, 0, 0, 1920, 1080)", "TVHW_VSC_SetWinBlank(0, 0, 0)",
               "TVHW_VSC_Open(1)", "TVHW_VBE_DISP_GetPanelSize()",
               "2 VideoScalerTvhw setDisplayPanelSize: panel size =1920/1080", "TVHW_VSC_Close(1)",
               "TVHW_VSC_Close(0)"}));
    std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

TEST(VideoScalerClientDeathTest, InitialisesTheScalerOncePerProcessButTriesAgain) {
    // In a new process, where nothing is initialised.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
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
    EXPECT_EQ(scalerChannel(0).output.width, 960);
}

}  // namespace
