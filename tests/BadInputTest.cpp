#include <gtest/gtest.h>

#include <limits>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "Journal.h"
#include "WrapperTest.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;

constexpr int kMin = std::numeric_limits<int>::min();
constexpr int kMax = std::numeric_limits<int>::max();

class BadInputTest : public WrapperTest<VideoDecoderClientWrapperResource, FakeDecoder> {
protected:
    int configure(Configuration const& config) {
        return wrapper->configureReferenceMode(CodecType::AVC, config).status().code();
    }
};

TEST_F(BadInputTest, RequestsAtTheEndsOfTheRangeAreMade) {
    struct Case {
        int value;  ///< Of every key.
        int status;
        std::string request;
    };
    for (auto const& test : {Case{kMin, 0, "(ID, 1, 1920, 1080, -2147483648, 0, 0)"},
                             Case{kMax, -1, "(ID, 1, 2147483647, 2147483647, 2147483647, 0, 0)"}}) {
        Configuration config;
        for (char const* name :
             {key::kWidth, key::kHeight, key::kFrameRate, key::kColorFormat, key::kAdaptiveEnable,
              key::kAdaptiveMaxWidth, key::kAdaptiveMaxHeight, key::kCallingPid}) {
            config.setInt32(name, test.value);
        }
        auto const log = recorded([&] { EXPECT_EQ(configure(config), test.status); });
        EXPECT_EQ(only("AcquireResource", log),
                  Lines{"TVHW_CRM_ClientAcquireResource" + test.request});
        wrapper->release();
    }
}

TEST_F(BadInputTest, ALargeConfigurationPassesWhole) {
    Configuration config;
    std::string const longKey(100000, 'k');
    config.setInt32(longKey.c_str(), 5);
    for (int number = 0; number < 5000; ++number) {
        config.setInt32(("key-%s-" + std::to_string(number)).c_str(), number);
    }
    EXPECT_EQ(configure(config), 0);
    EXPECT_EQ(config.size(), 5001U);
    EXPECT_EQ(codec->configured.size(), 5006U);
    EXPECT_EQ(codec->configured.getInt32(longKey.c_str(), 0), 5);
}

TEST_F(BadInputTest, AMimeTypeIsLoggedWholeAndAsText) {
    struct Owner : ResourceClient::Reclaimable {
        bool reclaim() override { return true; }
    };
    auto const owner = std::make_shared<Owner>();
    auto const client = initializeResource(owner);
    std::string const mime = "%s%n%x" + std::string(100000, '%');
    auto const log = recorded(
        [&] { EXPECT_EQ(client->acquireResource(mime.c_str(), 1, 1, 1, false, false, false), 0); });
    EXPECT_EQ(only("-> none", log),
              Lines{"1 VideoClient acquireResource: crm-acquire: " + mime + " -> none"});
}

TEST_F(BadInputTest, AWrapperAroundNothingFailsEveryCall) {
    PixelInfo pixel;
    VideoDecoderClientWrapperResource emptyDecoder(nullptr);
    VideoEncoderClientWrapperResource emptyEncoder(nullptr);
    EXPECT_EQ(emptyDecoder.copyFromPixelBuffer(nullptr, 0, pixel).status().code(), -22);
    for (auto const& guarded : guardedDecoderCalls()) {
        EXPECT_EQ(guarded.call(emptyDecoder), -22) << guarded.name;
    }
    for (auto const& guarded : guardedEncoderCalls()) {
        EXPECT_EQ(guarded.call(emptyEncoder), -22) << guarded.name;
    }
    EXPECT_EQ(emptyDecoder.reconfigureOutputBuffer(CodecType::AVC, {}).status().code(), -22);
    EXPECT_EQ(emptyDecoder.release().status().code(), -22);
    EXPECT_EQ(emptyEncoder.release().status().code(), -22);
}

}  // namespace
