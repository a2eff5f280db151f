#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "host/HostPlatform.h"

/// A wrapper around a fake codec. When a test ends nothing may be held.
template <typename Wrapper, typename Fake>
class WrapperTest : public testing::Test {
protected:
    void TearDown() override {
        wrapper.reset();
        EXPECT_TRUE(kvo::host::crmClients().empty());
        kvo::host::reset();
    }

    static std::future<int> reclaimNewest() {
        return kvo::host::reclaim(kvo::host::crmClients().back().uniqueId);
    }

    std::shared_ptr<Fake> codec = std::make_shared<Fake>();
    std::unique_ptr<Wrapper> wrapper = std::make_unique<Wrapper>(codec);
};
