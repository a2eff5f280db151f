#pragma once

#include <functional>
#include <string>
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

inline auto guardedDecoderCalls() {
    using Decoder = VideoDecoderClientWrapper;
    static unsigned char const kData[4] = {};
    return std::vector<GuardedCall<Decoder>>{
        {"writeInputData",
         [](Decoder& d) { return d.writeInputData(kData, 4, 0).status().code(); }},
        {"writeInputFrame",
         [](Decoder& d) { return d.writeInputFrame(0, 40, kData, 4).status().code(); }},
        {"writeInputEndOfStream",
         [](Decoder& d) { return d.writeInputEndOfStream().status().code(); }},
        {"writeHdrInfo", [](Decoder& d) { return d.writeHdrInfo({}, {}).status().code(); }},
        {"dequeueOutputBuffer", [](Decoder& d) { return d.dequeueOutputBuffer().status().code(); }},
        {"releaseOutputBuffer",
         [](Decoder& d) { return d.releaseOutputBuffer({}).status().code(); }},
        {"dequeuePixelBuffer", [](Decoder& d) { return d.dequeuePixelBuffer().status().code(); }},
        {"copyFromPixelBuffer",
         [](Decoder& d) {
             PixelInfo pixel;
             unsigned char byte = 0;
             return d.copyFromPixelBuffer(&byte, 1, pixel).status().code();
         }},
        {"releasePixelBuffer", [](Decoder& d) { return d.releasePixelBuffer({}).status().code(); }},
        {"queueNativeBuffer",
         [](Decoder& d) {
             return d.queueNativeBuffer(std::make_shared<NativeBuffer>()).status().code();
         }},
        {"dequeueNativeBuffer", [](Decoder& d) { return d.dequeueNativeBuffer().status().code(); }},
        {"dequeueRenderEvent", [](Decoder& d) { return d.dequeueRenderEvent().status().code(); }},
        {"flush", [](Decoder& d) { return d.flush().status().code(); }},
        {"getInputBufferStatus",
         [](Decoder& d) {
             unsigned int sizes[2];
             bool ready = false;
             return d.getInputBufferStatus(&sizes[0], &sizes[1], &ready).status().code();
         }},
        {"getConfiguration", [](Decoder& d) { return d.getConfiguration().status().code(); }},
    };
}

inline auto guardedEncoderCalls() {
    using Encoder = VideoEncoderClientWrapper;
    static unsigned char const kData[4] = {};
    return std::vector<GuardedCall<Encoder>>{
        {"writeColorAspect", [](Encoder& e) { return e.writeColorAspect({}).status().code(); }},
        {"writeInputFrame",
         [](Encoder& e) { return e.writeInputFrame(40, kData, 4).status().code(); }},
        {"writeInputImage", [](Encoder& e) { return e.writeInputImage(40, {}).status().code(); }},
        {"readOutputFrame",
         [](Encoder& e) {
             unsigned long long time = 0;
             unsigned char byte = 0;
             unsigned int length = 1;
             PicType type{};
             return e.readOutputFrame(&time, &byte, &length, &type).status().code();
         }},
        {"pause", [](Encoder& e) { return e.pause().status().code(); }},
        {"resume", [](Encoder& e) { return e.resume().status().code(); }},
        {"flush", [](Encoder& e) { return e.flush().status().code(); }},
        {"setParameters", [](Encoder& e) { return e.setParameters({}).status().code(); }},
        {"getInputBufferStatus",
         [](Encoder& e) {
             unsigned int counts[2];
             int sizes[3];
             return e.getInputBufferStatus(&counts[0], &counts[1], &sizes[0], &sizes[1], &sizes[2])
                 .status()
                 .code();
         }},
        {"getConfiguration", [](Encoder& e) { return e.getConfiguration().status().code(); }},
    };
}

}  // namespace kvo::media::hardware
