#pragma once

#include <gtest/gtest.h>

#include <limits>
#include <map>
#include <memory>
#include <string>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

inline constexpr int kMin = std::numeric_limits<int>::min();
inline constexpr int kMax = std::numeric_limits<int>::max();

using Entries = std::map<std::string, int>;

inline auto configuration(Entries const& entries) {
    kvo::media::hardware::Configuration config;
    for (auto const& [name, value] : entries) {
        config.setInt32(name.c_str(), value);
    }
    return config;
}

// What sets the wrappers apart, for tests of both.

struct Decoder {
    using Fake = kvo::media::hardware::FakeDecoder;
    using Wrapper = kvo::media::hardware::VideoDecoderClientWrapperResource;
    using Type = kvo::media::hardware::CodecType;
    static constexpr char kTag[] = "VideoClient";
    static constexpr std::size_t kGuardedCalls = 15;
    static constexpr int kStatusWithoutManager = -1;
    static auto calls() { return kvo::media::hardware::guardedDecoderCalls(); }
    static int configure(Wrapper& wrapper, Entries const& entries = {}, Type type = Type::AVC) {
        return wrapper.configureReferenceMode(type, configuration(entries)).status().code();
    }
};

struct Encoder {
    using Fake = kvo::media::hardware::FakeEncoder;
    using Wrapper = kvo::media::hardware::VideoEncoderClientWrapperResource;
    static constexpr char kTag[] = "VideoEncClient";
    static constexpr std::size_t kGuardedCalls = 10;
    static constexpr int kStatusWithoutManager = 0;
    static auto calls() { return kvo::media::hardware::guardedEncoderCalls(); }
    static int configure(Wrapper& wrapper, Entries entries = {}) {
        entries.emplace("outFormat", 1);
        return wrapper.configure(configuration(entries)).status().code();
    }
};

using Codecs = testing::Types<Decoder, Encoder>;

/// A wrapper around a fake codec. When a test ends nothing may be held.
template <typename Codec>
class WrapperTest : public testing::Test {
protected:
    WrapperTest() { start(); }

    void TearDown() override {
        wrapper.reset();
        EXPECT_TRUE(kvo::host::crmClients().empty());
        kvo::host::reset();
    }

    /// Takes another wrapper around another codec.
    void start() {
        codec = std::make_shared<typename Codec::Fake>();
        wrapper = std::make_unique<typename Codec::Wrapper>(codec);
    }

    template <typename... More>
    int configure(Entries const& entries = {}, More... more) {
        return Codec::configure(*wrapper, entries, more...);
    }

    static std::future<int> reclaimNewest() {
        return kvo::host::reclaim(kvo::host::crmClients().back().uniqueId);
    }

    std::shared_ptr<typename Codec::Fake> codec;
    std::unique_ptr<typename Codec::Wrapper> wrapper;
};
