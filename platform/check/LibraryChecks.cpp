// The map of settings and the two wrapper bases of the common media library.

#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <string>
#include <tuple>
#include <type_traits>

#include "Check.h"
#include "CodecOperations.h"
#include "kvo/media/hardware/KeyValueMap.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::check {

namespace {

using namespace kvo::media::hardware;

Outcome mapValues() {
    InCall const in("KeyValueMap");
    KeyValueMap map;
    map.setInt64("wide", 0x0123456789ABCDEF);
    map.setInt32("negative", 5);
    map.setInt32("negative", -5);
    map.setInt32("again", 6);
    map.setInt64("again", -7);
    return areRight({{"wide", map.getInt64("wide", 1), 0x0123456789ABCDEF},
                     {"its low half", map.getInt32("wide", 2), -1985229329},
                     {"negative", map.getInt64("negative", 3), -5},
                     {"again", map.getInt32("again", 4), -7},
                     {"entries", map.size(), 3}});
}

Outcome mapAbsent() {
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    InCall const in("KeyValueMap");
    KeyValueMap map;
    map.setInt32("adaptive-max-width", 8);
    map.setInt32("max-width", 9);
    return areRight(
        {{"Max-width", map.getInt32("Max-width", -9), -9},
         {"max-widt", map.getInt64("max-widt", kLeast), kLeast},
         {"max-width2", map.getInt32("max-width2", 10), 10},
         {"adaptive-max-height", map.getInt32("adaptive-max-height", 11), 11},
         {"adaptive-max-width", map.getInt32(std::string("adaptive-max-width").c_str(), 12), 8},
         {"entries", map.size(), 2}});
}

Outcome mapCopies() {
    InCall const in("KeyValueMap");
    KeyValueMap map;
    map.setInt32("key", 10);
    KeyValueMap copy(map);
    copy.setInt32("key", 11);
    KeyValueMap assigned;
    assigned = map;
    map.setInt32("key", 12);
    return areRight({{"map", map.getInt32("key", 0), 12},
                     {"copy", copy.getInt32("key", 0), 11},
                     {"assigned", assigned.getInt32("key", 0), 10}});
}

// --- The wrapper bases: what a codec gets and answers through one must be what it does without.

/// The fields of a record that has nothing but fields of 32 bits and of 64.
template <typename Record>
auto wordsOf(Record const& record) {
    static_assert(std::has_unique_object_representations_v<Record>);
    std::array<std::uint32_t, sizeof(Record) / sizeof(std::uint32_t)> words{};
    std::memcpy(words.data(), &record, sizeof(record));
    return words;
}

unsigned long long gNext = 0;                 ///< Of the samples, which all differ.
std::array<unsigned long long, 512> gMemory;  ///< That the pointers lead to.
auto const gNative = std::make_shared<NativeBuffer>();
std::string gCalls;  ///< Of the codec: which, and with what.

/// A value for an argument or a result.
template <typename T>
T sample() {
    ++gNext;
    if constexpr (std::is_pointer_v<T>) {
        return reinterpret_cast<T>(&gMemory.at(static_cast<std::size_t>(gNext)));
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<T>(1 + gNext % 3);
    } else if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(gNext) + 0.25;
    } else if constexpr (std::is_arithmetic_v<T>) {
        return static_cast<T>(0x9E3779B97F4A7C15ULL * gNext);
    } else if constexpr (std::is_same_v<T, std::shared_ptr<NativeBuffer>>) {
        return gNative;
    } else if constexpr (std::is_same_v<T, Configuration>) {
        Configuration result;
        result.setInt32("width", 634);
        result.setInt32("height", 358);
        result.setInt32("frame-rate", static_cast<std::int32_t>(gNext));
        return result;
    } else if constexpr (std::is_same_v<T, BufferInfo>) {
        return {51, 52, 53, 54, 55, -1, 57, 58};
    } else if constexpr (std::is_same_v<T, PixelInfo>) {
        return {21, 22, 23, 24, 25, 26, 27, {{28, 29, 30}}};
    } else {
        T record;
        auto words = wordsOf(record);
        std::iota(words.begin(), words.end(), static_cast<std::uint32_t>(gNext));
        std::memcpy(static_cast<void*>(&record), words.data(), sizeof(record));
        return record;
    }
}

template <typename... T>
std::string all(T const&... each);

template <typename T>
std::string shown(T const& value) {
    if constexpr (std::is_pointer_v<T>) {
        return std::to_string(reinterpret_cast<std::uintptr_t>(value));
    } else if constexpr (std::is_enum_v<T>) {
        return std::to_string(static_cast<int>(value));
    } else if constexpr (std::is_arithmetic_v<T>) {
        return std::to_string(value);
    } else if constexpr (std::is_same_v<T, std::shared_ptr<NativeBuffer>>) {
        return shown(value.get());
    } else if constexpr (std::is_same_v<T, Configuration>) {
        return all(value.getInt32("width", 0), value.getInt32("frame-rate", 0), value.size());
    } else if constexpr (std::is_same_v<T, BufferInfo>) {
        return all(value.bufferId, value.width, value.height, value.endOfStream, value.timestampUs,
                   value.videoPort, value.resourceId, value.callingPid);
    } else if constexpr (std::is_same_v<T, PixelInfo>) {
        return all(value.bufferId, value.colorFormat, value.width, value.height, value.length,
                   value.endOfStream, value.timestampUs, value.planes.size());
    } else {
        return std::apply([](auto... words) { return all(words...); }, wordsOf(value));
    }
}

template <typename... T>
std::string all(T const&... each) {
    std::string list;
    ((list += ' ' + shown(each)), ...);
    return list;
}

/// What the codec does with an argument that it may change.
void change(PixelInfo& pixel) { ++pixel.width; }
template <typename T>
void change(T const&) {}

/// Returns what answers a call of the codec's operation `name`.
template <typename T>
auto called(char const* name) {
    return [name](auto&&... arguments) -> Return<T> {
        gCalls += name + all(arguments...) + "; ";
        (change(arguments), ...);
        Status const status(static_cast<int>(++gNext));
        if constexpr (std::is_void_v<T>) {
            return status;
        } else {
            return {status, sample<T>()};
        }
    };
}

#define CALLED(Result, name, parameters, ...) \
    Return<Result> name parameters override { return called<Result>(#name)(__VA_ARGS__); }

class Decoder final : public IVideoDecoderClient {
public:
    using Client = IVideoDecoderClient;
    using Wrapper = VideoDecoderClientWrapper;

    KVO_MEDIA_DECODER_OPERATIONS(CALLED, CALLED)
    CALLED(void, release, (), )
};

class Encoder final : public IVideoEncoderClient {
public:
    using Client = IVideoEncoderClient;
    using Wrapper = VideoEncoderClientWrapper;

    KVO_MEDIA_ENCODER_OPERATIONS(CALLED, CALLED)
    CALLED(void, release, (), )
};

/// Calls `use` with the name of each operation and with the operation; release() comes last.
template <typename Codec, typename Use>
void forEachSlot(Use const& use) {
#define USE(Result, name, parameters, ...) use(#name, &Codec::Client::name);
    if constexpr (std::is_same_v<Codec, Decoder>) {
        KVO_MEDIA_DECODER_OPERATIONS(USE, USE)
    } else {
        KVO_MEDIA_ENCODER_OPERATIONS(USE, USE)
    }
    USE(void, release, (), )
}

/// Calls a slot of the table with arguments of its own. Returns the result and what the arguments
/// are then.
template <typename Client, typename T, typename... Parameters>
std::string call(Client& codec, Return<T> (Client::*operation)(Parameters...)) {
    std::tuple<std::decay_t<Parameters>...> arguments{sample<std::decay_t<Parameters>>()...};
    Return<T> const result =
        std::apply([&](auto&... each) { return (codec.*operation)(each...); }, arguments);
    std::string came = std::to_string(result.status().code());
    if constexpr (!std::is_void_v<T>) {
        came += all(result.value());
    }
    return came + std::apply([](auto&... each) { return all(each...); }, arguments);
}

/// Calls each slot of a wrapper as its table has it, beside the codec's own. Returns what was
/// wrong.
template <typename Codec>
Outcome forwards() {
    auto const codec = std::make_shared<Codec>();
    std::string wrong;
    {
        typename Codec::Wrapper const shortLived(codec);
        wrong += codec.use_count() == 2 ? "" : "the codec is not kept; ";
    }
    wrong += codec.use_count() == 1 ? "" : "the codec is kept for good; ";
    typename Codec::Wrapper wrapper(codec);
    typename Codec::Client* volatile through = &wrapper;  // Else the table would not be used.
    unsigned int slots = 0;
    forEachSlot<Codec>([&](char const* name, auto operation) {
        auto const resultOn = [&](typename Codec::Client& called) {
            gNext = 100ULL + slots;
            gCalls.clear();
            std::string const result = call(called, operation);
            return result + " from " + gCalls;
        };
        std::string const direct = resultOn(*codec);
        InCall const in(name);
        std::string const forwarded = resultOn(*through);
        wrong += forwarded == direct ? "" : name + (": " + forwarded) + "in place of " + direct;
        ++slots;
    });
    return areRight({{"slots", slots, Value::kAny}, {"wrong", !wrong.empty()}}, " " + wrong);
}

template <typename Codec>
Outcome refusesWithoutCodec() {
    typename Codec::Wrapper wrapper(nullptr);
    typename Codec::Client* volatile through = &wrapper;
    std::string wrong;
    forEachSlot<Codec>([&](char const* name, auto operation) {
        InCall const in(name);
        gNext = 0;
        std::string const result = call(*through, operation);
        wrong += result[0] == '-' ? "" : name + (" " + result) + "; ";
    });
    return outcome(wrong.empty(), "without an error: " + (wrong.empty() ? "none" : wrong));
}

}  // namespace

Checks libraryChecks() {
    return {
        {kMust, "a-map-keeps-64-bits",
         "a KeyValueMap is given 0x0123456789ABCDEF, 5, then -5, and 6, then -7",
         "the last values, of the first also the low half, -1985229329; 3 entries", mapValues},
        {kMust, "an-absent-key-reads-its-default",
         "a KeyValueMap with two keys is asked for keys that are alike, and for one it has",
         "the defaults -9, the least number, 10 and 11; and 8; 2 entries", mapAbsent},
        {kMust, "a-map-is-copied-whole",
         "a KeyValueMap with key 10 is copied and assigned, then the copy set to 11, itself to 12",
         "12, 11 and 10", mapCopies},
        {kMust, "the-decoder-wrapper-forwards",
         "each slot of a VideoDecoderClientWrapper is called, with its own arguments",
         "the codec's same slot, the same arguments and its result; the codec lives as long",
         forwards<Decoder>},
        {kMust, "the-encoder-wrapper-forwards",
         "each slot of a VideoEncoderClientWrapper is called, with its own arguments",
         "the codec's same slot, the same arguments and its result; the codec lives as long",
         forwards<Encoder>},
        {kShould, "a-wrapper-without-a-codec-refuses",
         "each slot of a VideoDecoderClientWrapper that has no codec is called", "an error",
         refusesWithoutCodec<Decoder>},
        {kShould, "an-encoder-wrapper-without-a-codec-refuses",
         "each slot of a VideoEncoderClientWrapper that has no codec is called", "an error",
         refusesWithoutCodec<Encoder>},
    };
}

}  // namespace kvo::check
