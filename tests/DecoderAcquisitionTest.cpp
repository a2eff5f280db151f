#include <gtest/gtest.h>

#include "Journal.h"
#include "WrapperTest.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;

class DecoderAcquisitionTest : public WrapperTest<Decoder> {
protected:
    int tunnel() { return wrapper->configureTunnelMode(CodecType::AVC, {}).status().code(); }

    void show(int port) {
        BufferInfo buffer;
        buffer.videoPort = port;
        wrapper->releaseOutputBuffer(buffer);
    }

    int stampedPort() { return wrapper->dequeueOutputBuffer().value().videoPort; }
};

TEST_F(DecoderAcquisitionTest, SizesAreRaisedToWhatTheStreamMayNeed) {
    struct Case {
        Entries config;
        std::string requested;
    };
    std::vector<Case> const cases{
        {{}, "1280, 720, 0"},
        {{{"width", 1281}, {"height", 721}}, "1281, 721, 0"},
        {{{"width", -5}, {"height", 721}, {"color-format", -1}}, "1280, 721, 0"},
        {{{"width", 640}, {"height", 480}, {"color-format", 4}}, "1280, 720, 0"},
        {{{"width", 640}, {"height", 480}, {"color-format", 5}}, "640, 480, 0"},
        {{{"width", 640}, {"height", 480}, {"color-format", 12}}, "640, 480, 0"},
        {{{"width", 640}, {"height", 480}, {"color-format", 13}}, "1280, 720, 0"},
        {{{"color-format", 8}}, "0, 0, 0"},
        {{{"adaptive-enable", 1}, {"width", 2560}, {"height", 1440}}, "2560, 1440, 0"},
        {{{"adaptive-enable", 1}}, "1920, 1080, 0"},
        {{{"adaptive-enable", -1}, {"width", 640}, {"adaptive-max-height", 720}}, "1920, 1080, 0"},
        {{{"adaptive-enable", 1}, {"adaptive-max-width", 3840}, {"adaptive-max-height", 1100}},
         "3840, 1100, 0"},
        {{{"adaptive-max-width", 3840}, {"adaptive-max-height", 2160}}, "1280, 720, 0"},
        {{{"width", kMax}, {"height", kMin}, {"framerate", kMin}}, "2147483647, 720, -2147483648"},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.requested);
        auto const log = recorded([&] { configure(test.config); });
        EXPECT_EQ(only("AcquireResource(", log),
                  Lines{"TVHW_CRM_ClientAcquireResource(ID, 1, " + test.requested + ", 0, 0)"});
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, TheCodecTypeChoosesTheMimeType) {
    std::map<int, std::string> const mimes{
        {1, "avc"},          {2, "hevc"},           {3, "x-vnd.on2.vp9"}, {4, "av01"},
        {5, "mp4v-es"},      {6, "mpeg2"},          {7, "3gpp"},          {8, "mjpeg"},
        {9, "dolby-vision"}, {11, "x-vnd.on2.vp8"}, {12, "vvc"}};
    for (int const type : {kMin, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, kMax}) {
        bool const known = mimes.count(type) != 0;
        auto const log = recorded(
            [&] { EXPECT_EQ(configure({}, static_cast<CodecType>(type)), known ? 0 : -1); });
        std::string const mime = known ? "video/" + mimes.at(type) : "";
        EXPECT_EQ(only("FromMIME", log), Lines{"TVHW_CRM_CodecTypeFromMIME(" + mime + ")"});
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, ThePolicyDecidesWhetherACoreMayBeTaken) {
    kvo::host::setForcedAcquirePolicy([](int pid) { return pid == 42; });
    for (auto const& [pid, call] : std::map<int, std::string>{
             {0, "Acquire"}, {-3, "Acquire"}, {42, "Acquire"}, {1, "TryAcquire"}}) {
        auto const log = recorded([&, pid = pid] { configure({{"calling-pid", pid}}); });
        EXPECT_EQ(only("allowsForcedAcquire(" + std::to_string(pid), log).size(),
                  only("allows", log).size());
        EXPECT_EQ(only("allows", log).size(), pid > 0 ? 1U : 0U);
        EXPECT_EQ(only("Client" + call, log).size(), 1U) << pid;
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, TunnelModeAsksForAPortOnce) {
    EXPECT_EQ(tunnel(), 0);
    EXPECT_EQ(kvo::host::crmClients().back().videoPort, 1);
    std::string const by = " VideoClient acquireDisplayResources: ";
    auto const again = recorded([&] { EXPECT_EQ(tunnel(), 0); });
    EXPECT_EQ(only(by, again), Lines{"2" + by + "Already acquired display resource mVdoPort=0"});
    EXPECT_EQ(only("TVHW_CRM", again), Lines{});
    wrapper->release();

    failCall("TVHW_CRM_ClientGetResource", -5, 4);
    auto const unreadable = recorded([&] { EXPECT_EQ(tunnel(), 0) << "grant not readable"; });
    EXPECT_EQ(only(by, unreadable), Lines{});
    EXPECT_EQ(codec->configured.getInt32(key::kVideoPort, -9), -1);
    wrapper->release();

    failCall("TVHW_CRM_ClientAcquireResource", -5, 2);
    auto const refused = recorded([&] { EXPECT_EQ(tunnel(), -1); });
    EXPECT_EQ(only(by, refused), Lines{"0" + by + "vdoPort=TVHW_CRM_VIDEO_PORT_NONE"});
    EXPECT_EQ(only("ClientFree", refused).size(), 1U) << "the core goes back too";
}

TEST_F(DecoderAcquisitionTest, PixelModeThatCannotClearThePortsKeepsTheCoreAndFails) {
    failCall("TVHW_CRM_ClientClearResource", -5);
    auto const log = recorded(
        [&] { EXPECT_EQ(wrapper->configurePixelMode(CodecType::AVC, {}).status().code(), -1); });
    EXPECT_EQ(saidBy("clearDisplayResources", log),
              (Lines{"2 clear display resource all 1, port -1", "1 clear display resource fail"}));
    EXPECT_EQ(kvo::host::crmClients().back().core, 1);
}

TEST_F(DecoderAcquisitionTest, ThePropertyClearsABorrowedPortOnly) {
    enum Own { kNone, kWithTheCore, kForTunnelMode };
    struct Case {
        std::optional<int> property;
        std::vector<int> shownPorts;  ///< Of buffers that are released.
        Own own;
        int port;  ///< Of the decoder after that.
        std::string cleared;
    };
    for (auto const& test : std::vector<Case>{{{}, {1}, kNone, 1, ""},
                                              {0, {1}, kNone, 1, ""},
                                              {2, {1}, kNone, 1, ""},
                                              {1, {1}, kForTunnelMode, 0, ""},
                                              {1, {0}, kWithTheCore, 1, ""},
                                              {1, {0, 1}, kNone, 1, "2"},
                                              {1, {1, 0}, kNone, 0, "1"},
                                              {1, {1, 2, -1, kMin, kMax}, kNone, 1, "2"},
                                              {1, {2, -1}, kNone, -1, ""}}) {
        SCOPED_TRACE(testing::PrintToString(test.shownPorts));
        kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", test.property);
        if (test.own == kWithTheCore) {
            kvo::host::forceGrant({{}, 2, {}, {}});
        }
        EXPECT_EQ(test.own == kForTunnelMode ? tunnel() : configure(), 0);
        kvo::host::forceGrant({});
        for (int const port : test.shownPorts) {
            show(port);
        }
        EXPECT_EQ(stampedPort(), test.port);
        Lines cleared{"getIntProperty(ro.vendor.kvo.omx.clear_display, 0)"};
        if (!test.cleared.empty()) {
            cleared.push_back(
                "2 VideoClient clearDisplayResources: clear display resource all 0, "
                "port " +
                std::to_string(test.port));
            cleared.push_back("TVHW_CRM_ClientClearResource(ID, " + test.cleared + ")");
        }
        EXPECT_EQ(only("lear", recorded([&] { wrapper->release(); })), cleared);
    }
    EXPECT_EQ(recorded([&] { wrapper->release(); }), Lines{"codec.release"}) << "no client";
}

TEST_F(DecoderAcquisitionTest, ABorrowedPortIsKnownDuringTheReleaseThatTellsIt) {
    // Of an unknown core the next configuration takes another, here one without a port.
    kvo::host::forceGrant({5, 2, {}, {}});
    EXPECT_EQ(configure(), 0);
    kvo::host::forceGrant({5, 0, {}, {}});
    EXPECT_EQ(configure(), 0);
    show(1);
    EXPECT_EQ(stampedPort(), -1) << "still counts as granted";
    wrapper->release();
    kvo::host::forceGrant({{}, 2, {}, {}});
    failCall("TVHW_CRM_ClientGetUniqueId", -5);
    EXPECT_EQ(configure(), -1);
    EXPECT_EQ(stampedPort(), 2) << "the manager's number stays behind";
    kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", 1);
    EXPECT_EQ(only("ClearResource", recorded([&] { wrapper->release(); })), Lines{});

    int during = -9;
    codec->onCall = [&](std::string const& operation) {
        during = operation == "releaseOutputBuffer" ? stampedPort() : during;
    };
    show(1);
    EXPECT_EQ(during, 1);
    codec->onCall = nullptr;
}

}  // namespace
