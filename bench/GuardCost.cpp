#include <pthread.h>
#include <sched.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <thread>
#include <utility>

#include "FakeCodecs.h"
#include "Figures.h"
#include "LeastWrappers.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;
constexpr std::size_t kSubjects = 16;
constexpr int kStepsTogether = 50000;
constexpr int kRoundsTogether = 150;

/// A codec whose operations take next to no time.
class QuickDecoder : public FakeDecoder {
public:
    Return<void> writeInputData(unsigned char const*, unsigned int, unsigned int) override {
        return {};
    }
    Return<BufferInfo> dequeueOutputBuffer() override { return {}; }
    Return<void> releaseOutputBuffer(BufferInfo const&) override { return {}; }
    Return<void> getInputBufferStatus(unsigned int*, unsigned int*, bool*) override { return {}; }
};

class QuickEncoder : public FakeEncoder {
public:
    Return<void> writeInputFrame(unsigned long long, unsigned char const*, unsigned int) override {
        return {};
    }
    Return<int> readOutputFrame(unsigned long long*, unsigned char*, unsigned int*,
                                PicType*) override {
        return {};
    }
};

template <typename Wrapper>
struct Call {
    char const* name;
    void (*make)(Wrapper&);
};

constexpr Call<VideoDecoderClientWrapper> kDecoderCalls[] = {
    {"writeInputData",
     [](VideoDecoderClientWrapper& decoder) {
         unsigned char const data = 0;
         benchmark::DoNotOptimize(decoder.writeInputData(&data, 1, 0).status().code());
     }},
    {"dequeueOutputBuffer",
     [](VideoDecoderClientWrapper& decoder) {
         benchmark::DoNotOptimize(decoder.dequeueOutputBuffer().value().bufferId);
     }},
    {"releaseOutputBuffer",
     [](VideoDecoderClientWrapper& decoder) {
         BufferInfo buffer;
         buffer.videoPort = 0;
         benchmark::DoNotOptimize(decoder.releaseOutputBuffer(buffer).status().code());
     }},
    {"getInputBufferStatus",
     [](VideoDecoderClientWrapper& decoder) {
         unsigned int sizes[2];
         bool ready = false;
         benchmark::DoNotOptimize(
             decoder.getInputBufferStatus(&sizes[0], &sizes[1], &ready).status().code());
     }},
};

constexpr Call<VideoEncoderClientWrapper> kEncoderCalls[] = {
    {"writeInputFrame",
     [](VideoEncoderClientWrapper& encoder) {
         unsigned char const data = 0;
         benchmark::DoNotOptimize(encoder.writeInputFrame(40, &data, 1).status().code());
     }},
    {"readOutputFrame",
     [](VideoEncoderClientWrapper& encoder) {
         unsigned long long time = 0;
         unsigned char data = 0;
         unsigned int length = 1;
         PicType type{};
         benchmark::DoNotOptimize(encoder.readOutputFrame(&time, &data, &length, &type).value());
     }},
};

/// The wrappers that are compared.
template <typename Wrapper>
struct Subject {
    std::unique_ptr<Wrapper> plain;
    std::unique_ptr<Wrapper> guarded;
    std::unique_ptr<Wrapper> least;
    std::unique_ptr<unsigned char[]> filler;
};
template <typename Wrapper>
using Subjects = std::vector<Subject<Wrapper>>;

/// How a guard falls into lines of the cache matters to contending threads: fillers of different
/// sizes let each of these fall in another way.
template <typename Wrapper, typename Guarded, typename Least, typename Codec>
Subjects<Wrapper> makeSubjects() {
    auto const codec = std::make_shared<Codec>();
    Subjects<Wrapper> subjects(kSubjects);
    std::size_t fillerSize = 0;
    for (auto& subject : subjects) {
        subject.plain = std::make_unique<Wrapper>(codec);
        subject.guarded = std::make_unique<Guarded>(codec);
        subject.least = std::make_unique<Least>(codec);
        subject.filler = std::make_unique<unsigned char[]>(fillerSize += 16);
    }
    return subjects;
}

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

/// Measures a call through one of the wrappers, made over and over by one thread, or by two
/// together; each repetition is on the next of `subjects`.
template <typename Wrapper>
void measure(std::string const& name, bool together, Subjects<Wrapper> const& subjects,
             std::unique_ptr<Wrapper> Subject<Wrapper>::*which, void (*call)(Wrapper&)) {
    auto next = [&subjects, which, round = std::size_t{0}]() mutable -> Wrapper& {
        return *(subjects[round++ % subjects.size()].*which);
    };
    if (together) {
        measureEvents(name, kRoundsTogether, [call, next]() mutable {
            Wrapper& wrapper = next();
            return secondsTogether([&] { call(wrapper); });
        });
    } else {
        measureCalls(name, [call, next](benchmark::State& state) mutable {
            Wrapper& wrapper = next();
            for ([[maybe_unused]] auto const turn : state) {
                call(wrapper);
            }
        });
    }
}

/// Measures calls of one kind of wrapper.
template <typename Wrapper, std::size_t kCalls>
Rows compare(Subjects<Wrapper> const& subjects, Call<Wrapper> const (&calls)[kCalls],
             bool together) {
    for (auto const& [name, call] : calls) {
        std::string const of = name;
        measure("plain " + of, together, subjects, &Subject<Wrapper>::plain, call);
        measure("guarded " + of, together, subjects, &Subject<Wrapper>::guarded, call);
        measure("least " + of, together, subjects, &Subject<Wrapper>::least, call);
    }
    auto const medians = runMedians();
    Rows rows;
    for (auto const& call : calls) {
        std::string const of = call.name;
        double const plain = medians.at("plain " + of);
        rows.push_back({of + (together ? ", 2 threads" : ", 1 thread"), "the least guard's", "ns",
                        medians.at("guarded " + of) - plain, medians.at("least " + of) - plain,
                        together ? 1.15 : 1.1});
    }
    return rows;
}

}  // namespace

Rows guardedCalls(bool together) {
    std::fprintf(stderr, "Measuring guarded calls, %s...\n", together ? "2 threads" : "1 thread");
    Rows rows = compare(makeSubjects<VideoDecoderClientWrapper, VideoDecoderClientWrapperResource,
                                     LeastDecoder, QuickDecoder>(),
                        kDecoderCalls, together);
    Rows const more =
        compare(makeSubjects<VideoEncoderClientWrapper, VideoEncoderClientWrapperResource,
                             LeastEncoder, QuickEncoder>(),
                kEncoderCalls, together);
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}
