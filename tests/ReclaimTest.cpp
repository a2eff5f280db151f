#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "Journal.h"
#include "WrapperTest.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;

struct Decoder {
    using Fake = FakeDecoder;
    using Wrapper = VideoDecoderClientWrapperResource;
    static auto calls() { return guardedDecoderCalls(); }
    static int configure(Wrapper& wrapper) {
        return wrapper.configureReferenceMode(CodecType::AVC, {}).status().code();
    }
};

struct Encoder {
    using Fake = FakeEncoder;
    using Wrapper = VideoEncoderClientWrapperResource;
    static auto calls() { return guardedEncoderCalls(); }
    static int configure(Wrapper& wrapper) {
        return wrapper.configure(configuration({{"outFormat", 1}})).status().code();
    }
};

template <typename Wrapper>
bool isRefused(Wrapper& wrapper) {
    return wrapper.getConfiguration().status().code() == -19;
}

template <typename Codec>
class ReclaimTest : public WrapperTest<typename Codec::Wrapper, typename Codec::Fake> {
protected:
    void SetUp() override { start(); }

    void start() {
        this->codec = std::make_shared<typename Codec::Fake>();
        this->wrapper = std::make_unique<typename Codec::Wrapper>(this->codec);
        ASSERT_EQ(Codec::configure(*this->wrapper), 0);
    }
};
using Codecs = testing::Types<Decoder, Encoder>;
TYPED_TEST_SUITE(ReclaimTest, Codecs, );

TYPED_TEST(ReclaimTest, EveryCallInFlightHoldsTheReclaimOff) {
    auto calls = TypeParam::calls();
    calls.push_back({"configure", [](auto& base) {
                         return TypeParam::configure(
                             static_cast<typename TypeParam::Wrapper&>(base));
                     }});
    for (auto const& guarded : calls) {
        SCOPED_TRACE(guarded.name);
        std::future<int> answer;
        this->codec->onCall = [&](std::string const& operation) {
            if (operation == "release") {
                return;
            }
            this->codec->onCall = nullptr;
            answer = this->reclaimNewest();
            while (!isRefused(*this->wrapper)) {
                std::this_thread::yield();
            }
            EXPECT_EQ(this->codec->releases, 0) << "released under its caller";
        };
        EXPECT_EQ(guarded.call(*this->wrapper), 0);
        EXPECT_EQ(answer.get(), 1);
        EXPECT_EQ(this->codec->releases, 1);
        this->start();
    }
}

TYPED_TEST(ReclaimTest, ASecondReclaimDoesNothing) {
    EXPECT_EQ(this->reclaimNewest().get(), 1);
    auto const log = recorded([&] { EXPECT_EQ(this->reclaimNewest().get(), 1); });
    EXPECT_EQ(only("reclaim: end", log).size(), 1U);
    EXPECT_EQ(log.size(), 2U);
    EXPECT_EQ(this->codec->releases, 1);
}

TYPED_TEST(ReclaimTest, WithoutAClientTheGuardClosesButReleaseGivesTheCoreBack) {
    this->wrapper = std::make_unique<typename TypeParam::Wrapper>(nullptr);
    EXPECT_EQ(TypeParam::configure(*this->wrapper), -22);
    ASSERT_EQ(kvo::host::crmClients().size(), 1U);
    EXPECT_EQ(this->reclaimNewest().get(), 1);
    EXPECT_EQ(this->reclaimNewest().get(), 1) << "still reclaiming, waits anew";
    EXPECT_TRUE(isRefused(*this->wrapper));
    EXPECT_EQ(this->wrapper->release().status().code(), -22);
    EXPECT_TRUE(kvo::host::crmClients().empty());
    EXPECT_TRUE(isRefused(*this->wrapper));
}

TYPED_TEST(ReclaimTest, AnOwnerMayDieWhileItsCodecIsBeingReclaimed) {
    std::promise<void> inRelease;
    std::promise<void> destroyed;
    this->codec->onCall = [&, first = true](std::string const&) mutable {
        if (std::exchange(first, false)) {
            inRelease.set_value();
            destroyed.get_future().wait();
        }
    };
    auto answer = this->reclaimNewest();
    inRelease.get_future().wait();
    this->wrapper.reset();
    EXPECT_TRUE(kvo::host::crmClients().empty());
    EXPECT_EQ(this->codec->releases, 2);
    destroyed.set_value();
    EXPECT_EQ(answer.get(), 1);
    EXPECT_EQ(this->codec.use_count(), 1) << "the reclaim let go of the client";
}

TYPED_TEST(ReclaimTest, ReclaimsHitACodecThatFourThreadsUse) {
    for (int round = 0; round < 20; ++round) {
        std::atomic<bool> released{false};
        std::atomic<int> lateCalls{0};
        std::atomic<int> started{0};
        this->codec->onCall = [&](std::string const& operation) {
            if (operation == "release") {
                released = true;
            } else if (released) {
                ++lateCalls;
            }
        };
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 4; ++thread) {
            threads.emplace_back([&] {
                bool refused = false;
                do {
                    for (auto const& guarded : TypeParam::calls()) {
                        int const code = guarded.call(*this->wrapper);
                        EXPECT_TRUE(code == 0 || code == -19) << guarded.name << " " << code;
                        refused = code == -19;
                    }
                    ++started;
                } while (!refused);
            });
        }
        while (started < 4) {
            std::this_thread::yield();
        }
        EXPECT_EQ(this->reclaimNewest().get(), 1);
        for (auto& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(lateCalls, 0);
        this->start();
    }
}

TEST(ReclaimTimeout, ACallThatStaysForThreeSecondsIsOverrun) {
    auto const decoderFake = std::make_shared<FakeDecoder>();
    auto const encoderFake = std::make_shared<FakeEncoder>();
    VideoDecoderClientWrapperResource decoder(decoderFake);
    VideoEncoderClientWrapperResource encoder(encoderFake);
    ASSERT_EQ(Decoder::configure(decoder), 0);
    auto const decoderId = kvo::host::crmClients().back().uniqueId;
    ASSERT_EQ(Encoder::configure(encoder), 0);
    auto const encoderId = kvo::host::crmClients().back().uniqueId;

    std::promise<void> wedged;
    auto const freed = wedged.get_future().share();
    std::atomic<int> inside{0};
    auto const stay = [&, freed](std::string const& operation) {
        if (operation == "flush") {
            ++inside;
            freed.wait();
        }
    };
    decoderFake->onCall = stay;
    encoderFake->onCall = stay;
    std::vector<std::thread> threads;
    threads.emplace_back([&] { decoder.flush(); });
    threads.emplace_back([&] { encoder.flush(); });
    threads.emplace_back([&] { encoder.flush(); });
    while (inside < 3) {
        std::this_thread::yield();
    }

    kvo::host::startJournal();
    auto const begin = std::chrono::steady_clock::now();
    auto decoderAnswer = kvo::host::reclaim(decoderId);
    EXPECT_EQ(kvo::host::reclaim(encoderId).get(), 1);
    EXPECT_EQ(decoderAnswer.get(), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(3));
    std::map<std::string, std::string> timeouts;
    for (auto const& entry : kvo::host::stopJournal()) {
        if (entry.text.find("timeout") != std::string::npos) {
            timeouts[entry.text] = entry.file;
        }
    }
    EXPECT_EQ(timeouts, (std::map<std::string, std::string>{
                            {"0 VideoClient startReclaim: reclaim timeout waiting: "
                             "processing count=1",
                             "impl/tvhw/VideoDecoderClientWrapperResource.cpp"},
                            {"0 VideoEncClient startReclaim: reclaim timeout waiting: "
                             "processing count=2",
                             "impl/tvhw/VideoEncoderClientWrapperResource.cpp"}}));
    EXPECT_EQ(decoderFake->releases + encoderFake->releases, 2);
    wedged.set_value();
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(isRefused(decoder));
    EXPECT_TRUE(isRefused(encoder));
}

}  // namespace
