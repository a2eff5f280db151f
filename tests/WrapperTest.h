#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>

#include "host/HostPlatform.h"
#include "kvo/media/hardware/Configuration.h"

inline auto configuration(std::map<std::string, int> const& entries) {
    kvo::media::hardware::Configuration config;
    for (auto const& [name, value] : entries) {
        config.setInt32(name.c_str(), value);
    }
    return config;
}

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
