#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

/// A data-path call, named as the codec's operation; returns the status code. No argument is a
/// default one or equal to another, so that none can be lost or exchanged unseen.
template <typename Wrapper>
struct GuardedCall {
    std::string name;
    std::function<int(Wrapper&)> call;
};

template <typename Wrapper, typename Result, typename... Parameters, typename... Arguments>
GuardedCall<Wrapper> guardedCall(std::string name, Result (Wrapper::*operation)(Parameters...),
                                 Arguments... arguments) {
    return {std::move(name), [=](Wrapper& wrapper) mutable {
                return (wrapper.*operation)(arguments...).status().code();
            }};
}

inline constexpr unsigned long long kLateTimeUs = 0x1'0000'0028;  ///< Needs more than 32 bits.

inline auto guardedDecoderCalls() {
    using Decoder = VideoDecoderClientWrapper;
    static unsigned char data[4] = {};
    PixelInfo pixel;
    pixel.bufferId = 6;
    return std::vector<GuardedCall<Decoder>>{
        guardedCall("writeInputData", &Decoder::writeInputData, data, 4U, 5U),
        guardedCall("writeInputFrame", &Decoder::writeInputFrame, 5U, kLateTimeUs, data, 4U),
        guardedCall("writeInputEndOfStream", &Decoder::writeInputEndOfStream),
        guardedCall("writeHdrInfo", &Decoder::writeHdrInfo, ColorAspect{9, 16, 9, 1},
                    HdrInfo{{34000, 13250, 7500}, {}, 0, 0, 0, 0, 0, 0}),
        guardedCall("dequeueOutputBuffer", &Decoder::dequeueOutputBuffer),
        guardedCall("releaseOutputBuffer", &Decoder::releaseOutputBuffer,
                    BufferInfo{3, 0, 0, 0, 40, 1, 0, -1}),
        guardedCall("dequeuePixelBuffer", &Decoder::dequeuePixelBuffer),
        guardedCall("copyFromPixelBuffer", &Decoder::copyFromPixelBuffer, data, 4U, pixel),
        guardedCall("releasePixelBuffer", &Decoder::releasePixelBuffer, pixel),
        guardedCall("queueNativeBuffer", &Decoder::queueNativeBuffer,
                    std::make_shared<NativeBuffer>()),
        guardedCall("dequeueNativeBuffer", &Decoder::dequeueNativeBuffer),
        guardedCall("dequeueRenderEvent", &Decoder::dequeueRenderEvent),
        guardedCall("flush", &Decoder::flush),
        {"getInputBufferStatus",
         [](Decoder& decoder) {
             thread_local unsigned int sizes[2];
             thread_local bool ready = false;
             return decoder.getInputBufferStatus(&sizes[0], &sizes[1], &ready).status().code();
         }},
        guardedCall("getConfiguration", &Decoder::getConfiguration),
    };
}

inline auto guardedEncoderCalls() {
    using Encoder = VideoEncoderClientWrapper;
    static unsigned char data[4] = {};
    Configuration config;
    config.setInt32("bitrate", 1);
    return std::vector<GuardedCall<Encoder>>{
        guardedCall("writeColorAspect", &Encoder::writeColorAspect, ColorAspect{9, 16, 9, 1}),
        guardedCall("writeInputFrame", &Encoder::writeInputFrame, kLateTimeUs, data, 4U),
        guardedCall("writeInputImage", &Encoder::writeInputImage, kLateTimeUs,
                    Image{0, 2, 2, 0, 1, 16, 8}),
        {"readOutputFrame",
         [](Encoder& encoder) {
             thread_local unsigned long long time = 0;
             thread_local unsigned int length = 4;
             thread_local PicType type{};
             return encoder.readOutputFrame(&time, data, &length, &type).status().code();
         }},
        guardedCall("pause", &Encoder::pause),
        guardedCall("resume", &Encoder::resume),
        guardedCall("flush", &Encoder::flush),
        guardedCall("setParameters", &Encoder::setParameters, config),
        {"getInputBufferStatus",
         [](Encoder& encoder) {
             thread_local unsigned int counts[2];
             thread_local int sizes[3];
             return encoder
                 .getInputBufferStatus(&counts[0], &counts[1], &sizes[0], &sizes[1], &sizes[2])
                 .status()
                 .code();
         }},
        guardedCall("getConfiguration", &Encoder::getConfiguration),
    };
}

}  // namespace kvo::media::hardware
