#pragma once

#include <atomic>
#include <functional>
#include <sstream>
#include <string>

#include "CodecOperations.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

/// What the journal shows of an argument; a pointer as its address, a record as that where it lies,
/// since it is passed on without being copied.
template <typename T>
auto shown(T const& value) {
    if constexpr (std::is_pointer_v<T>) {
        return static_cast<void const*>(value);
    } else if constexpr (std::is_enum_v<T>) {
        return static_cast<int>(value);
    } else if constexpr (std::is_class_v<T>) {
        return static_cast<void const*>(&value);
    } else {
        return value;
    }
}
inline auto shown(Configuration const& config) { return config.size(); }
inline auto shown(std::shared_ptr<NativeBuffer> const& buffer) { return buffer.get(); }

/// What the fake codecs share: they note each call in the journal with its arguments, run `onCall`
/// inside it and answer every operation with `answer`. They leave what pointers name alone.
class FakeCodec {
public:
    Status answer;
    std::function<void(std::string const& operation)> onCall;
    std::atomic<int> releases{0};
    Configuration configured;      ///< The last that came.
    BufferInfo dequeued;           ///< What dequeueOutputBuffer answers.
    void const* planes = nullptr;  ///< Where those that dequeuePixelBuffer answered last lie.

protected:
    /// Returns what is to be called with the arguments of the operation.
    template <typename T>
    auto call(char const* operation) {
        return [this, operation](auto const&... arguments) -> Return<T> {
            enter(operation, arguments...);
            if constexpr (std::is_void_v<T>) {
                return answer;
            } else {
                return {answer, valueOf(static_cast<T*>(nullptr))};
            }
        };
    }

    Return<void> countRelease() {
        ++releases;
        return call<void>("release")();
    }

private:
    template <typename T>
    static T valueOf(T*) {
        return {};
    }
    BufferInfo valueOf(BufferInfo*) const { return dequeued; }
    PixelInfo valueOf(PixelInfo*) {
        PixelInfo pixel;
        pixel.planes.resize(3);
        planes = pixel.planes.data();
        return pixel;
    }
    static std::shared_ptr<NativeBuffer> valueOf(std::shared_ptr<NativeBuffer>*) {
        return std::make_shared<NativeBuffer>();
    }
    static RenderEvent valueOf(RenderEvent*) { return {40, 41}; }
    static int valueOf(int*) { return 7; }
    Configuration valueOf(Configuration*) const { return configured; }

    template <typename T>
    void keep(T const& /*argument*/) {}
    void keep(Configuration const& config) { configured = config; }

    template <typename... Arguments>
    void enter(char const* operation, Arguments const&... arguments) {
        std::ostringstream text;
        text << "codec." << operation;
        [[maybe_unused]] char const* separator = "(";
        ((text << std::exchange(separator, ", ") << shown(arguments)), ...);
        (keep(arguments), ...);
        text << (sizeof...(arguments) == 0 ? "" : ")");
        kvo::host::note(text.str());
        if (onCall) {
            onCall(operation);
        }
    }
};

#define KVO_TESTS_CALL(Result, name, parameters, ...) \
    Return<Result> name parameters override { return call<Result>(#name)(__VA_ARGS__); }

class FakeDecoder : public VideoDecoderClientWrapper, public FakeCodec {
public:
    FakeDecoder() : VideoDecoderClientWrapper(nullptr) {}
    Return<void> release() override { return countRelease(); }
    KVO_MEDIA_DECODER_OPERATIONS(KVO_TESTS_CALL, KVO_TESTS_CALL)
};

class FakeEncoder : public VideoEncoderClientWrapper, public FakeCodec {
public:
    FakeEncoder() : VideoEncoderClientWrapper(nullptr) {}
    Return<void> release() override { return countRelease(); }
    KVO_MEDIA_ENCODER_OPERATIONS(KVO_TESTS_CALL, KVO_TESTS_CALL)
};

#undef KVO_TESTS_CALL

}  // namespace kvo::media::hardware
