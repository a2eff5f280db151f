// The classes and records that the library exchanges with its callers and with the platform: sizes,
// places and types of members. Compiled in every build; a deliberate change of the contract is made
// here. Access control is off for this file. Virtual slots are in Slots.cpp, names in symbols.txt.
//
// Sizes and places are in bytes. One number holds everywhere; at(4, 8) is 4 with 32-bit pointers,
// as on the device, and 8 with 64-bit ones; of at(24, 32, 64) the first is the device's, with
// LLVM's runtime and Android's mutex (see BionicThreads.h), the others are with GNU's runtime.

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "SystemUtils.h"
#include "kvo/media/hardware/CodecType.h"
#include "kvo/media/hardware/PicType.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"
#include "tvhw_crm.h"
#include "tvhw_vbe.h"
#include "tvhw_vo.h"
#include "tvhw_vsc.h"

namespace kvo::media::hardware {

namespace {

constexpr std::size_t kAny = static_cast<std::size_t>(-1);
#ifdef _LIBCPP_VERSION
constexpr bool kLlvm = true;
#else
constexpr bool kLlvm = false;
#endif

constexpr std::size_t at(std::size_t narrow, std::size_t wide) {
    return sizeof(void*) == 4 ? narrow : wide;
}

/// Of LLVM's runtime with 64-bit pointers nothing is promised.
constexpr std::size_t at(std::size_t device, std::size_t narrow, std::size_t wide) {
    return kLlvm ? at(device, kAny) : at(narrow, wide);
}

constexpr bool is(std::size_t actual, std::size_t expected) {
    return expected == kAny || actual == expected;
}

}  // namespace

#define SIZE(type, bytes) static_assert(is(sizeof(type), bytes), "size of " #type)
#define MEMBER(type, member, place, ...)                                              \
    static_assert(is(offsetof(type, member), place), "place of " #type "::" #member); \
    static_assert(std::is_same_v<decltype(type::member), __VA_ARGS__>,                \
                  "type of " #type "::" #member)
// Members of one type, at most four, the first of them at a place and each of the others behind
// the one before.
#define MEMBERS_1(type, place, of, member) MEMBER(type, member, place, of)
#define MEMBERS_2(type, place, of, member, ...) \
    MEMBER(type, member, place, of);            \
    MEMBERS_1(type, (place) + sizeof(of), of, __VA_ARGS__)
#define MEMBERS_3(type, place, of, member, ...) \
    MEMBER(type, member, place, of);            \
    MEMBERS_2(type, (place) + sizeof(of), of, __VA_ARGS__)
#define MEMBERS_4(type, place, of, member, ...) \
    MEMBER(type, member, place, of);            \
    MEMBERS_3(type, (place) + sizeof(of), of, __VA_ARGS__)
#define FIFTH(_1, _2, _3, _4, name, ...) name
#define MEMBERS(type, place, of, ...) \
    FIFTH(__VA_ARGS__, MEMBERS_4, MEMBERS_3, MEMBERS_2, MEMBERS_1, )(type, place, of, __VA_ARGS__)
#define RETURN(of, bytes, place)                   \
    SIZE(Return<of>, bytes);                       \
    MEMBER(Return<of>, mStatus, at(4, 8), Status); \
    MEMBER(Return<of>, mValue, place, of)
#define BASE(type, ...) static_assert(std::is_base_of_v<__VA_ARGS__, type>, "base of " #type)
#define VALUE(type, name, number) static_assert(static_cast<int>(type::name) == (number), #name)

// --- Results and settings.
SIZE(Status, 4);
MEMBER(Status, mCode, 0, std::int32_t);
SIZE(Return<void>, at(8, 16));
MEMBER(Return<void>, mStatus, at(4, 8), Status);
SIZE(KeyValueMap, at(24, 32, 64));
MEMBER(KeyValueMap, mValues, at(4, 8), std::unordered_map<std::string, std::int64_t>);
SIZE(Configuration, at(24, 32, 64));
BASE(Configuration, KeyValueMap);

// --- Codecs: what is passed.
SIZE(CodecType, 4);
VALUE(CodecType, AVC, 1);
VALUE(CodecType, HEVC, 2);
VALUE(CodecType, VP9, 3);
VALUE(CodecType, AV1, 4);
VALUE(CodecType, MPEG4, 5);
VALUE(CodecType, MPEG2, 6);
VALUE(CodecType, H263, 7);
VALUE(CodecType, MJPEG, 8);
VALUE(CodecType, DOLBY_VISION, 9);
VALUE(CodecType, VP8, 11);
VALUE(CodecType, VVC, 12);
SIZE(PicType, 4);
VALUE(PicType, UNKNOWN, 0);
VALUE(PicType, I, 1);
VALUE(PicType, P, 2);
VALUE(PicType, B, 3);
SIZE(ColorAspect, 16);
MEMBERS(ColorAspect, 0, std::int32_t, primaries, transfer, matrix, fullRange);
SIZE(HdrInfo, 48);
MEMBER(HdrInfo, primariesX, 0, std::array<std::int32_t, 3>);
MEMBER(HdrInfo, primariesY, 12, std::array<std::int32_t, 3>);
MEMBERS(HdrInfo, 24, std::int32_t, whitePointX, whitePointY, maxMasteringLuminance);
MEMBERS(HdrInfo, 36, std::int32_t, minMasteringLuminance, maxContentLightLevel,
        maxFrameAverageLightLevel);
SIZE(FrameInfo, 16);
MEMBERS(FrameInfo, 0, std::int32_t, width, height);
MEMBERS(FrameInfo, 8, std::uint32_t, decodedFrames, droppedFrames);
SIZE(BufferInfo, 40);
MEMBERS(BufferInfo, 0, std::int32_t, bufferId, width, height);
MEMBER(BufferInfo, endOfStream, 12, std::uint32_t);
MEMBER(BufferInfo, timestampUs, 16, std::uint64_t);
MEMBERS(BufferInfo, 24, std::int32_t, videoPort, resourceId, callingPid);
SIZE(PixelInfo::Plane, 12);
MEMBERS(PixelInfo::Plane, 0, std::uint32_t, offset, stride, lines);
SIZE(PixelInfo, at(48, 56));
MEMBERS(PixelInfo, 0, std::int32_t, bufferId, colorFormat, width, height);
MEMBERS(PixelInfo, 16, std::uint32_t, length, endOfStream);
MEMBER(PixelInfo, timestampUs, 24, std::uint64_t);
MEMBER(PixelInfo, planes, 32, std::vector<PixelInfo::Plane>);
SIZE(RenderEvent, 16);
MEMBERS(RenderEvent, 0, std::uint64_t, timestampUs, renderTimeNs);
SIZE(NativeBuffer, 32);
MEMBERS(NativeBuffer, 0, std::int32_t, handle, width, height, stride);
MEMBER(NativeBuffer, colorFormat, 16, std::int32_t);
MEMBER(NativeBuffer, timestampUs, 24, std::uint64_t);
SIZE(Image, 28);
MEMBERS(Image, 0, std::int32_t, colorFormat, width, height, sliceHeight);
MEMBER(Image, buffer, 16, std::uint32_t);
MEMBERS(Image, 20, std::int32_t, bufferLength, stride);

// --- Codecs: what is returned.
RETURN(std::int32_t, at(12, 16), at(8, 12));
RETURN(std::int64_t, at(16, 24), at(8, 16));
RETURN(FrameInfo, at(24, 32), at(8, 12));
RETURN(ColorAspect, at(24, 32), at(8, 12));
RETURN(HdrInfo, at(56, 64), at(8, 12));
RETURN(BufferInfo, at(48, 56), at(8, 16));
RETURN(PixelInfo, at(56, 72), at(8, 16));
RETURN(RenderEvent, at(24, 32), at(8, 16));
RETURN(std::shared_ptr<NativeBuffer>, at(16, 32), at(8, 16));
RETURN(Configuration, at(32, 40, 80), at(8, 16));

// --- The decoder.
SIZE(IVideoDecoderClient, at(4, 8));
SIZE(VideoDecoderClientWrapper, at(12, 24));
BASE(VideoDecoderClientWrapper, IVideoDecoderClient);
MEMBER(VideoDecoderClientWrapper, mClient, at(4, 8), std::shared_ptr<IVideoDecoderClient>);
SIZE(VideoDecoderClientWrapperResource, at(20, 40));
BASE(VideoDecoderClientWrapperResource, VideoDecoderClientWrapper);
MEMBER(VideoDecoderClientWrapperResource, mImpl, at(12, 24),
       std::shared_ptr<VideoDecoderClientWrapperResource::Impl>);

// --- The encoder.
SIZE(IVideoEncoderClient, at(4, 8));
SIZE(VideoEncoderClientWrapper, at(12, 24));
BASE(VideoEncoderClientWrapper, IVideoEncoderClient);
MEMBER(VideoEncoderClientWrapper, mClient, at(4, 8), std::shared_ptr<IVideoEncoderClient>);
SIZE(VideoEncoderClientWrapperResource, at(20, 40));
BASE(VideoEncoderClientWrapperResource, VideoEncoderClientWrapper);
MEMBER(VideoEncoderClientWrapperResource, mImpl, at(12, 24),
       std::shared_ptr<VideoEncoderClientWrapperResource::Impl>);

// --- The scaler.
SIZE(Region, 24);
MEMBERS(Region, 0, std::uint32_t, left, top, right);
MEMBERS(Region, 12, std::uint32_t, bottom, refWidth, refHeight);
SIZE(IVideoScalerClient::LayerInfo, 72);
MEMBER(IVideoScalerClient::LayerInfo, type, 0, std::uint32_t);
MEMBER(IVideoScalerClient::LayerInfo, port, 4, std::uint8_t);
MEMBER(IVideoScalerClient::LayerInfo, frameRate, 8, std::uint32_t);
MEMBER(IVideoScalerClient::LayerInfo, adaptive, 12, std::int32_t);
MEMBER(IVideoScalerClient::LayerInfo, sourceMaxSize, 16, std::uint32_t);
MEMBER(IVideoScalerClient::LayerInfo, inputRegion, 20, Region);
MEMBER(IVideoScalerClient::LayerInfo, outputRegion, 44, Region);
MEMBER(IVideoScalerClient::LayerInfo, zOrder, 68, std::int32_t);
SIZE(IVideoScalerClient::Callback, at(4, 8));
SIZE(IVideoScalerClient, at(12, 24));
BASE(IVideoScalerClient, std::enable_shared_from_this<IVideoScalerClient>);
SIZE(VideoScalerClientTvhwImpl, at(112, 132, 168));
BASE(VideoScalerClientTvhwImpl, IVideoScalerClient);
MEMBER(VideoScalerClientTvhwImpl, mIndex, at(12, 24), std::uint32_t const);
MEMBER(VideoScalerClientTvhwImpl, mOpened, at(16, 28), bool);
MEMBER(VideoScalerClientTvhwImpl, mConnected, at(17, 29), std::atomic<bool>);
MEMBER(VideoScalerClientTvhwImpl, mLayerInfo, at(20, 32), IVideoScalerClient::LayerInfo);
MEMBER(VideoScalerClientTvhwImpl, mPanelWidth, at(92, 104), std::uint32_t);
MEMBER(VideoScalerClientTvhwImpl, mPanelHeight, at(96, 108), std::uint32_t);
MEMBER(VideoScalerClientTvhwImpl, mMutex, at(100, 112), std::mutex);
MEMBER(VideoScalerClientTvhwImpl, mCallback, at(104, 124, 152),
       std::weak_ptr<IVideoScalerClient::Callback>);

// --- The image sink.
SIZE(IImageSink, at(4, 8));
SIZE(ImageSinkTvhwImpl, at(8, 16));
BASE(ImageSinkTvhwImpl, IImageSink);
MEMBER(ImageSinkTvhwImpl, mOpened, at(4, 8), bool);

// --- The resource client.
SIZE(ResourceClient::Reclaimable, at(4, 8));
SIZE(ReferenceHolder, at(16, 48, 88));
MEMBER(ReferenceHolder, mMutex, 0, std::mutex);
MEMBER(ReferenceHolder, mReferences, at(4, 24, 40), std::map<std::uint32_t, std::weak_ptr<void>>);
SIZE(ResourceClient, at(28, 56));
BASE(ResourceClient, std::enable_shared_from_this<ResourceClient>);
MEMBER(ResourceClient, mCrmClient, at(12, 24), TVHW_CRM_HANDLE);
MEMBER(ResourceClient, mReclaimable, at(16, 32), std::weak_ptr<ResourceClient::Reclaimable>);
MEMBER(ResourceClient, mReferenceId, at(24, 48), std::uint32_t);

// --- The platform: utilities.
SIZE(kvo::media::platform::SystemUtils, at(4, 8));

// --- The platform: resource manager.
SIZE(_TVHW_CRM_VIDEO_PORT, 4);
VALUE(_TVHW_CRM_VIDEO_PORT, TVHW_CRM_VIDEO_PORT_NONE, 0);
VALUE(_TVHW_CRM_VIDEO_PORT, TVHW_CRM_VIDEO_PORT_0, 1);
VALUE(_TVHW_CRM_VIDEO_PORT, TVHW_CRM_VIDEO_PORT_1, 2);
VALUE(_TVHW_CRM_VIDEO_PORT, TVHW_CRM_VIDEO_PORT_ALL, 3);
SIZE(TVHW_CRM_ACQUIRE_PARAM, 64);
MEMBERS(TVHW_CRM_ACQUIRE_PARAM, 0, std::int32_t, codecType, width, height);
MEMBERS(TVHW_CRM_ACQUIRE_PARAM, 12, std::int32_t, frameRate, isEncoder, extraFlag);
MEMBER(TVHW_CRM_ACQUIRE_PARAM, reserved, 24, std::int32_t[10]);
SIZE(TVHW_CRM_RESOURCE, 64);
MEMBERS(TVHW_CRM_RESOURCE, 0, std::int32_t, core, videoPort);
MEMBER(TVHW_CRM_RESOURCE, reserved1, 8, std::int32_t[2]);
MEMBERS(TVHW_CRM_RESOURCE, 16, std::int32_t, maxWidth, maxHeight);
MEMBER(TVHW_CRM_RESOURCE, reserved2, 24, std::int32_t[10]);

// --- The platform: scaler and back end.
SIZE(TVHW_VSC_SOURCE, 8);
MEMBER(TVHW_VSC_SOURCE, type, 0, std::int32_t);
MEMBERS(TVHW_VSC_SOURCE, 4, std::uint8_t, reserved1, port);
MEMBER(TVHW_VSC_SOURCE, reserved2, 6, std::uint8_t[2]);
SIZE(TVHW_VSC_WINDOW, 8);
MEMBERS(TVHW_VSC_WINDOW, 0, std::uint16_t, x, y, w, h);
SIZE(TVHW_VBE_PANEL_SIZE, 8);
MEMBERS(TVHW_VBE_PANEL_SIZE, 0, std::int32_t, width, height);

// --- The platform: video output.
SIZE(TVHW_VO_CONFIG_PARAM, 28);
MEMBER(TVHW_VO_CONFIG_PARAM, mode, 0, std::int32_t);
MEMBER(TVHW_VO_CONFIG_PARAM, reserved, 4, std::int32_t[3]);
MEMBERS(TVHW_VO_CONFIG_PARAM, 16, std::int32_t, width, height, pixelFormat);
SIZE(TVHW_VO_PICTURE_PARAM, 40);
MEMBER(TVHW_VO_PICTURE_PARAM, buffer, 0, std::uint32_t);
MEMBER(TVHW_VO_PICTURE_PARAM, reserved, 4, std::int32_t[2]);
MEMBERS(TVHW_VO_PICTURE_PARAM, 12, std::int32_t, bufferLength, stride, x, y);
MEMBERS(TVHW_VO_PICTURE_PARAM, 28, std::int32_t, width, height, pixelFormat);

}  // namespace kvo::media::hardware
