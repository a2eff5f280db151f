#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <future>
#include <mutex>
#include <thread>
#include <utility>

#include "FakeCodecs.h"
#include "Figures.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
using Decoder = VideoDecoderClientWrapper;

constexpr std::size_t kSubjects = 8;
constexpr int kStepsTogether = 200000;
constexpr int kRoundsTogether = 200;

/// A codec whose operations take next to no time.
class QuickDecoder : public FakeDecoder {
public:
    Return<void> writeInputData(unsigned char const*, unsigned int, unsigned int) override {
        return {};
    }
    Return<BufferInfo> dequeueOutputBuffer() override { return {}; }
    Return<void> getInputBufferStatus(unsigned int*, unsigned int*, bool*) override { return {}; }
};

struct Call {
    char const* name;
    void (*make)(Decoder&);
};

constexpr Call kCalls[] = {
    {"writeInputData",
     [](Decoder& decoder) {
         unsigned char const data = 0;
         benchmark::DoNotOptimize(decoder.writeInputData(&data, 1, 0).status().code());
     }},
    {"dequeueOutputBuffer",
     [](Decoder& decoder) {
         benchmark::DoNotOptimize(decoder.dequeueOutputBuffer().value().bufferId);
     }},
    {"getInputBufferStatus",
     [](Decoder& decoder) {
         unsigned int sizes[2];
         bool ready = false;
         benchmark::DoNotOptimize(
             decoder.getInputBufferStatus(&sizes[0], &sizes[1], &ready).status().code());
     }},
};

/// The least steps of a guard of this kind.
class Floor {
public:
    void enter() {
        std::lock_guard<std::mutex> const lock(mMutex);
        ++mCount;
    }

    void leave() {
        std::lock_guard<std::mutex> const lock(mMutex);
        --mCount;
        mCondition.notify_all();
    }

private:
    std::mutex mMutex;
    std::condition_variable mCondition;
    std::atomic<unsigned int> mCount{0};
};

/// What is measured. How the guard falls into lines of the cache matters to contending threads, so
/// there are several of these, each 16 bytes further into a line than the one before.
struct Subject {
    explicit Subject(std::shared_ptr<IVideoDecoderClient> const& codec)
        : plain(codec), guarded(codec) {}

    Decoder plain;
    VideoDecoderClientWrapperResource guarded;
    Floor floor;
    unsigned char shift[16] = {};
};
using Subjects = std::vector<std::unique_ptr<Subject>>;

/// Keeps this thread on the processor of this number, where it may run there: threads that take
/// turns on one do not contend.
void runOn(int processor) {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<std::size_t>(processor), &processors);
    static_cast<void>(pthread_setaffinity_np(pthread_self(), sizeof(processors), &processors));
}

/// Lets two threads make `step` kStepsTogether times each. Returns the seconds from the first start
/// to the last end, per step.
template <typename Step>
double secondsTogether(Step const& step) {
    using Clock = std::chrono::steady_clock;
    std::atomic<int> missing{2};
    auto const work = [&](int processor) {
        runOn(processor);
        --missing;
        while (missing > 0) {
            std::this_thread::yield();
        }
        Clock::time_point const begin = Clock::now();
        for (int turn = 0; turn < kStepsTogether; ++turn) {
            step();
        }
        return std::make_pair(begin, Clock::now());
    };
    auto one = std::async(std::launch::async, work, 0);
    auto other = std::async(std::launch::async, work, 1);
    auto const [oneBegin, oneEnd] = one.get();
    auto const [otherBegin, otherEnd] = other.get();
    std::chrono::duration<double> const taken =
        std::max(oneEnd, otherEnd) - std::min(oneBegin, otherBegin);
    return taken.count() / (2 * kStepsTogether);
}

/// Measures what one `step` takes, made over and over by one thread, or by two together; each
/// repetition is on the next of `subjects`.
template <typename Step>
void measure(std::string const& name, bool together, Subjects const& subjects, Step step) {
    if (together) {
        measureEvents(name, kRoundsTogether, [step, &subjects, round = std::size_t{0}]() mutable {
            Subject& subject = *subjects[round++ % subjects.size()];
            return secondsTogether([&] { step(subject); });
        });
    } else {
        measureCalls(name,
                     [step, &subjects, round = std::size_t{0}](benchmark::State& state) mutable {
                         Subject& subject = *subjects[round++ % subjects.size()];
                         for ([[maybe_unused]] auto const turn : state) {
                             step(subject);
                         }
                     });
    }
}

}  // namespace

Rows guardedCalls(bool together) {
    std::string const threads = together ? ", 2 threads" : ", 1 thread";
    std::fprintf(stderr, "Measuring guarded calls%s...\n", threads.c_str());
    Subjects subjects(kSubjects);
    auto const codec = std::make_shared<QuickDecoder>();
    for (auto& subject : subjects) {
        subject = std::make_unique<Subject>(codec);
    }
    measure("floor", together, subjects, [](Subject& subject) {
        subject.floor.enter();
        subject.floor.leave();
    });
    for (Call const& call : kCalls) {
        std::string const name = call.name;
        auto const make = call.make;
        measure("plain " + name, together, subjects,
                [make](Subject& subject) { make(subject.plain); });
        measure("guarded " + name, together, subjects,
                [make](Subject& subject) { make(subject.guarded); });
        measure("floor around " + name, together, subjects, [make](Subject& subject) {
            subject.floor.enter();
            make(subject.plain);
            subject.floor.leave();
        });
    }

    auto const medians = runMedians();
    double const target = together ? 1.2 : 1.15;
    Rows rows;
    for (Call const& call : kCalls) {
        std::string const name = call.name;
        double const plainCall = medians.at("plain " + name);
        double const added = medians.at("guarded " + name) - plainCall;
        rows.push_back({name + threads, "least steps", "ns", added, medians.at("floor"), target});
        rows.push_back({name + threads, "the same around the plain call", "ns", added,
                        medians.at("floor around " + name) - plainCall, target});
    }
    return rows;
}
