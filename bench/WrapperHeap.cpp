#include <algorithm>
#include <cstdio>

#include "FakeCodecs.h"
#include "Figures.h"
#include "GuardedCalls.h"
#include "Heap.h"
#include "LeastWrappers.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using namespace kvo::media::hardware;

/// Returns how many allocations the guard adds to a call, at most over all operations.
template <typename Plain, typename Guarded, typename Fake>
Row addedAllocations(std::string const& kind, std::vector<GuardedCall<Plain>> const& calls) {
    auto const codec = std::make_shared<Fake>();
    for (char const* const key : {"width", "height", "a key too long to be kept in place"}) {
        codec->configured.setInt32(key, 1);
    }
    Plain plain(codec);
    Guarded guarded(codec);
    std::size_t most = 0;
    for (auto const& [name, call] : calls) {
        std::size_t const allocations = heapUseOf([&, &make = call] { make(plain); }).allocations;
        std::size_t const inGuard = heapUseOf([&, &make = call] { make(guarded); }).allocations;
        most = std::max(most, inGuard - std::min(inGuard, allocations));
    }
    return {kind + " call adds, most of " + std::to_string(calls.size()),
            "the plain wrapper's",
            "allocations",
            static_cast<double>(most),
            0,
            1};
}

/// Returns what an idle wrapper holds beside what it must hold.
template <typename Wrapper, typename Least, typename Fake>
Rows idle(std::string const& kind) {
    auto const codec = std::make_shared<Fake>();
    std::unique_ptr<Wrapper> wrapper;
    HeapUse const use = heapUseOf([&] { wrapper = std::make_unique<Wrapper>(codec); });
    std::unique_ptr<Least> least;
    HeapUse const floor = heapUseOf([&] { least = std::make_unique<Least>(codec); });
    auto const number = [](std::size_t value) { return static_cast<double>(value); };
    return {
        {"idle " + kind, "the least members", "allocations", number(use.allocations),
         number(floor.allocations), 1},
        {"idle " + kind, "the least members", "bytes", number(use.bytes), number(floor.bytes), 1}};
}

}  // namespace

Rows wrapperHeap() {
    std::fprintf(stderr, "Counting heap allocations...\n");
    using Decoder = VideoDecoderClientWrapper;
    using Encoder = VideoEncoderClientWrapper;
    using DecoderResource = VideoDecoderClientWrapperResource;
    using EncoderResource = VideoEncoderClientWrapperResource;
    Rows rows{
        addedAllocations<Decoder, DecoderResource, FakeDecoder>("decoder", guardedDecoderCalls()),
        addedAllocations<Encoder, EncoderResource, FakeEncoder>("encoder", guardedEncoderCalls())};
    for (Rows const& more : {idle<DecoderResource, LeastDecoder, FakeDecoder>("decoder wrapper"),
                             idle<EncoderResource, LeastEncoder, FakeEncoder>("encoder wrapper")}) {
        rows.insert(rows.end(), more.begin(), more.end());
    }
    return rows;
}
