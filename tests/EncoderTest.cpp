#include <gtest/gtest.h>

#include "Journal.h"
#include "WrapperTest.h"

namespace {

using namespace kvo::media::hardware;

using EncoderTest = WrapperTest<Encoder>;

std::string const kTag = " VideoEncClient acquireResources: ";

TEST_F(EncoderTest, AWholeLifeMakesTheseCallsInThisOrder) {
    auto const config = configuration(
        {{"outFormat", 1}, {"width", 64}, {"height", 48}, {"framerate", 25}, {"coreType", 9}});
    auto const log = recorded([&] {
        EXPECT_EQ(wrapper->configure(config).status().code(), 0);
        EXPECT_EQ(wrapper->release().status().code(), 0);
        wrapper.reset();
    });
    EXPECT_EQ(config.getInt32(key::kCoreType, 0), 9) << "the caller's own";
    EXPECT_EQ(log,
              (Lines{"TVHW_CRM_ClientInit(VDC, 0, COOKIE)",
                     "3" + kTag + "acquire-resource: w/h=64/48, framerate=25",
                     "TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_CodecTypeFromMIME(video/avc)",
                     "TVHW_CRM_ClientAcquireResource(ID, 1, 64, 48, 25, 1, 0)",
                     "TVHW_CRM_ClientGetResource(ID)",
                     "2 VideoClient acquireResource: crm: acquired resource, core=0x1, "
                     "port=0, size=1920/1088",
                     "TVHW_CRM_ClientGetResource(ID)", "2" + kTag + "core_type: 801",
                     "TVHW_CRM_ClientGetUniqueId(ID)", "2" + kTag + "resource id ID",
                     "2" + kTag + "acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE",
                     "codec.configure(5)", "codec.release", "TVHW_CRM_ClientReleaseResource(ID)",
                     "TVHW_CRM_ClientFree(ID)", "codec.release"}));
}

TEST_F(EncoderTest, TheOutputFormatChoosesTheMimeType) {
    for (int const format : {-1, 0, 1, 2, 10, 11, 12}) {
        std::string const mime = format == 1    ? "video/avc"
                                 : format == 11 ? "video/x-vnd.on2.vp8"
                                                : "";
        auto const log = recorded([&] {
            EXPECT_EQ(configure({{"outFormat", format}}), mime.empty() ? -1 : 0);
        });
        EXPECT_EQ(only("MIME", log), Lines{"TVHW_CRM_CodecTypeFromMIME(" + mime + ")"});
        wrapper->release();
    }
    EXPECT_EQ(only("(", recorded([&] { wrapper->configure({}); }))[3],
              "TVHW_CRM_ClientAcquireResource(ID, 0, 0, 0, 0, 1, 0)");
}

TEST_F(EncoderTest, AReclaimedEncoderTouchesNothing) {
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(wrapper->getConfiguration().value().size(), 2U);
    auto const read = [&] { return wrapper->readOutputFrame(nullptr, nullptr, nullptr, nullptr); };
    EXPECT_EQ(read().value(), 7);
    EXPECT_EQ(recorded([&] { EXPECT_EQ(reclaimNewest().get(), 1); }),
              (Lines{"2 VideoEncClient reclaim: reclaim: start", "codec.release",
                     "2 VideoEncClient reclaim: reclaim: end"}));
    EXPECT_EQ(read().value(), 0);
    EXPECT_EQ(recorded([&] { EXPECT_EQ(wrapper->release().status().code(), 0); }), Lines{});
    EXPECT_EQ(recorded([&] { EXPECT_EQ(configure(), -19); }),
              Lines{"2" + kTag + "Already acquired resource mCoreType=801"});
    EXPECT_EQ(recorded([&] { wrapper.reset(); }),
              (Lines{"TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_ClientFree(ID)"}));
}

TEST_F(EncoderTest, ALiveStreamingEncoderKeepsItsCoreAndTheNewcomerIsRefused) {
    kvo::host::setPool({{2, true, 1920, 1088}});
    EXPECT_EQ(configure({{"useDmaBuffer", -1}}), 0);
    EXPECT_EQ(configure({{"useDmaBuffer", 0}}), 0) << "the first acquisition has decided";
    VideoEncoderClientWrapperResource newcomer(std::make_shared<FakeEncoder>());
    auto const log = recorded([&] { EXPECT_EQ(Encoder::configure(newcomer), -1); });
    EXPECT_EQ(only(" reclaim: ", log),
              Lines{"1 VideoEncClient reclaim: live streaming, reject reclaim"});
    EXPECT_EQ(codec->releases, 0);
    EXPECT_EQ(kvo::host::crmClients().front().core, 2);
    EXPECT_EQ(wrapper->setParameters({}).status().code(), 0);

    wrapper->release();
    kvo::host::failCall("TVHW_CRM_ClientGetResource", -5, 2);
    EXPECT_EQ(configure(), -1);
    EXPECT_EQ(reclaimNewest().get(), 0) << "until the next acquisition that succeeds";
    EXPECT_EQ(configure(), 0);
    EXPECT_EQ(reclaimNewest().get(), 1);
}

}  // namespace
