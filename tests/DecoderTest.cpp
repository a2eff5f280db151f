#include <gtest/gtest.h>

#include <stdexcept>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "Journal.h"
#include "WrapperTest.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;

using DecoderTest = WrapperTest<VideoDecoderClientWrapperResource, FakeDecoder>;

TEST_F(DecoderTest, AWholeLifeMakesTheseCallsInThisOrder) {
    auto const config =
        configuration({{"width", 640}, {"height", 480}, {"framerate", 25}, {"calling-pid", 42}});
    auto const log = recorded([&] {
        EXPECT_EQ(wrapper->configureTunnelMode(CodecType::AVC, config).status().code(), 0);
        EXPECT_EQ(wrapper->release().status().code(), 0);
        wrapper.reset();
    });
    EXPECT_EQ(
        log,
        (Lines{
            "TVHW_CRM_ClientInit(VDC, 0, COOKIE)",
            "3 VideoClient acquireResources: acquire-resource: adaptive=0, w/h=640/480, max=0/0, "
            "calling-pid=42, color=4",
            "allowsForcedAcquire(42)",
            "TVHW_CRM_ClientReleaseResource(ID)",
            "TVHW_CRM_CodecTypeFromMIME(video/avc)",
            "TVHW_CRM_ClientAcquireResource(ID, 1, 1280, 720, 25, 0, 0)",
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
            "codec.configureTunnelMode",
            "codec.release",
            "getIntProperty(ro.vendor.kvo.omx.clear_display, 0)",
            "TVHW_CRM_ClientReleaseResource(ID)",
            "TVHW_CRM_ClientFree(ID)",
            "codec.release",
        }));
}

TEST_F(DecoderTest, ConfigureHandsOnACopyWithTheGrantInIt) {
    using Configure = Return<void> (VideoDecoderClientWrapper::*)(CodecType, Configuration const&);
    for (Configure const configure : {&VideoDecoderClientWrapper::configureTunnelMode,
                                      &VideoDecoderClientWrapper::configureReferenceMode,
                                      &VideoDecoderClientWrapper::configurePixelMode,
                                      &VideoDecoderClientWrapper::configureNativeBufferMode,
                                      &VideoDecoderClientWrapper::reconfigureOutputBuffer}) {
        bool const again = configure == &VideoDecoderClientWrapper::reconfigureOutputBuffer;
        Configuration config;
        config.setInt32(key::kResourceCoreType, 7);
        config.setInt64("mine", 0x1'0000'0001);
        codec->answer = Status(-7);
        EXPECT_EQ((wrapper.get()->*configure)(CodecType::VP9, config).status().code(), -7);
        EXPECT_EQ(codec->configuredType, CodecType::VP9);
        EXPECT_EQ(codec->configured.getInt32(key::kResourceCoreType, -9), 801);
        EXPECT_EQ(codec->configured.getInt64("mine", 0), 0x1'0000'0001);
        EXPECT_EQ(codec->configured.getInt32(key::kMaxWidth, -9), 3840);
        EXPECT_EQ(codec->configured.size(), again ? 5U : 6U);
        EXPECT_EQ(codec->configured.getInt32(key::kResourceId, 0) == 0, again);
        EXPECT_EQ(config.size(), 2U);
        EXPECT_EQ(config.getInt32(key::kResourceCoreType, 0), 7);
        wrapper->release();
    }
}

TEST_F(DecoderTest, ReconfigureGivesTheCoreBackAndTakesAnother) {
    wrapper->configureReferenceMode(CodecType::AVC, {});
    int const first = kvo::host::crmClients().back().uniqueId;
    auto const log = recorded([&] { wrapper->reconfigureOutputBuffer(CodecType::HEVC, {}); });
    EXPECT_EQ(only("TVHW_CRM", log)[1], "TVHW_CRM_ClientFree(ID)");
    EXPECT_EQ(only("TVHW_CRM", log)[2], "TVHW_CRM_ClientInit(VDC, 0, COOKIE)");
    EXPECT_EQ(log.back(), "codec.reconfigureOutputBuffer");
    EXPECT_GT(kvo::host::crmClients().back().uniqueId, first);

    kvo::host::failCall("TVHW_CRM_ClientInit", -5);
    auto const failed = recorded([&] {
        EXPECT_EQ(wrapper->reconfigureOutputBuffer(CodecType::AVC, {}).status().code(), -1);
    });
    EXPECT_EQ(only("codec.", failed), Lines{});
    EXPECT_EQ(wrapper->flush().status().code(), 0) << "the guard was left";
}

TEST_F(DecoderTest, OutputBuffersAreStampedOrDropped) {
    wrapper->configureTunnelMode(CodecType::AVC, configuration({{"calling-pid", 42}}));
    codec->buffer = {3, 640, 480, 0, 40, 77, 78, 79};
    codec->answer = Status(5);
    auto const result = wrapper->dequeueOutputBuffer();
    EXPECT_EQ(result.status().code(), 0);
    EXPECT_EQ(result.value().bufferId, 3);
    EXPECT_EQ(result.value().timestampUs, 40U);
    EXPECT_EQ(result.value().videoPort, 0);
    EXPECT_EQ(result.value().resourceId, kvo::host::crmClients().back().uniqueId);
    EXPECT_EQ(result.value().callingPid, 42);

    codec->answer = Status(-5);
    auto const failed = wrapper->dequeueOutputBuffer();
    EXPECT_EQ(failed.status().code(), -5);
    EXPECT_EQ(failed.value().bufferId, 0);
    EXPECT_EQ(failed.value().callingPid, -1);
}

TEST_F(DecoderTest, EveryCallIsForwardedAndItsStatusReturned) {
    codec->answer = Status(-7);
    for (auto const& guarded : guardedDecoderCalls()) {
        auto const log = recorded([&] { EXPECT_EQ(guarded.call(*wrapper), -7) << guarded.name; });
        EXPECT_EQ(log, Lines{"codec." + guarded.name});
    }
    codec->answer = status::kSuccess;
    EXPECT_EQ(wrapper->dequeueRenderEvent().value().renderTimeNs, 41U);
    EXPECT_EQ(wrapper->dequeuePixelBuffer().value().planes.size(), 3U);
    EXPECT_NE(wrapper->dequeueNativeBuffer().value(), nullptr);
}

TEST_F(DecoderTest, AReclaimedDecoderRefusesEveryCallAndTouchesNothing) {
    wrapper->configurePixelMode(CodecType::AVC, configuration({{"calling-pid", 42}}));
    EXPECT_EQ(recorded([&] { reclaimNewest().wait(); }),
              (Lines{"2 VideoClient reclaim: reclaim: start, calling-pid=42", "codec.release",
                     "onProcessReclaimed(42)", "2 VideoClient reclaim: reclaim: end"}));
    for (auto const& guarded : guardedDecoderCalls()) {
        auto const log = recorded([&] {
            EXPECT_EQ(guarded.call(*wrapper), guarded.name == "flush" ? 0 : -19) << guarded.name;
        });
        EXPECT_EQ(log, Lines{}) << guarded.name;
    }
    unsigned int freeBytes = 8;
    unsigned int totalBytes = 9;
    bool ready = false;
    wrapper->getInputBufferStatus(&freeBytes, &totalBytes, &ready);
    EXPECT_EQ(freeBytes + totalBytes, 17U);
    EXPECT_FALSE(ready);
    EXPECT_EQ(wrapper->dequeueOutputBuffer().value().callingPid, -1);
    EXPECT_EQ(wrapper->dequeueNativeBuffer().value(), nullptr);
    EXPECT_EQ(wrapper->getConfiguration().value().size(), 0U);

    // Configuring runs its steps up to the guard; the core is still on record.
    EXPECT_EQ(recorded([&] {
                  EXPECT_EQ(wrapper->configurePixelMode(CodecType::AVC, {}).status().code(), -19);
              }),
              (Lines{"2 VideoClient acquireResources: Already acquired resource mCoreType=801",
                     "2 VideoClient clearDisplayResources: clear display resource all 1, port -1",
                     "TVHW_CRM_ClientClearResource(ID, 3)"}));
    EXPECT_EQ(recorded([&] {
                  EXPECT_EQ(wrapper->reconfigureOutputBuffer(CodecType::AVC, {}).status().code(),
                            -19);
              }),
              Lines{});
    EXPECT_EQ(recorded([&] { EXPECT_EQ(wrapper->pause().status().code(), 0); }),
              Lines{"codec.pause"})
        << "not guarded";

    EXPECT_EQ(recorded([&] { EXPECT_EQ(wrapper->release().status().code(), 0); }),
              Lines{"onReclaimedClientReleased(42)"});
    EXPECT_EQ(recorded([&] { wrapper.reset(); }),
              (Lines{"onReclaimedClientReleased(42)", "TVHW_CRM_ClientReleaseResource(ID)",
                     "TVHW_CRM_ClientFree(ID)"}));
}

TEST_F(DecoderTest, AReclaimWithoutAProcessTellsThePlatformNothing) {
    wrapper->configureReferenceMode(CodecType::AVC, {});
    EXPECT_EQ(recorded([&] { reclaimNewest().wait(); }),
              (Lines{"2 VideoClient reclaim: reclaim: start, calling-pid=0", "codec.release",
                     "2 VideoClient reclaim: reclaim: end"}));
    EXPECT_EQ(recorded([&] { wrapper->release(); }), Lines{});
}

TEST_F(DecoderTest, ACodecThatThrowsLeavesTheGuard) {
    wrapper->configureReferenceMode(CodecType::AVC, {});
    codec->onCall = [](std::string const& operation) {
        if (operation != "release") {
            throw std::runtime_error(operation);
        }
    };
    for (auto const& guarded : guardedDecoderCalls()) {
        EXPECT_THROW(guarded.call(*wrapper), std::runtime_error) << guarded.name;
    }
    EXPECT_EQ(only("timeout", recorded([&] { reclaimNewest().wait(); })), Lines{})
        << "no call is left inside";
}

}  // namespace
