#include <gtest/gtest.h>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "Journal.h"
#include "WrapperTest.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;

class EncoderTest : public WrapperTest<VideoEncoderClientWrapperResource, FakeEncoder> {
protected:
    int configure(CodecType type = CodecType::AVC, int useDmaBuffer = 0) {
        auto const config = configuration({{"outFormat", static_cast<int>(type)},
                                           {"useDmaBuffer", useDmaBuffer},
                                           {"coreType", 9}});
        int const result = wrapper->configure(config).status().code();
        EXPECT_EQ(config.getInt32(key::kCoreType, 0), 9) << "the caller's own";
        return result;
    }
};

std::string const kTag = " VideoEncClient acquireResources: ";

TEST_F(EncoderTest, AWholeLifeMakesTheseCallsInThisOrder) {
    auto const config =
        configuration({{"outFormat", 1}, {"width", 64}, {"height", 48}, {"framerate", 25}});
    auto const log = recorded([&] {
        EXPECT_EQ(wrapper->configure(config).status().code(), 0);
        EXPECT_EQ(wrapper->configure(config).status().code(), 0);
        EXPECT_EQ(wrapper->release().status().code(), 0);
        wrapper.reset();
    });
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
                     "codec.configure", "2" + kTag + "Already acquired resource mCoreType=801",
                     "codec.configure", "codec.release", "TVHW_CRM_ClientReleaseResource(ID)",
                     "TVHW_CRM_ClientFree(ID)", "codec.release"}));
}

TEST_F(EncoderTest, TheOutputFormatChoosesTheMimeTypeAndTheCoreIsNamed) {
    struct Case {
        CodecType outFormat;
        std::string mime;
        int core;
        int port;
        int coreType;  ///< That the codec is told.
        Lines log;
    };
    std::string const avc = "video/avc";
    std::string const vp8 = "video/x-vnd.on2.vp8";
    std::string const none = "2 acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE";
    std::vector<Case> const cases{
        {CodecType::AVC, avc, 1, 0, 0, {"2 core_type: 801", none}},
        {CodecType::VP8, vp8, 2, 1, 1, {"2 core_type: 802", "2 vdoPort=0"}},
        {CodecType::AVC, avc, 3, 2, 0, {"2 core_type: 804", "2 vdoPort=1"}},
        {CodecType::VP8, vp8, 4, 3, 0, {"2 core_type: 803", "2 vdoPort=2"}},
        {CodecType::AVC, avc, 0, -1, 0, {"3 get unknown core_type: 0", "2 core_type: 0", none}},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.core);
        kvo::host::forceGrant({test.core, test.port, {}, {}});
        auto const log = recorded([&] { EXPECT_EQ(configure(test.outFormat), 0); });
        EXPECT_EQ(only("MIME", log), Lines{"TVHW_CRM_CodecTypeFromMIME(" + test.mime + ")"});
        Lines lines = saidBy("acquireResources", log);
        lines.erase(lines.begin());    // The request.
        lines.erase(lines.end() - 2);  // The id.
        EXPECT_EQ(lines, test.log);
        EXPECT_EQ(codec->configured.getInt32(key::kCoreType, -9), test.coreType);
        wrapper->release();
    }
    for (int const unknown : {0, 2, 10, 12, -1}) {
        auto const log =
            recorded([&] { EXPECT_EQ(configure(static_cast<CodecType>(unknown)), -1); });
        EXPECT_EQ(only("MIME", log), Lines{"TVHW_CRM_CodecTypeFromMIME()"});
    }
}

TEST_F(EncoderTest, EachFailureKeepsWhatItMustAndIsLogged) {
    struct Case {
        char const* failing;
        std::uint64_t nth;
        int code;
        int status;
        std::string line;
        int heldCore;
        std::size_t nextRequests;
    };
    std::vector<Case> const cases{
        {"TVHW_CRM_ClientInit", 1, -5, 0, "1" + kTag + "acquire resource not implement", 0, 1},
        {"TVHW_CRM_ClientInit", 1, 0, -1, "1" + kTag + "acquire resource fail", 0, 1},
        {"TVHW_CRM_ClientAcquireResource", 1, -5, -1, "1" + kTag + "get resource fail", 0, 1},
        {"TVHW_CRM_ClientGetResource", 2, -5, -1, "1" + kTag + "get resource fail", 1, 1},
        {"TVHW_CRM_ClientGetUniqueId", 1, -5, -1, "0" + kTag + "get resource id fail", 1, 0},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.failing);
        failCall(test.failing, test.code, test.nth);
        auto const log = recorded([&] { EXPECT_EQ(configure(), test.status); });
        EXPECT_EQ(only(test.line, log), Lines{test.line});
        EXPECT_EQ(only("codec.configure", log).size(), test.status == 0 ? 1U : 0U);
        auto const clients = kvo::host::crmClients();
        EXPECT_EQ(clients.empty() ? 0 : clients[0].core, test.heldCore);
        auto const next = recorded([&] { EXPECT_EQ(configure(), 0); });
        EXPECT_EQ(only("ClientAcquireResource", next).size(), test.nextRequests);
        EXPECT_EQ(kvo::host::crmClients().size(), 1U);
        wrapper->release();
    }
}

TEST_F(EncoderTest, CallsAreForwardedThenRefusedAfterAReclaim) {
    configure();
    codec->answer = Status(-7);
    for (auto const& guarded : guardedEncoderCalls()) {
        auto const log = recorded([&] { EXPECT_EQ(guarded.call(*wrapper), -7) << guarded.name; });
        EXPECT_EQ(log, Lines{"codec." + guarded.name});
    }
    EXPECT_EQ(recorded([&] { EXPECT_EQ(reclaimNewest().get(), 1); }),
              (Lines{"2 VideoEncClient reclaim: reclaim: start", "codec.release",
                     "2 VideoEncClient reclaim: reclaim: end"}));
    auto const after = recorded([&] {
        for (auto const& guarded : guardedEncoderCalls()) {
            bool const isQuiet =
                guarded.name == "pause" || guarded.name == "resume" || guarded.name == "flush";
            EXPECT_EQ(guarded.call(*wrapper), isQuiet ? 0 : -19) << guarded.name;
        }
        unsigned long long time = 9;
        unsigned int length = 9;
        unsigned char byte = 9;
        PicType type = PicType::B;
        EXPECT_EQ(wrapper->readOutputFrame(&time, &byte, &length, &type).value(), 0);
        EXPECT_EQ(time + length + byte, 27U);
        EXPECT_EQ(type, PicType::B);
        EXPECT_EQ(wrapper->release().status().code(), 0);
    });
    EXPECT_EQ(after, Lines{});
    EXPECT_EQ(recorded([&] { EXPECT_EQ(configure(), -19); }),
              Lines{"2" + kTag + "Already acquired resource mCoreType=801"});
    EXPECT_EQ(recorded([&] { EXPECT_EQ(reclaimNewest().get(), 1); }),
              (Lines{"2 VideoEncClient reclaim: reclaim: start",
                     "2 VideoEncClient reclaim: reclaim: end"}));
    EXPECT_EQ(recorded([&] { wrapper.reset(); }),
              (Lines{"TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_ClientFree(ID)"}));
}

TEST_F(EncoderTest, ALiveStreamingEncoderKeepsItsCoreAndTheNewcomerIsRefused) {
    kvo::host::setPool({{2, true, 1920, 1088}});
    EXPECT_EQ(configure(CodecType::AVC, -1), 0);
    VideoEncoderClientWrapperResource newcomer(std::make_shared<FakeEncoder>());
    auto const config = configuration({{"outFormat", 1}});
    auto const log = recorded([&] { EXPECT_EQ(newcomer.configure(config).status().code(), -1); });
    EXPECT_EQ(only(" reclaim: ", log),
              Lines{"1 VideoEncClient reclaim: live streaming, reject reclaim"});
    EXPECT_EQ(codec->releases, 0);
    EXPECT_EQ(kvo::host::crmClients().front().core, 2);
    EXPECT_EQ(wrapper->setParameters({}).status().code(), 0);

    wrapper->release();
    EXPECT_EQ(configure(CodecType::AVC, 0), 0);
    EXPECT_EQ(reclaimNewest().get(), 1) << "a new acquisition decides anew";
}

}  // namespace
