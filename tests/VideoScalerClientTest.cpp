#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <map>
#include <memory>

#include "Journal.h"
#include "ScalerStart.h"
#include "tvhw_vsc.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;
using LayerInfo = IVideoScalerClient::LayerInfo;

constexpr std::uint32_t kMax = 4294967295U;
constexpr Region kPicture{0, 0, 1280, 720, 1280, 720};
constexpr Region kCorner{100, 50, 740, 410, 1280, 720};

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
    ~Listener() override { atEnd(); }
    void onBbdRegion(Region const& region) override {
        last = &region;
        ++calls;
        whileCalled();
    }

    Region const* last = nullptr;
    int calls = 0;
    std::function<void()> whileCalled = [] {};
    std::function<void()> atEnd = [] {};
};

class VideoScalerClientTest : public testing::Test {
protected:
    void TearDown() override { kvo::host::reset(); }

    std::shared_ptr<Listener> listener = std::make_shared<Listener>();
};

TEST_F(VideoScalerClientTest, ConnectsPlacesAndDisconnectsInOrder) {
    auto client = std::make_unique<VideoScalerClientTvhwImpl>(1);
    EXPECT_EQ(only("isconnect", told([&] { client->disconnect(); }, true)),
              (Lines{"3 disconnect: +++ vsc-disconnect [1]: type=3", "Disconnect(1, 3, 0, 0)",
                     "3 disconnect: --- vsc-disconnect [1]",
                     "0 disconnect: disconnect vsc 1(vscType 3, port 0)fail"}));
    EXPECT_EQ(
        told([&] { client->connect(layer(4, 5, 2)); }, true),
        (Lines{"3 setWinBlank: +++ win-blank [1]: enable=1", "SetWinBlank(1, 1, 0)",
               "3 setWinBlank: --- win-blank [1]", "3 connect: +++ vsc-connect [1]: type=2, idx=5",
               "Connect(1, 2, 5, 0)", "3 connect: --- vsc-connect [1]",
               "3 connect: +++ vsc-adaptive [1]: adaptive=1", "SetAdaptiveStreamEx(1, 1)",
               "3 connect: --- vsc-adaptive [1]"}));

    // The stream counts as adaptive until the next record is stored.
    EXPECT_EQ(
        told([&] { client->updateRegion(layer(5, 6, 0, kCorner, kCorner)); }, true),
        (Lines{"3 updateRegion: +++ set-input-adaptive [1]: input=150/75/960/540",
               "SetInputRegion_ForAdaptive(1, 150, 75, 960, 540)",
               "3 updateRegion: --- set-input-adaptive [1]",
               "3 updateRegion: +++ set-output [1]: output=150/75/960/540 displayRegion=1920/1080",
               "SetOutputRegion(1, 150, 75, 960, 540)", "3 updateRegion: --- set-output [1]",
               "3 setWinBlank: +++ win-blank [1]: enable=0", "SetWinBlank(1, 0, 0)",
               "3 setWinBlank: --- win-blank [1]"}));
    EXPECT_EQ(only("put [", told([&] { client->updateRegion(layer(4, 5, 1, kCorner)); }, true)),
              (Lines{"3 updateRegion: +++ set-input [1]: input=100/50/640/360",
                     "3 updateRegion: --- set-input [1]",
                     "3 updateRegion: +++ set-output [1]: output=0/0/1920/1080 "
                     "displayRegion=1920/1080",
                     "3 updateRegion: --- set-output [1]"}));

    EXPECT_EQ(told([&] { client->disconnect(); }),
              (Lines{"SetWinBlank(1, 1, 0)", "Disconnect(1, 2, 5, 0)", "SetWinBlank(1, 0, 0)"}));
    client->connect(layer(1, 1));
    EXPECT_EQ(told([&] { client.reset(); }, true), Lines{"Close(1)"});
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
    auto const place = [](int adaptive, Region const& input, Region const& output,
                          std::string const& in, std::string const& out) {
        VideoScalerClientTvhwImpl client(0);
        client.connect(layer(1, 1, adaptive));
        std::string const path = adaptive != 0 ? "_ForAdaptive" : "";
        EXPECT_EQ(told([&] { client.updateRegion(layer(1, 1, adaptive, input, output)); }),
                  (Lines{"SetInputRegion" + path + "(0, " + in + ")",
                         "SetOutputRegion(0, " + out + ")", "SetWinBlank(0, 0, 0)"}));
    };
    place(0, {10, 20, 650, 500, 7, 9}, kCorner, "10, 20, 640, 480", "150, 75, 960, 540");
    // Edges of more than 16 bits, and ends before the starts.
    place(0, {70000, 65536, 70010, 65539, 0, 0}, kPicture, "4464, 0, 10, 3", "0, 0, 1920, 1080");
    place(0, {10, 8, 5, 0, 0, 0}, kPicture, "10, 8, 65531, 65528", "0, 0, 1920, 1080");
    kvo::host::setPanel({3840, 2160});
    place(1, {0, 0, 960, 540, 1920, 1080}, kPicture, "0, 0, 1920, 1080", "0, 0, 3840, 2160");
    failCall("TVHW_VBE_DISP_GetPanelSize", 5);
    place(1, kCorner, kCorner, "100, 50, 640, 360", "100, 50, 640, 360");
}

TEST_F(VideoScalerClientTest, AFailureIsLoggedAndLeavesTheConnectionBefore) {
    VideoScalerClientTvhwImpl client(1);
    client.setCallback(listener);
    client.connect(layer(5, 1, 1));
    auto const connect = [&] { client.connect(layer(4, 7)); };
    auto const update = [&] { client.updateRegion(layer(6, 9, 0, kCorner, kCorner)); };
    struct Case {
        std::string failing;
        std::function<void()> step;
        std::string said;
        std::size_t calls;  ///< Made all the same.
    };
    for (auto const& test :
         {Case{"Connect", connect, "0 connect: connect vsc 1(vscType 2, port 7)fail", 2},
          Case{"SetAdaptiveStreamEx", connect, "0 connect: setAdaptive vsc 1(0)fail", 3},
          Case{"SetInputRegion_ForAdaptive", update,
               "0 updateRegion: set-input-adaptive [1]: err=-3, input=150/75/960/540", 3},
          Case{"SetInputRegion", update,
               "0 updateRegion: set-input [1]: err=-3, input=100/50/640/360", 3},
          Case{"SetOutputRegion", update,
               "0 updateRegion: set-output [1]: err=-3, output=150/75/960/540", 3},
          Case{"SetWinBlank", update, "0 setWinBlank: winblank vsc 1 (0) fail", 3}}) {
        failCall("TVHW_VSC_" + test.failing, -3);
        auto const log = told(test.step);
        EXPECT_EQ(only("0 ", log), Lines{test.said});
        EXPECT_EQ(only("(1, ", log).size(), test.calls) << test.said;
    }
    client.bbdCallbackRegion({});
    EXPECT_EQ(listener->calls, 1) << "connected as before";

    // The scaler refuses: the record names another source by now.
    failCall("TVHW_VSC_SetWinBlank", 5);
    EXPECT_EQ(
        told([&] { client.disconnect(); }),
        (Lines{"SetWinBlank(1, 1, 0)", "0 setWinBlank: winblank vsc 1 (1) fail",
               "Disconnect(1, 3, 9, 0)", "0 disconnect: disconnect vsc 1(vscType 3, port 9)fail",
               "SetWinBlank(1, 0, 0)"}));
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

    client.setCallback(nullptr);
    report();
    EXPECT_EQ(listener->calls, 1);

    // A callback is called, and if need be destroyed, with the lock held: another waits for that.
    client.setCallback(listener);
    std::future<void> replaced;
    listener->whileCalled = [&] { listener.reset(); };
    listener->atEnd = [&] {
        replaced = std::async(std::launch::async, [&] { client.setCallback(nullptr); });
        EXPECT_EQ(replaced.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    };
    report();
    EXPECT_EQ(listener, nullptr) << "the client kept its callback alive";
    replaced.get();
}

TEST_F(VideoScalerClientTest, InitialisesTheScalerAndOpensTheChannelOnceButTriesAgain) {
    forgetScalerInitialisation();
    for (std::uint64_t const nth : {1U, 2U, 3U}) {
        failCall("TVHW_VSC_Initialize", -5, nth);
    }
    std::string const failed = "0 init: failed to init vsc: ret=-5";
    std::string const unknown = "0 checkOpen: failed to open vsc, ret=-22, idx=4294967295";
    Lines const panel{"TVHW_VBE_DISP_GetPanelSize()",
                      "2 setDisplayPanelSize: panel size =1920/1080"};
    EXPECT_EQ(told([] {
                  VideoScalerClientTvhwImpl client(0);
                  client.connect({});
                  client.updateRegion({});
              }),
              (Lines{"Initialize()", failed, panel[0], panel[1], "Initialize()", failed,
                     "0 connect: vsc-connect: device not opened", "Initialize()", failed,
                     "0 updateRegion: vsc-updateRegion: device not opened"}));
    failCall("TVHW_VSC_Open", -6);
    failCall("TVHW_VSC_Close", 7);
    failCall("TVHW_VBE_DISP_GetPanelSize", 5);
    EXPECT_EQ(told([] {
                  VideoScalerClientTvhwImpl(1).updateRegion({});
                  VideoScalerClientTvhwImpl(kMax).disconnect();
              }),
              (Lines{"Initialize()", "Open(1)", "0 checkOpen: failed to open vsc, ret=-6, idx=1",
                     panel[0], "Open(1)", "SetInputRegion(1, 0, 0, 0, 0)",
                     "SetOutputRegion(1, 0, 0, 0, 0)", "SetWinBlank(1, 0, 0)", "Close(1)",
                     "0 ~VideoScalerClientTvhwImpl: failed to close vsc, ret=7, idx=1",
                     "Open(4294967295)", unknown, panel[0], panel[1], "Open(4294967295)", unknown,
                     "0 disconnect: vsc-disconnect: device not opened"}));
}

}  // namespace
