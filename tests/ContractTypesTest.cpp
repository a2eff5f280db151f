#include <gtest/gtest.h>

#include "kvo/media/hardware/Configuration.h"
#include "kvo/media/hardware/PixelInfo.h"
#include "kvo/media/hardware/Return.h"

namespace {

using namespace kvo::media::hardware;

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
