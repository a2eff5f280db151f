#include <gtest/gtest.h>

#include "Journal.h"
#include "WrapperTest.h"

namespace {

using namespace kvo::media::hardware;

using DecoderTest = WrapperTest<Decoder>;
using Configure = Return<void> (VideoDecoderClientWrapper::*)(CodecType, Configuration const&);

TEST_F(DecoderTest, AWholeLifeMakesTheseCallsInThisOrder) {
    auto const config = configuration({{"width", 640},
                                       {"height", 480},
                                       {"framerate", 25},
                                       {"calling-pid", 42},
                                       {"color-format", 6},
                                       {"adaptive-enable", 3},
                                       {"adaptive-max-width", 64},
                                       {"adaptive-max-height", 48}});
    auto const log = recorded([&] {
        EXPECT_EQ(wrapper->configureTunnelMode(CodecType::AVC, config).status().code(), 0);
        EXPECT_EQ(wrapper->release().status().code(), 0);
        wrapper.reset();
    });
    EXPECT_EQ(
        log, (Lines{
                 "TVHW_CRM_ClientInit(VDC, 0, COOKIE)",
                 "3 VideoClient acquireResources: acquire-resource: adaptive=3, w/h=640/480, "
                 "max=64/48, calling-pid=42, color=6",
                 "allowsForcedAcquire(42)",
                 "TVHW_CRM_ClientReleaseResource(ID)",
                 "TVHW_CRM_CodecTypeFromMIME(video/avc)",
                 "TVHW_CRM_ClientAcquireResource(ID, 1, 1920, 1080, 25, 0, 0)",
                 "TVHW_CRM_ClientGetResource(ID)",
                 "2 VideoClient acquireResource: crm: acquired resource, core=0x1, port=0, "
                 "size=3840/2160",
                 "TVHW_CRM_ClientGetResource(ID)",
                 "2 VideoClient acquireResources: core_type: 801",
                 "TVHW_CRM_ClientGetUniqueId(ID)",
                 "2 VideoClient acquireResources: resource id ID",
                 "2 VideoClient acquireResources: acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE",
                 "TVHW_CRM_ClientAcquireResource(ID, 16385, 0, 0, 0, 0, 0)",
                 "TVHW_CRM_ClientGetResource(ID)",
                 "2 VideoClient acquireDisplayResource: crm: acquired display resource, port=1",
                 "TVHW_CRM_ClientGetResource(ID)",
                 "2 VideoClient acquireDisplayResources: vdoPort=0",
                 "codec.configureTunnelMode(1, 13)",
                 "codec.release",
                 "getIntProperty(ro.vendor.kvo.omx.clear_display, 0)",
                 "TVHW_CRM_ClientReleaseResource(ID)",
                 "TVHW_CRM_ClientFree(ID)",
                 "codec.release",
             }));
}

TEST_F(DecoderTest, ConfigureHandsOnACopyWithTheGrantInItOrFails) {
    Configuration config;
    config.setInt32(key::kResourceCoreType, 7);
    config.setInt32(key::kWidth, 1300);
    config.setInt64("mine", 0x1'0000'0001);
    std::map<std::string, Configure> const operations{
        {"configureTunnelMode(3, 7)", &VideoDecoderClientWrapper::configureTunnelMode},
        {"configureReferenceMode(3, 7)", &VideoDecoderClientWrapper::configureReferenceMode},
        {"configurePixelMode(3, 7)", &VideoDecoderClientWrapper::configurePixelMode},
        {"configureNativeBufferMode(3, 7)", &VideoDecoderClientWrapper::configureNativeBufferMode},
        {"reconfigureOutputBuffer(3, 6)", &VideoDecoderClientWrapper::reconfigureOutputBuffer}};
    for (auto const& [call, operation] : operations) {
        auto const configure = [&, operation = operation] {
            return (wrapper.get()->*operation)(CodecType::VP9, config).status().code();
        };
        codec->answer = Status(-7);
        auto const log = recorded([&] { EXPECT_EQ(configure(), -7); });
        EXPECT_EQ(only("codec.", log).back(), "codec." + call);
        EXPECT_EQ(only("AcquireResource(ID, 3, 1300, 720", log).size(), 1U);
        EXPECT_EQ(codec->configured.getInt32(key::kResourceCoreType, -9), 801);
        EXPECT_EQ(codec->configured.getInt64("mine", 0), 0x1'0000'0001);
        EXPECT_EQ(
            config.size() + static_cast<std::size_t>(config.getInt32("resource-core-type", 0)), 10U)
            << "the caller's own";
        wrapper->release();
        kvo::host::failCall("TVHW_CRM_ClientInit", -5);
        EXPECT_EQ(only("codec.", recorded([&] { EXPECT_EQ(configure(), -1); })), Lines{}) << call;
        EXPECT_EQ(wrapper->flush().status().code(), -7) << "the guard was left";
    }
}

TEST_F(DecoderTest, ReconfigureGivesTheCoreBackAndTakesAnother) {
    configure();
    int const id = kvo::host::crmClients().back().uniqueId;
    wrapper->reconfigureOutputBuffer(CodecType::HEVC, {});
    EXPECT_EQ(kvo::host::crmClients().size(), 1U);
    EXPECT_NE(kvo::host::crmClients().back().uniqueId, id);
}

TEST_F(DecoderTest, OutputBuffersAreStampedOrDropped) {
    codec->dequeued = {3, 640, 480, 0, 40, 77, 78, 79};
    codec->answer = Status(5);
    auto const expectStamps = [&](int port, int id, int pid) {
        auto const result = wrapper->dequeueOutputBuffer();
        EXPECT_EQ(result.status().code(), 0);
        EXPECT_EQ(result.value().bufferId, 3);
        EXPECT_EQ(result.value().timestampUs, 40U);
        EXPECT_EQ(result.value().videoPort, port);
        EXPECT_EQ(result.value().resourceId, id);
        EXPECT_EQ(result.value().callingPid, pid);
    };
    expectStamps(-1, -1, -1);
    wrapper->configureTunnelMode(CodecType::AVC, configuration({{"calling-pid", 42}}));
    expectStamps(0, kvo::host::crmClients().back().uniqueId, 42);
    wrapper->release();
    expectStamps(-1, -1, 42);

    codec->answer = Status(-5);
    auto const failed = wrapper->dequeueOutputBuffer();
    EXPECT_EQ(failed.status().code(), -5);
    EXPECT_EQ(failed.value().bufferId, 0);
    EXPECT_EQ(failed.value().callingPid, -1);

    EXPECT_EQ(wrapper->dequeueRenderEvent().value().renderTimeNs, 41U);
    PixelInfo const pixel = wrapper->dequeuePixelBuffer().value();
    EXPECT_EQ(pixel.planes.data(), codec->planes) << "copied";
    EXPECT_NE(wrapper->dequeueNativeBuffer().value(), nullptr);
    EXPECT_EQ(wrapper->getConfiguration().value().size(), 6U);
}

TEST_F(DecoderTest, AReclaimedDecoderTouchesNothingAndTellsThePlatform) {
    configure({{"calling-pid", 1}});
    configure({{"calling-pid", 2}});  // The core is held: nothing is read again.
    EXPECT_EQ(recorded([&] { reclaimNewest().wait(); }),
              (Lines{"2 VideoClient reclaim: reclaim: start, calling-pid=1", "codec.release",
                     "onProcessReclaimed(1)", "2 VideoClient reclaim: reclaim: end"}));
    EXPECT_EQ(wrapper->dequeueOutputBuffer().value().callingPid, -1);
    EXPECT_EQ(wrapper->dequeueNativeBuffer().value(), nullptr);
    BufferInfo buffer;
    buffer.videoPort = 1;
    wrapper->releaseOutputBuffer(buffer);

    // Configuring runs its steps up to the guard; the core is still on record.
    Lines const held{"2 VideoClient acquireResources: Already acquired resource mCoreType=801"};
    Lines const cleared{held[0],
                        "2 VideoClient clearDisplayResources: clear display resource all 1, "
                        "port -1",
                        "TVHW_CRM_ClientClearResource(ID, 3)"};
    auto const refused = [&](Configure operation) {
        return recorded([&] {
            EXPECT_EQ((wrapper.get()->*operation)(CodecType::AVC, {}).status().code(), -19);
        });
    };
    EXPECT_EQ(refused(&VideoDecoderClientWrapper::configurePixelMode), cleared);
    EXPECT_EQ(refused(&VideoDecoderClientWrapper::configureReferenceMode), held);
    EXPECT_EQ(refused(&VideoDecoderClientWrapper::configureNativeBufferMode), held);
    EXPECT_EQ(refused(&VideoDecoderClientWrapper::reconfigureOutputBuffer), Lines{});
    EXPECT_EQ(refused(&VideoDecoderClientWrapper::configureTunnelMode)[0], held[0]);
    EXPECT_EQ(recorded([&] { wrapper->pause(); }), Lines{"codec.pause"}) << "not guarded";

    EXPECT_EQ(recorded([&] { EXPECT_EQ(wrapper->release().status().code(), 0); }),
              Lines{"onReclaimedClientReleased(1)"});
    EXPECT_EQ(recorded([&] { wrapper.reset(); }),
              (Lines{"onReclaimedClientReleased(1)", "TVHW_CRM_ClientReleaseResource(ID)",
                     "TVHW_CRM_ClientFree(ID)"}));
}

TEST_F(DecoderTest, AReclaimWithoutAProcessTellsThePlatformNothing) {
    for (int const pid : {0, -3}) {
        configure(pid == 0 ? Entries{} : Entries{{"calling-pid", pid}});
        EXPECT_EQ(
            recorded([&] { reclaimNewest().wait(); }),
            (Lines{"2 VideoClient reclaim: reclaim: start, calling-pid=" + std::to_string(pid),
                   "codec.release", "2 VideoClient reclaim: reclaim: end"}));
        EXPECT_EQ(recorded([&] { wrapper->release(); }), Lines{});
        start();
    }
}

}  // namespace
