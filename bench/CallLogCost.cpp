#include <cstdio>

#include "FakeCodecs.h"
#include "Figures.h"
#include "host/HostPlatform.h"

namespace {

using namespace kvo::media::hardware;

class QuickDecoder : public FakeDecoder {
public:
    Return<void> writeInputEndOfStream() override { return {}; }
};

/// A wrapper that knows no log.
class Unlogged : public VideoDecoderClientWrapper {
public:
    explicit Unlogged(std::shared_ptr<IVideoDecoderClient> client)
        : VideoDecoderClientWrapper(nullptr), mCodec(std::move(client)) {}

    __attribute__((noinline)) Return<void> writeInputEndOfStream() override {
        if (mCodec == nullptr) {
            return Status(-22);
        }
        return mCodec->writeInputEndOfStream();
    }

private:
    std::shared_ptr<IVideoDecoderClient> mCodec;
};

void measure(char const* name, VideoDecoderClientWrapper& wrapper) {
    auto* const called = &wrapper;
    benchmark::DoNotOptimize(called);
    measureCalls(name, [called](benchmark::State& state) {
        for ([[maybe_unused]] auto const turn : state) {
            benchmark::DoNotOptimize(called->writeInputEndOfStream().status().code());
        }
    });
}

}  // namespace

Rows callLogCost() {
    std::fprintf(stderr, "Measuring calls that are not logged...\n");
    auto const codec = std::make_shared<QuickDecoder>();
    VideoDecoderClientWrapper wrapper(codec);
    Unlogged unlogged(codec);
    measure("wrapper", wrapper);
    measure("unlogged", unlogged);
    auto const medians = runMedians();
    return {{"codec call, level 4 off", "a wrapper without a log", "ns", medians.at("wrapper"),
             medians.at("unlogged"), 1.2}};
}
