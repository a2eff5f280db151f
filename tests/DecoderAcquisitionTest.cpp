#include <gtest/gtest.h>

#include "FakeCodecs.h"
#include "Journal.h"
#include "WrapperTest.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;

constexpr int kMin = -2147483647 - 1;
constexpr int kMax = 2147483647;

class DecoderAcquisitionTest : public WrapperTest<VideoDecoderClientWrapperResource, FakeDecoder> {
protected:
    int configure(Configuration const& config = {}, CodecType type = CodecType::AVC) {
        return wrapper->configureReferenceMode(type, config).status().code();
    }
};

TEST_F(DecoderAcquisitionTest, SizesAreRaisedToWhatTheStreamMayNeed) {
    struct Case {
        std::map<std::string, int> config;
        std::string requested;
    };
    std::vector<Case> const cases{
        {{}, "1280, 720"},
        {{{"width", 1280}, {"height", 720}}, "1280, 720"},
        {{{"width", 1281}, {"height", 721}}, "1281, 721"},
        {{{"width", 1920}, {"height", 64}}, "1920, 720"},
        {{{"width", -5}, {"height", 721}, {"color-format", -1}}, "1280, 721"},
        {{{"width", 640}, {"height", 480}, {"color-format", 4}}, "1280, 720"},
        {{{"width", 640}, {"height", 480}, {"color-format", 5}}, "640, 480"},
        {{{"width", 640}, {"height", 480}, {"color-format", 12}}, "640, 480"},
        {{{"width", 640}, {"height", 480}, {"color-format", 13}}, "1280, 720"},
        {{{"color-format", 8}}, "0, 0"},
        {{{"adaptive-enable", 1}, {"width", 2560}, {"height", 1440}}, "2560, 1440"},
        {{{"adaptive-enable", -1},
          {"width", 640},
          {"adaptive-max-width", 1280},
          {"adaptive-max-height", 720},
          {"color-format", 5}},
         "1920, 1080"},
        {{{"adaptive-enable", 1}, {"adaptive-max-width", 3840}, {"adaptive-max-height", 1}},
         "3840, 1080"},
        {{{"adaptive-max-width", 3840}, {"adaptive-max-height", 2160}}, "1280, 720"},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.requested);
        auto const log = recorded([&] { configure(configuration(test.config)); });
        EXPECT_EQ(only("AcquireResource(", log),
                  Lines{"TVHW_CRM_ClientAcquireResource(ID, 1, " + test.requested + ", 0, 0, 0)"});
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, TheCodecTypeChoosesTheMimeType) {
    std::vector<std::string> const mimes{"",
                                         "video/avc",
                                         "video/hevc",
                                         "video/x-vnd.on2.vp9",
                                         "video/av01",
                                         "video/mp4v-es",
                                         "video/mpeg2",
                                         "video/3gpp",
                                         "video/mjpeg",
                                         "video/dolby-vision",
                                         "",
                                         "video/x-vnd.on2.vp8",
                                         "video/vvc",
                                         ""};
    for (int const type : {kMin, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, kMax}) {
        SCOPED_TRACE(type);
        std::string const mime = type < 0 || type > 13 ? "" : mimes[static_cast<std::size_t>(type)];
        auto const log = recorded(
            [&] { EXPECT_EQ(configure({}, static_cast<CodecType>(type)), mime.empty() ? -1 : 0); });
        EXPECT_EQ(only("FromMIME", log), Lines{"TVHW_CRM_CodecTypeFromMIME(" + mime + ")"});
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, ThePolicyDecidesWhetherACoreMayBeTaken) {
    kvo::host::setForcedAcquirePolicy([](int pid) { return pid == 42; });
    struct Case {
        int pid;
        Lines asked;
        std::string call;
    };
    std::vector<Case> const cases{
        {0, {}, "ClientAcquire"},
        {-3, {}, "ClientAcquire"},
        {42, {"allowsForcedAcquire(42)"}, "ClientAcquire"},
        {1, {"allowsForcedAcquire(1)"}, "ClientTryAcquire"},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.pid);
        auto const log = recorded([&] {
            EXPECT_EQ(configure(configuration({{"calling-pid", test.pid}})), 0);
        });
        EXPECT_EQ(only("allowsForcedAcquire", log), test.asked);
        EXPECT_EQ(only(test.call, log).size(), 1U);
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, CoreTypesAndPortsAreRenumbered) {
    struct Case {
        int core;
        int port;
        int coreType;
        int videoPort;
        Lines log;
    };
    std::string const none = "2 acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE";
    std::vector<Case> const cases{
        {1, 0, 801, -1, {"2 core_type: 801", none}},
        {2, -1, 802, -1, {"2 core_type: 802", none}},
        {3, 1, 804, 0, {"2 core_type: 804", "2 vdoPort=0"}},
        {4, 2, 803, 1, {"2 core_type: 803", "2 vdoPort=1"}},
        {5, 0, 0, -1, {"3 get unknown core_type: 5", "2 core_type: 0", none}},
        {-1, 3, 0, 2, {"3 get unknown core_type: 4294967295", "2 core_type: 0", "2 vdoPort=2"}},
        {kMin, kMin, 0, -1, {"3 get unknown core_type: 2147483648", "2 core_type: 0", none}},
        {kMax,
         kMax,
         0,
         kMax - 1,
         {"3 get unknown core_type: 2147483647", "2 core_type: 0", "2 vdoPort=2147483646"}},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.core);
        kvo::host::forceGrant({test.core, test.port, test.core, 222});
        auto log = saidBy("acquireResources", recorded([&] { EXPECT_EQ(configure(), 0); }));
        log.erase(log.begin());    // The request.
        log.erase(log.end() - 2);  // The id.
        EXPECT_EQ(log, test.log);
        EXPECT_EQ(codec->configured.getInt32(key::kResourceCoreType, -9), test.coreType);
        EXPECT_EQ(codec->configured.getInt32(key::kVideoPort, -9), test.videoPort);
        EXPECT_EQ(codec->configured.getInt32(key::kMaxWidth, -9), test.core);
        EXPECT_EQ(codec->configured.getInt32(key::kMaxHeight, -9), 222);
        EXPECT_EQ(codec->configured.getInt32(key::kResourceId, -9),
                  kvo::host::crmClients().back().uniqueId);
        wrapper->release();
    }
}

TEST_F(DecoderAcquisitionTest, EachFailureKeepsWhatItMustAndIsLogged) {
    struct Case {
        char const* failing;
        std::uint64_t nth;
        int code;
        Lines log;
        std::size_t clients;
        int core;        ///< Held by the client after the failure.
        int nextStatus;  ///< Of a second attempt.
        std::size_t nextRequests;
    };
    std::vector<Case> const cases{
        {"ClientInit", 1, -5, {"1 acquire resource not implement"}, 0, 0, 0, 1},
        {"ClientInit", 1, 0, {"1 acquire resource fail"}, 0, 0, 0, 1},  // Without a handle.
        {"ClientAcquireResource", 1, -5, {"1 get resource fail"}, 1, 0, 0, 1},
        {"ClientGetResource", 2, -5, {"1 get resource fail"}, 1, 1, 0, 1},
        {"ClientGetUniqueId", 1, -5, {"2 core_type: 801", "0 get resource id fail"}, 1, 1, 0, 0},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.failing);
        failCall(std::string("TVHW_CRM_") + test.failing, test.code, test.nth);
        auto const log = recorded([&] { EXPECT_EQ(configure(), -1); });
        EXPECT_EQ(only("codec.", log), Lines{});
        Lines lines = saidBy("acquireResources", log);
        if (lines[0][0] == '3') {
            lines.erase(lines.begin());  // The request.
        }
        EXPECT_EQ(lines, test.log);
        auto const clients = kvo::host::crmClients();
        ASSERT_EQ(clients.size(), test.clients);
        EXPECT_EQ(clients.empty() ? 0 : clients[0].core, test.core);

        auto const next = recorded([&] { EXPECT_EQ(configure(), test.nextStatus); });
        EXPECT_EQ(only("ClientAcquireResource", next).size(), test.nextRequests);
        if (test.nextRequests == 0) {
            EXPECT_EQ(saidBy("acquireResources", next),
                      Lines{"2 Already acquired resource mCoreType=801"});
        }
        EXPECT_EQ(kvo::host::crmClients().size(), 1U) << "the earlier client is closed";
        wrapper->release();
        EXPECT_TRUE(kvo::host::crmClients().empty());
    }
}

TEST_F(DecoderAcquisitionTest, ASecondConfigurationKeepsTheFirstGrantAndItsProcess) {
    EXPECT_EQ(configure(configuration({{"calling-pid", 42}})), 0);
    auto const log = recorded([&] {
        EXPECT_EQ(configure(configuration({{"width", 9999}, {"calling-pid", 43}})), 0);
    });
    EXPECT_EQ(log, (Lines{"2 VideoClient acquireResources: Already acquired resource mCoreType=801",
                          "codec.configureReferenceMode"}));
    EXPECT_EQ(wrapper->dequeueOutputBuffer().value().callingPid, 42);
}

TEST_F(DecoderAcquisitionTest, TunnelModeAsksForAPortOnce) {
    auto const tunnel = [&] {
        return wrapper->configureTunnelMode(CodecType::AVC, {}).status().code();
    };
    EXPECT_EQ(tunnel(), 0);
    EXPECT_EQ(codec->configured.getInt32(key::kVideoPort, -9), 0);
    EXPECT_EQ(kvo::host::crmClients().back().videoPort, 1);
    auto const again = recorded([&] { EXPECT_EQ(tunnel(), 0); });
    EXPECT_EQ(only("acquireDisplayResources", again),
              Lines{"2 VideoClient acquireDisplayResources: Already acquired display resource "
                    "mVdoPort=0"});
    EXPECT_EQ(only("TVHW_CRM", again), Lines{});
    wrapper->release();

    failCall("TVHW_CRM_ClientGetResource", -5, 4);
    auto const unreadable = recorded([&] { EXPECT_EQ(tunnel(), 0) << "grant not readable"; });
    EXPECT_EQ(only(" acquireDisplayResources", unreadable), Lines{});
    EXPECT_EQ(codec->configured.getInt32(key::kVideoPort, -9), -1);
    wrapper->release();

    failCall("TVHW_CRM_ClientAcquireResource", -5, 2);
    auto const refused = recorded([&] { EXPECT_EQ(tunnel(), -1); });
    EXPECT_EQ(only("acquireDisplayResources", refused),
              Lines{"0 VideoClient acquireDisplayResources: vdoPort=TVHW_CRM_VIDEO_PORT_NONE"});
    EXPECT_EQ(only("ClientFree", refused).size(), 1U) << "the core goes back too";
    EXPECT_TRUE(kvo::host::crmClients().empty());
}

TEST_F(DecoderAcquisitionTest, PixelModeClearsBothPortsOrKeepsTheCoreAndFails) {
    auto const pixel = [&] {
        return wrapper->configurePixelMode(CodecType::AVC, {}).status().code();
    };
    auto const log = recorded([&] { EXPECT_EQ(pixel(), 0); });
    Lines const end{"2 VideoClient clearDisplayResources: clear display resource all 1, port -1",
                    "TVHW_CRM_ClientClearResource(ID, 3)", "codec.configurePixelMode"};
    EXPECT_EQ(Lines(log.end() - 3, log.end()), end);
    failCall("TVHW_CRM_ClientClearResource", -5);
    EXPECT_EQ(only("clearDisplayResources", recorded([&] { EXPECT_EQ(pixel(), -1); })),
              (Lines{end[0], "1 VideoClient clearDisplayResources: clear display resource fail"}));
    EXPECT_EQ(kvo::host::crmClients().back().core, 1);
}

TEST_F(DecoderAcquisitionTest, ThePropertyClearsABorrowedPortOnly) {
    struct Case {
        std::optional<int> property;
        int shownPort;  ///< Of a buffer that is released.
        bool ownPort;
        int port;  ///< Of the decoder after that.
        Lines cleared;
    };
    std::string const line = "2 VideoClient clearDisplayResources: clear display resource all 0, ";
    std::vector<Case> const cases{
        {{}, 1, false, 1, {}},
        {0, 1, false, 1, {}},
        {2, 1, false, 1, {}},
        {1, 1, false, 1, {line + "port 1", "TVHW_CRM_ClientClearResource(ID, 2)"}},
        {1, 0, false, 0, {line + "port 0", "TVHW_CRM_ClientClearResource(ID, 1)"}},
        {1, 2, false, -1, {}},
        {1, -1, false, -1, {}},
        {1, 1, true, 0, {}},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.shownPort);
        kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", test.property);
        if (test.ownPort) {
            wrapper->configureTunnelMode(CodecType::AVC, {});
        } else {
            configure();
        }
        BufferInfo buffer;
        buffer.videoPort = test.shownPort;
        wrapper->releaseOutputBuffer(buffer);
        EXPECT_EQ(wrapper->dequeueOutputBuffer().value().videoPort, test.port);
        auto const log = recorded([&] { wrapper->release(); });
        EXPECT_EQ(Lines(log.begin() + 2, log.end() - 2), test.cleared);
        EXPECT_EQ(log[1], "getIntProperty(ro.vendor.kvo.omx.clear_display, 0)");
    }
    EXPECT_EQ(only("getIntProperty", recorded([&] { wrapper->release(); })), Lines{});
}

}  // namespace
