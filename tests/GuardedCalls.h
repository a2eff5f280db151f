#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "CodecOperations.h"
#include "FakeCodecs.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace kvo::media::hardware {

/// A data-path call, named as the codec's operation; returns the status code. No argument is a
/// default one or equal to another, so that none can be lost or exchanged unseen.
template <typename Wrapper>
struct GuardedCall {
    std::string name;
    std::function<int(Wrapper&)> call;
};

/// Returns the value of a call's next argument; `number` is that of the one before.
template <typename T>
T argument(std::size_t& number) {
    ++number;
    if constexpr (std::is_pointer_v<T>) {
        static std::array<std::remove_const_t<std::remove_pointer_t<T>>, 8> pointedTo{};
        return &pointedTo.at(number);
    } else if constexpr (std::is_same_v<T, Configuration>) {
        Configuration config;
        config.setInt32("bitrate", 1);
        return config;
    } else if constexpr (std::is_same_v<T, std::shared_ptr<NativeBuffer>>) {
        return std::make_shared<NativeBuffer>();
    } else if constexpr (std::is_class_v<T>) {
        return {};
    } else {
        // One that fills all bits that the type has.
        return static_cast<T>(0x1'0000'0000U + number);
    }
}

/// Adds `operation` to the calls if `Class` has one of its own, which is then a guarded one. One
/// that takes a codec type is none of the data path.
template <typename Wrapper, typename Class, typename Result, typename... Parameters>
void addIfGuarded(std::vector<GuardedCall<Wrapper>>& calls, char const* name,
                  Result (Wrapper::*operation)(Parameters...),
                  Result (Class::* /*own*/)(Parameters...)) {
    if constexpr (!std::is_same_v<Class, Wrapper> &&
                  !std::disjunction_v<std::is_same<Parameters, CodecType>...>) {
        [[maybe_unused]] std::size_t number = 2;  // The first ones are default values.
        std::tuple<std::decay_t<Parameters>...> arguments{
            argument<std::decay_t<Parameters>>(number)...};
        calls.push_back({name, [operation, arguments](Wrapper& wrapper) mutable {
                             auto const call = [&](auto&... values) {
                                 return (wrapper.*operation)(values...).status().code();
                             };
                             return std::apply(call, arguments);
                         }});
    }
}

#define KVO_TESTS_ADD(Result, name, ...) addIfGuarded(calls, #name, &Wrapper::name, &Own::name);
#define KVO_TESTS_LEAVE_OUT(...)

inline auto guardedDecoderCalls() {
    using Wrapper = VideoDecoderClientWrapper;
    using Own = VideoDecoderClientWrapperResource;
    std::vector<GuardedCall<Wrapper>> calls;
    KVO_MEDIA_DECODER_OPERATIONS(KVO_TESTS_ADD, KVO_TESTS_LEAVE_OUT)
    return calls;
}

inline auto guardedEncoderCalls() {
    using Wrapper = VideoEncoderClientWrapper;
    using Own = VideoEncoderClientWrapperResource;
    std::vector<GuardedCall<Wrapper>> calls;
    KVO_MEDIA_ENCODER_OPERATIONS(KVO_TESTS_ADD, KVO_TESTS_LEAVE_OUT)
    return calls;
}

#undef KVO_TESTS_ADD
#undef KVO_TESTS_LEAVE_OUT

}  // namespace kvo::media::hardware
