#include <gtest/gtest.h>

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

/// A wrapper with calls that stay inside the codec until each is let go.
template <typename Codec>
struct Occupied {
    explicit Occupied(std::size_t calls) : leave(calls) {
        codec->onCall = [this](std::string const& operation) {
            if (operation == "flush") {
                leave[inside++].get_future().wait();
            }
        };
        EXPECT_EQ(Codec::configure(wrapper), 0);
        id = kvo::host::crmClients().back().uniqueId;
        for (std::size_t call = 0; call < calls; ++call) {
            threads.emplace_back([this] { wrapper.flush(); });
        }
        while (inside < calls) {
            std::this_thread::yield();
        }
    }
    ~Occupied() {
        EXPECT_TRUE(isRefused(wrapper));
        for (auto& thread : threads) {
            thread.join();
        }
    }

    std::shared_ptr<typename Codec::Fake> codec = std::make_shared<typename Codec::Fake>();
    typename Codec::Wrapper wrapper{codec};
    int id = 0;
    std::vector<std::promise<void>> leave;
    std::atomic<std::size_t> inside{0};
    std::vector<std::thread> threads;
};

TEST(ReclaimTimeout, AReclaimWaitsForThreeSecondsWhateverHappensMeanwhile) {
    Occupied<Decoder> decoder(1);
    Occupied<Encoder> encoder(3);
    kvo::host::startJournal();
    auto const begin = std::chrono::steady_clock::now();
    auto decoderAnswer = kvo::host::reclaim(decoder.id);
    auto encoderAnswer = kvo::host::reclaim(encoder.id);
    std::this_thread::sleep_for(1500ms);
    encoder.leave[2].set_value();  // One call less moves no deadline.
    EXPECT_EQ(decoderAnswer.get() + encoderAnswer.get(), 2);
    auto const duration = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(duration, 3s);
    EXPECT_LT(duration, 4s);
    std::map<std::string, std::string> timeouts;
    for (auto const& entry : kvo::host::stopJournal()) {
        if (entry.text.find("timeout") != std::string::npos) {
            timeouts[entry.text] = entry.file;
        }
    }
    std::string const line = " startReclaim: reclaim timeout waiting: processing count=";
    EXPECT_EQ(
        timeouts,
        (std::map<std::string, std::string>{
            {"0 VideoClient" + line + "1", "impl/tvhw/VideoDecoderClientWrapperResource.cpp"},
            {"0 VideoEncClient" + line + "2", "impl/tvhw/VideoEncoderClientWrapperResource.cpp"}}));
    EXPECT_EQ(decoder.codec->releases + encoder.codec->releases, 2);
    decoder.leave[0].set_value();
    encoder.leave[0].set_value();
    encoder.leave[1].set_value();
}

}  // namespace
