#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

/// A data-path call, named as the codec's operation; returns the status code.
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

inline auto guardedDecoderCalls() {
    using Decoder = VideoDecoderClientWrapper;
    static unsigned char data[4] = {};
    return std::vector<GuardedCall<Decoder>>{
        guardedCall("writeInputData", &Decoder::writeInputData, data, 4U, 0U),
        guardedCall("writeInputFrame", &Decoder::writeInputFrame, 0U, 40ULL, data, 4U),
        guardedCall("writeInputEndOfStream", &Decoder::writeInputEndOfStream),
        guardedCall("writeHdrInfo", &Decoder::writeHdrInfo, ColorAspect{}, HdrInfo{}),
        guardedCall("dequeueOutputBuffer", &Decoder::dequeueOutputBuffer),
        guardedCall("releaseOutputBuffer", &Decoder::releaseOutputBuffer, BufferInfo{}),
        guardedCall("dequeuePixelBuffer", &Decoder::dequeuePixelBuffer),
        guardedCall("copyFromPixelBuffer", &Decoder::copyFromPixelBuffer, data, 4U, PixelInfo{}),
        guardedCall("releasePixelBuffer", &Decoder::releasePixelBuffer, PixelInfo{}),
        guardedCall("queueNativeBuffer", &Decoder::queueNativeBuffer, nullptr),
        guardedCall("dequeueNativeBuffer", &Decoder::dequeueNativeBuffer),
        guardedCall("dequeueRenderEvent", &Decoder::dequeueRenderEvent),
        guardedCall("flush", &Decoder::flush),
        {"getInputBufferStatus",
         [](Decoder& decoder) {
             unsigned int sizes[2];
             bool ready = false;
             return decoder.getInputBufferStatus(&sizes[0], &sizes[1], &ready).status().code();
         }},
        guardedCall("getConfiguration", &Decoder::getConfiguration),
    };
}

inline auto guardedEncoderCalls() {
    using Encoder = VideoEncoderClientWrapper;
    static unsigned char data[4] = {};
    return std::vector<GuardedCall<Encoder>>{
        guardedCall("writeColorAspect", &Encoder::writeColorAspect, ColorAspect{}),
        guardedCall("writeInputFrame", &Encoder::writeInputFrame, 40ULL, data, 4U),
        guardedCall("writeInputImage", &Encoder::writeInputImage, 40ULL, Image{}),
        {"readOutputFrame",
         [](Encoder& encoder) {
             unsigned long long time = 0;
             unsigned char byte = 0;
             unsigned int length = 1;
             PicType type{};
             return encoder.readOutputFrame(&time, &byte, &length, &type).status().code();
         }},
        guardedCall("pause", &Encoder::pause),
        guardedCall("resume", &Encoder::resume),
        guardedCall("flush", &Encoder::flush),
        guardedCall("setParameters", &Encoder::setParameters, Configuration{}),
        {"getInputBufferStatus",
         [](Encoder& encoder) {
             unsigned int counts[2];
             int sizes[3];
             return encoder
                 .getInputBufferStatus(&counts[0], &counts[1], &sizes[0], &sizes[1], &sizes[2])
                 .status()
                 .code();
         }},
        guardedCall("getConfiguration", &Encoder::getConfiguration),
    };
}

}  // namespace kvo::media::hardware
