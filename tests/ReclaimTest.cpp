#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <thread>

#include "Journal.h"
#include "WrapperTest.h"

namespace {

using namespace std::chrono_literals;

template <typename Wrapper>
bool isRefused(Wrapper& wrapper) {
    return wrapper.getConfiguration().status().code() == -19;
}

template <typename Codec>
using ReclaimTest = WrapperTest<Codec>;
TYPED_TEST_SUITE(ReclaimTest, Codecs, );

TYPED_TEST(ReclaimTest, EveryCallInFlightHoldsTheReclaimOff) {
    auto calls = TypeParam::calls();
    calls.push_back({"configure", [](auto& base) {
                         return TypeParam::configure(
                             static_cast<typename TypeParam::Wrapper&>(base));
                     }});
    for (auto const& guarded : calls) {
        SCOPED_TRACE(guarded.name);
        ASSERT_EQ(this->configure(), 0);
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
        auto const again = recorded([&] { EXPECT_EQ(this->reclaimNewest().get(), 1); });
        EXPECT_EQ(saidBy("reclaim", again).size(), again.size()) << "does nothing";
        EXPECT_EQ(again.size(), 2U);
        this->start();
    }
}

template <typename Codec>
using ReclaimTimeout = WrapperTest<Codec>;
TYPED_TEST_SUITE(ReclaimTimeout, Codecs, );

TYPED_TEST(ReclaimTimeout, AReclaimWaitsForThreeSecondsWhateverHappensMeanwhile) {
    std::array<std::promise<void>, 3> leave;
    std::atomic<std::size_t> inside{0};
    this->codec->onCall = [&](std::string const& operation) {
        if (operation == "flush") {
            leave.at(inside++).get_future().wait();
        }
    };
    this->configure();
    std::vector<std::future<void>> calls;
    for (std::size_t call = 0; call < leave.size(); ++call) {
        calls.push_back(std::async(std::launch::async, [this] { this->wrapper->flush(); }));
    }
    while (inside < leave.size()) {
        std::this_thread::yield();
    }
    auto const begin = std::chrono::steady_clock::now();
    auto const log = recorded([&] {
        auto answer = this->reclaimNewest();
        std::this_thread::sleep_for(1500ms);
        leave[0].set_value();  // One call less moves no deadline.
        EXPECT_EQ(answer.get(), 1);
    });
    auto const duration = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(duration, 3s);
    EXPECT_LT(duration, 4s);
    EXPECT_EQ(only("timeout", log), Lines{std::string("0 ") + TypeParam::kTag +
                                          " startReclaim: reclaim timeout waiting: "
                                          "processing count=2"});
    EXPECT_EQ(this->codec->releases, 1);
    leave[1].set_value();
    leave[2].set_value();
    calls.clear();  // Each is waited for.
    EXPECT_TRUE(isRefused(*this->wrapper));
}

}  // namespace
