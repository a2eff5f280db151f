#include <gtest/gtest.h>

#include "kvo/media/hardware/BufferInfo.h"
#include "kvo/media/hardware/Configuration.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "kvo/media/hardware/PixelInfo.h"
#include "kvo/media/hardware/Return.h"

namespace {

using namespace kvo::media::hardware;

TEST(Configuration, StoresSignExtendedAndReadsTheLow32Bits) {
    Configuration config;
    EXPECT_EQ(config.getInt32(key::kColorFormat, 14), 14);
    config.setInt32("width", -1);
    EXPECT_EQ(config.getInt64("width", 0), -1);
    config.setInt32("width", 7);
    EXPECT_EQ(config.getInt32("width", 0), 7);
    EXPECT_EQ(config.size(), 1U);
    config.setInt64("width", 0x1'0000'0005);
    EXPECT_EQ(config.getInt32("width", 0), 5);
    EXPECT_EQ(config.getInt32("Width", 9), 9);
}

TEST(Configuration, ACopyIsIndependent) {
    Configuration config;
    config.setInt32("width", 640);
    Configuration copy = config;
    copy.setInt32("width", 320);
    copy.setInt32("height", 240);
    EXPECT_EQ(config.getInt32("width", 0), 640);
    EXPECT_EQ(config.size(), 1U);
}

TEST(BufferInfo, DefaultNamesNoPortAndNoProcess) {
    BufferInfo const buffer;
    EXPECT_EQ(buffer.callingPid, -1);
    EXPECT_EQ(buffer.videoPort, -1);
    EXPECT_EQ(buffer.resourceId, 0);
    EXPECT_EQ(buffer.bufferId, 0);
    EXPECT_EQ(buffer.timestampUs, 0U);
}

TEST(Return, GivesItsValueAwayWithoutACopy) {
    PixelInfo pixel;
    pixel.planes.resize(3);
    auto const* const planes = pixel.planes.data();
    Return<PixelInfo> result(status::kSuccess, std::move(pixel));
    PixelInfo const taken = std::move(result).value();
    EXPECT_EQ(taken.planes.data(), planes);
    EXPECT_EQ(Return<Configuration>(status::kReclaimed).value().size(), 0U);
}

}  // namespace
