// The map of settings and the two wrapper bases of the common media library.

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>

#include "Check.h"
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
    return areEqual({{"wide", map.getInt64("wide", 1), 0x0123456789ABCDEF},
                     {"its low half", map.getInt32("wide", 2), -1985229329},
                     {"negative", map.getInt64("negative", 3), -5},
                     {"again", map.getInt32("again", 4), -7},
                     {"entries", static_cast<long long>(map.size()), 3}});
}

Outcome mapAbsent() {
    constexpr std::int64_t kLeast = std::numeric_limits<std::int64_t>::min();
    InCall const in("KeyValueMap");
    KeyValueMap map;
    map.setInt32("adaptive-max-width", 8);
    map.setInt32("max-width", 9);
    return areEqual(
        {{"Max-width", map.getInt32("Max-width", -9), -9},
         {"max-widt", map.getInt64("max-widt", kLeast), kLeast},
         {"max-width2", map.getInt32("max-width2", 10), 10},
         {"adaptive-max-height", map.getInt32("adaptive-max-height", 11), 11},
         {"adaptive-max-width", map.getInt32(std::string("adaptive-max-width").c_str(), 12), 8},
         {"entries", static_cast<long long>(map.size()), 2}});
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
    return areEqual({{"map", map.getInt32("key", 0), 12},
                     {"copy", copy.getInt32("key", 0), 11},
                     {"assigned", assigned.getInt32("key", 0), 10}});
}

// What the codecs are called with: no two numbers are alike.
constexpr unsigned long long kWide = 0x0123456789ABCDEFULL;
unsigned char gBytes[4];
unsigned int gNumbers[3];
int gSizes[3];
unsigned long long gTime;
bool gIsReady;
PicType gType;
PixelInfo gPixel{21, 22, 23, 24, 25, 26, 27, {}};
auto const gNative = std::make_shared<NativeBuffer>(NativeBuffer{28, 29, 30, 31, 32, 33});
Configuration configuration() {
    Configuration result;
    result.setInt32("width", 34);
    result.setInt32("height", 1034);
    return result;
}
ColorAspect aspect() { return {35, 36, 37, 38}; }
HdrInfo hdr() { return {{39, 40, 41}, {42, 43, 44}, 45, 46, 47, 48, 49, 50}; }
BufferInfo buffer() { return {51, 52, 53, 54, 55, -1, 57, 58}; }
Image image() { return {59, 60, 61, 62, 63, 64, 65}; }

/// Values in words, to be compared.
struct Words {
    template <typename T>
    static std::string text(T const& value) {
        if constexpr (std::is_pointer_v<T>) {
            return std::to_string(reinterpret_cast<std::uintptr_t>(value));
        } else if constexpr (std::is_enum_v<T>) {
            return std::to_string(static_cast<int>(value));
        } else {
            return std::to_string(value);
        }
    }
    template <typename... T>
    static std::string list(T const&... each) {
        std::string all;
        ((all += ' ' + text(each)), ...);
        return all;
    }
    static std::string text(Configuration const& it) {
        return list(it.getInt32("width", 0), it.getInt32("height", 0), it.size());
    }
    static std::string text(ColorAspect const& it) {
        return list(it.primaries, it.transfer, it.matrix, it.fullRange);
    }
    static std::string text(HdrInfo const& it) {
        return list(it.primariesX[0], it.primariesY[2], it.whitePointX,
                    it.maxFrameAverageLightLevel);
    }
    static std::string text(FrameInfo const& it) {
        return list(it.width, it.height, it.decodedFrames, it.droppedFrames);
    }
    static std::string text(BufferInfo const& it) {
        return list(it.bufferId, it.width, it.height, it.endOfStream, it.timestampUs, it.videoPort,
                    it.resourceId, it.callingPid);
    }
    static std::string text(PixelInfo const& it) {
        return list(it.bufferId, it.colorFormat, it.width, it.length, it.timestampUs,
                    it.planes.size());
    }
    static std::string text(RenderEvent const& it) { return list(it.timestampUs, it.renderTimeNs); }
    static std::string text(std::shared_ptr<NativeBuffer> const& it) { return text(it.get()); }
    static std::string text(Image const& it) {
        return list(it.colorFormat, it.width, it.height, it.sliceHeight, it.buffer, it.bufferLength,
                    it.stride);
    }
    template <typename T>
    static std::string text(Return<T> const& result) {
        if constexpr (std::is_void_v<T>) {
            return list(result.status().code());
        } else {
            return list(result.status().code(), result.value());
        }
    }
};

std::string gCalls;  ///< Of the codec: which, and with what.
int gStatus = 0;     ///< That the codec answers; another for each slot.

template <typename T>
T answer() {
    if constexpr (std::is_arithmetic_v<T>) {
        return static_cast<T>(kWide);
    } else if constexpr (std::is_same_v<T, FrameInfo>) {
        return {66, 67, 68, 69};
    } else if constexpr (std::is_same_v<T, RenderEvent>) {
        return {70, 71};
    } else if constexpr (std::is_same_v<T, ColorAspect>) {
        return aspect();
    } else if constexpr (std::is_same_v<T, HdrInfo>) {
        return hdr();
    } else if constexpr (std::is_same_v<T, BufferInfo>) {
        return buffer();
    } else if constexpr (std::is_same_v<T, PixelInfo>) {
        return gPixel;
    } else if constexpr (std::is_same_v<T, Configuration>) {
        return configuration();
    } else {
        return gNative;
    }
}

template <typename T, typename... Arguments>
Return<T> called(char const* name, Arguments const&... arguments) {
    gCalls += name + Words::list(arguments...) + "; ";
    if constexpr (std::is_void_v<T>) {
        return Status(gStatus);
    } else {
        return {Status(gStatus), answer<T>()};
    }
}

// Names of parameters would say what the interfaces say.
class Decoder final : public IVideoDecoderClient {
public:
    Return<void> configureTunnelMode(CodecType type, Configuration const& config) override {
        return called<void>("configureTunnelMode", type, config);
    }
    Return<void> configureReferenceMode(CodecType type, Configuration const& config) override {
        return called<void>("configureReferenceMode", type, config);
    }
    Return<void> configurePixelMode(CodecType type, Configuration const& config) override {
        return called<void>("configurePixelMode", type, config);
    }
    Return<void> configureNativeBufferMode(CodecType type, Configuration const& config) override {
        return called<void>("configureNativeBufferMode", type, config);
    }
    Return<void> release() override { return called<void>("release"); }
    Return<void> writeInputData(unsigned char const* data, unsigned int length,
                                unsigned int flags) override {
        return called<void>("writeInputData", data, length, flags);
    }
    Return<void> writeInputFrame(unsigned int flags, unsigned long long timeUs,
                                 unsigned char const* data, unsigned int length) override {
        return called<void>("writeInputFrame", flags, timeUs, data, length);
    }
    Return<void> writeInputEndOfStream() override { return called<void>("writeInputEndOfStream"); }
    Return<void> writeHdrInfo(ColorAspect const& aspect, HdrInfo const& info) override {
        return called<void>("writeHdrInfo", aspect, info);
    }
    Return<void> pause() override { return called<void>("pause"); }
    Return<void> resume() override { return called<void>("resume"); }
    Return<void> step() override { return called<void>("step"); }
    Return<void> setTunnelPeek(bool enable) override {
        return called<void>("setTunnelPeek", enable);
    }
    Return<void> setSpeed(double speed) override { return called<void>("setSpeed", speed); }
    Return<FrameInfo> getFrameInfo() override { return called<FrameInfo>("getFrameInfo"); }
    Return<ColorAspect> getColorAspect() override { return called<ColorAspect>("getColorAspect"); }
    Return<HdrInfo> getHdrInfo() override { return called<HdrInfo>("getHdrInfo"); }
    Return<BufferInfo> dequeueOutputBuffer() override {
        return called<BufferInfo>("dequeueOutputBuffer");
    }
    Return<void> releaseOutputBuffer(BufferInfo const& buffer) override {
        return called<void>("releaseOutputBuffer", buffer);
    }
    Return<PixelInfo> dequeuePixelBuffer() override {
        return called<PixelInfo>("dequeuePixelBuffer");
    }
    Return<void> copyFromPixelBuffer(unsigned char* to, unsigned int length,
                                     PixelInfo& pixel) override {
        return called<void>("copyFromPixelBuffer", to, length, pixel);
    }
    Return<void> releasePixelBuffer(PixelInfo const& pixel) override {
        return called<void>("releasePixelBuffer", pixel);
    }
    Return<void> queueNativeBuffer(std::shared_ptr<NativeBuffer> buffer) override {
        return called<void>("queueNativeBuffer", buffer);
    }
    Return<std::shared_ptr<NativeBuffer>> dequeueNativeBuffer() override {
        return called<std::shared_ptr<NativeBuffer>>("dequeueNativeBuffer");
    }
    Return<RenderEvent> dequeueRenderEvent() override {
        return called<RenderEvent>("dequeueRenderEvent");
    }
    Return<void> reconfigureOutputBuffer(CodecType type, Configuration const& config) override {
        return called<void>("reconfigureOutputBuffer", type, config);
    }
    Return<void> flush() override { return called<void>("flush"); }
    Return<void> getInputBufferStatus(unsigned int* free, unsigned int* total,
                                      bool* ready) override {
        return called<void>("getInputBufferStatus", free, total, ready);
    }
    Return<Configuration> getConfiguration() override {
        return called<Configuration>("getConfiguration");
    }
    Return<std::int64_t> currentSTCTime() override {
        return called<std::int64_t>("currentSTCTime");
    }
    Return<void> testConnection() override { return called<void>("testConnection"); }
    Return<void> testInvalidConnection() override { return called<void>("testInvalidConnection"); }
    Return<void> testWriteInputData(unsigned char const* data, unsigned int length,
                                    unsigned int flags) override {
        return called<void>("testWriteInputData", data, length, flags);
    }
};

class Encoder final : public IVideoEncoderClient {
public:
    Return<void> configure(Configuration const& config) override {
        return called<void>("configure", config);
    }
    Return<void> release() override { return called<void>("release"); }
    Return<void> writeColorAspect(ColorAspect const& aspect) override {
        return called<void>("writeColorAspect", aspect);
    }
    Return<void> writeInputFrame(unsigned long long timeUs, unsigned char const* data,
                                 unsigned int length) override {
        return called<void>("writeInputFrame", timeUs, data, length);
    }
    Return<void> writeInputImage(unsigned long long timeUs, Image const& image) override {
        return called<void>("writeInputImage", timeUs, image);
    }
    Return<int> readOutputFrame(unsigned long long* timeUs, unsigned char* data,
                                unsigned int* length, PicType* type) override {
        return called<int>("readOutputFrame", timeUs, data, length, type);
    }
    Return<void> pause() override { return called<void>("pause"); }
    Return<void> resume() override { return called<void>("resume"); }
    Return<void> flush() override { return called<void>("flush"); }
    Return<void> setParameters(Configuration const& config) override {
        return called<void>("setParameters", config);
    }
    Return<void> getInputBufferStatus(unsigned int* free, unsigned int* total, int* width,
                                      int* height, int* stride) override {
        return called<void>("getInputBufferStatus", free, total, width, height, stride);
    }
    Return<Configuration> getConfiguration() override {
        return called<Configuration>("getConfiguration");
    }
};

/// A slot of the table, and its call with arguments of its own.
template <typename Client>
struct Slot {
    char const* name;
    std::string (*call)(Client&);
};

constexpr Slot<IVideoDecoderClient> kDecoderSlots[] = {
    {"configureTunnelMode",
     [](auto& codec) {
         return Words::text(codec.configureTunnelMode(CodecType::VP9, configuration()));
     }},
    {"configureReferenceMode",
     [](auto& codec) {
         return Words::text(codec.configureReferenceMode(CodecType::AV1, configuration()));
     }},
    {"configurePixelMode",
     [](auto& codec) {
         return Words::text(codec.configurePixelMode(CodecType::MPEG2, configuration()));
     }},
    {"configureNativeBufferMode",
     [](auto& codec) {
         return Words::text(codec.configureNativeBufferMode(CodecType::H263, configuration()));
     }},
    {"release", [](auto& codec) { return Words::text(codec.release()); }},
    {"writeInputData",
     [](auto& codec) { return Words::text(codec.writeInputData(gBytes, 3000000001U, 12U)); }},
    {"writeInputFrame",
     [](auto& codec) { return Words::text(codec.writeInputFrame(13U, kWide, gBytes, 14U)); }},
    {"writeInputEndOfStream",
     [](auto& codec) { return Words::text(codec.writeInputEndOfStream()); }},
    {"writeHdrInfo", [](auto& codec) { return Words::text(codec.writeHdrInfo(aspect(), hdr())); }},
    {"pause", [](auto& codec) { return Words::text(codec.pause()); }},
    {"resume", [](auto& codec) { return Words::text(codec.resume()); }},
    {"step", [](auto& codec) { return Words::text(codec.step()); }},
    {"setTunnelPeek", [](auto& codec) { return Words::text(codec.setTunnelPeek(true)); }},
    {"setSpeed", [](auto& codec) { return Words::text(codec.setSpeed(1.25)); }},
    {"getFrameInfo", [](auto& codec) { return Words::text(codec.getFrameInfo()); }},
    {"getColorAspect", [](auto& codec) { return Words::text(codec.getColorAspect()); }},
    {"getHdrInfo", [](auto& codec) { return Words::text(codec.getHdrInfo()); }},
    {"dequeueOutputBuffer", [](auto& codec) { return Words::text(codec.dequeueOutputBuffer()); }},
    {"releaseOutputBuffer",
     [](auto& codec) { return Words::text(codec.releaseOutputBuffer(buffer())); }},
    {"dequeuePixelBuffer", [](auto& codec) { return Words::text(codec.dequeuePixelBuffer()); }},
    {"copyFromPixelBuffer",
     [](auto& codec) { return Words::text(codec.copyFromPixelBuffer(gBytes, 15U, gPixel)); }},
    {"releasePixelBuffer",
     [](auto& codec) { return Words::text(codec.releasePixelBuffer(gPixel)); }},
    {"queueNativeBuffer",
     [](auto& codec) { return Words::text(codec.queueNativeBuffer(gNative)); }},
    {"dequeueNativeBuffer", [](auto& codec) { return Words::text(codec.dequeueNativeBuffer()); }},
    {"dequeueRenderEvent", [](auto& codec) { return Words::text(codec.dequeueRenderEvent()); }},
    {"reconfigureOutputBuffer",
     [](auto& codec) {
         return Words::text(codec.reconfigureOutputBuffer(CodecType::VVC, configuration()));
     }},
    {"flush", [](auto& codec) { return Words::text(codec.flush()); }},
    {"getInputBufferStatus",
     [](auto& codec) {
         return Words::text(codec.getInputBufferStatus(&gNumbers[0], &gNumbers[1], &gIsReady));
     }},
    {"getConfiguration", [](auto& codec) { return Words::text(codec.getConfiguration()); }},
    {"currentSTCTime", [](auto& codec) { return Words::text(codec.currentSTCTime()); }},
    {"testConnection", [](auto& codec) { return Words::text(codec.testConnection()); }},
    {"testInvalidConnection",
     [](auto& codec) { return Words::text(codec.testInvalidConnection()); }},
    {"testWriteInputData",
     [](auto& codec) { return Words::text(codec.testWriteInputData(gBytes, 16U, 17U)); }},
};

constexpr Slot<IVideoEncoderClient> kEncoderSlots[] = {
    {"configure", [](auto& codec) { return Words::text(codec.configure(configuration())); }},
    {"release", [](auto& codec) { return Words::text(codec.release()); }},
    {"writeColorAspect", [](auto& codec) { return Words::text(codec.writeColorAspect(aspect())); }},
    {"writeInputFrame",
     [](auto& codec) { return Words::text(codec.writeInputFrame(kWide, gBytes, 18U)); }},
    {"writeInputImage",
     [](auto& codec) { return Words::text(codec.writeInputImage(kWide, image())); }},
    {"readOutputFrame",
     [](auto& codec) {
         return Words::text(codec.readOutputFrame(&gTime, gBytes, &gNumbers[2], &gType));
     }},
    {"pause", [](auto& codec) { return Words::text(codec.pause()); }},
    {"resume", [](auto& codec) { return Words::text(codec.resume()); }},
    {"flush", [](auto& codec) { return Words::text(codec.flush()); }},
    {"setParameters",
     [](auto& codec) { return Words::text(codec.setParameters(configuration())); }},
    {"getInputBufferStatus",
     [](auto& codec) {
         return Words::text(codec.getInputBufferStatus(&gNumbers[0], &gNumbers[1], &gSizes[0],
                                                       &gSizes[1], &gSizes[2]));
     }},
    {"getConfiguration", [](auto& codec) { return Words::text(codec.getConfiguration()); }},
};

/// Calls each slot of a wrapper as its table has it, beside the codec's own.
template <typename Wrapper, typename Codec, typename Client, std::size_t count>
Outcome forwards(Slot<Client> const (&slots)[count]) {
    auto const codec = std::make_shared<Codec>();
    std::string wrong;
    {
        Wrapper const shortLived(codec);
        wrong += codec.use_count() == 2 ? "" : "the codec is not kept; ";
    }
    wrong += codec.use_count() == 1 ? "" : "the codec is kept for good; ";
    Wrapper wrapper(codec);
    Client* volatile through = &wrapper;  // Else the compiler would go past the table.
    gStatus = 100;
    for (bool const isEnd : {false, true}) {  // A codec is released last.
        for (Slot<Client> const& slot : slots) {
            if ((std::string(slot.name) == "release") != isEnd) {
                continue;
            }
            ++gStatus;
            gCalls.clear();
            std::string const direct = slot.call(*codec) + " from " + gCalls;
            gCalls.clear();
            InCall const in(slot.name);
            std::string const forwarded = slot.call(*through) + " from " + gCalls;
            if (forwarded != direct) {
                wrong.append(slot.name).append(forwarded).append("in place of").append(direct);
            }
        }
    }
    return outcome(wrong.empty(),
                   std::to_string(count) + " slots, wrong: " + (wrong.empty() ? "none" : wrong));
}

template <typename Wrapper, typename Client, std::size_t count>
Outcome refusesWithoutCodec(Slot<Client> const (&slots)[count]) {
    Wrapper wrapper(nullptr);
    Client* volatile through = &wrapper;
    std::string wrong;
    for (Slot<Client> const& slot : slots) {
        InCall const in(slot.name);
        std::string const result = slot.call(*through);
        if (result.find('-') != 1) {
            wrong.append(slot.name).append(result).append("; ");
        }
    }
    return outcome(wrong.empty(), std::to_string(count) + " slots, without an error: " +
                                      (wrong.empty() ? "none" : wrong));
}

}  // namespace

Checks libraryChecks() {
    return {
        {Level::kMust, "a-map-keeps-64-bits",
         "a KeyValueMap is given 0x0123456789ABCDEF under wide, 5, then -5 under negative and 6, "
         "then "
         "-7 under again",
         "the values, of wide also the low half, -1985229329; 3 entries", mapValues},
        {Level::kMust, "an-absent-key-reads-its-default",
         "a KeyValueMap that has adaptive-max-width 8 and max-width 9 is asked for keys that are "
         "alike, and for the first",
         "the defaults -9, the least number, 10 and 11; and 8; 2 entries", mapAbsent},
        {Level::kMust, "a-map-is-copied-whole",
         "a KeyValueMap with key 10 is copied and assigned, and then the copy set to 11, itself "
         "to 12",
         "12, 11 and 10", mapCopies},
        {Level::kMust, "the-decoder-wrapper-forwards",
         "each slot of a VideoDecoderClientWrapper is called, with its own arguments",
         "the codec's same slot, the same arguments and its result; the codec lives as long",
         [] { return forwards<VideoDecoderClientWrapper, Decoder>(kDecoderSlots); }},
        {Level::kMust, "the-encoder-wrapper-forwards",
         "each slot of a VideoEncoderClientWrapper is called, with its own arguments",
         "the codec's same slot, the same arguments and its result; the codec lives as long",
         [] { return forwards<VideoEncoderClientWrapper, Encoder>(kEncoderSlots); }},
        {Level::kShould, "a-wrapper-without-a-codec-refuses",
         "each slot of a VideoDecoderClientWrapper that has no codec is called", "an error",
         [] { return refusesWithoutCodec<VideoDecoderClientWrapper>(kDecoderSlots); }},
        {Level::kShould, "an-encoder-wrapper-without-a-codec-refuses",
         "each slot of a VideoEncoderClientWrapper that has no codec is called", "an error",
         [] { return refusesWithoutCodec<VideoEncoderClientWrapper>(kEncoderSlots); }},
    };
}

}  // namespace kvo::check
