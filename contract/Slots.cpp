// The order of the virtual operations of the classes that the library exchanges with its callers
// and with the platform, and their types. A deliberate change of the contract is made here. A class
// that derives from one of these adds none: that shows in the size of its vtable, in symbols.txt.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "SystemUtils.h"
#include "kvo/media/hardware/IImageSink.h"
#include "kvo/media/hardware/IVideoDecoderClient.h"
#include "kvo/media/hardware/IVideoEncoderClient.h"
#include "kvo/media/hardware/IVideoScalerClient.h"
#include "tvhw/ResourceClient.h"

namespace kvo::media::hardware {

namespace {

/// What a pointer to a virtual operation holds in the C++ ABI: twice the place of the slot, in
/// bytes and plus 1 where the processor's functions may lie at odd addresses, else just plus 1.
template <typename Type, typename Class>
std::size_t slot(Type Class::*operation) {
    std::uintptr_t words[2];
    static_assert(sizeof(operation) == sizeof(words));
    std::memcpy(words, &operation, sizeof(words));
#ifdef __arm__
    return words[0] / sizeof(void*);
#else
    return (words[0] - 1) / sizeof(void*);
#endif
}

template <typename Class, typename... Slots>
void expectSlots(std::size_t first, Slots... slots) {
    for (std::size_t const place : {slots...}) {
        EXPECT_EQ(place, first++);
    }
}

TEST(Contract, VirtualOperationsKeepTheirSlots) {
    expectSlots<IVideoDecoderClient>(
        2,
        slot<Return<void>(CodecType, Configuration const&)>(
            &IVideoDecoderClient::configureTunnelMode),
        slot<Return<void>(CodecType, Configuration const&)>(
            &IVideoDecoderClient::configureReferenceMode),
        slot<Return<void>(CodecType, Configuration const&)>(
            &IVideoDecoderClient::configurePixelMode),
        slot<Return<void>(CodecType, Configuration const&)>(
            &IVideoDecoderClient::configureNativeBufferMode),
        slot<Return<void>()>(&IVideoDecoderClient::release),
        slot<Return<void>(std::uint8_t const*, std::uint32_t, std::uint32_t)>(
            &IVideoDecoderClient::writeInputData),
        slot<Return<void>(std::uint32_t, unsigned long long, std::uint8_t const*, std::uint32_t)>(
            &IVideoDecoderClient::writeInputFrame),
        slot<Return<void>()>(&IVideoDecoderClient::writeInputEndOfStream),
        slot<Return<void>(ColorAspect const&, HdrInfo const&)>(&IVideoDecoderClient::writeHdrInfo),
        slot<Return<void>()>(&IVideoDecoderClient::pause),
        slot<Return<void>()>(&IVideoDecoderClient::resume),
        slot<Return<void>()>(&IVideoDecoderClient::step),
        slot<Return<void>(bool)>(&IVideoDecoderClient::setTunnelPeek),
        slot<Return<void>(double)>(&IVideoDecoderClient::setSpeed),
        slot<Return<FrameInfo>()>(&IVideoDecoderClient::getFrameInfo),
        slot<Return<ColorAspect>()>(&IVideoDecoderClient::getColorAspect),
        slot<Return<HdrInfo>()>(&IVideoDecoderClient::getHdrInfo),
        slot<Return<BufferInfo>()>(&IVideoDecoderClient::dequeueOutputBuffer),
        slot<Return<void>(BufferInfo const&)>(&IVideoDecoderClient::releaseOutputBuffer),
        slot<Return<PixelInfo>()>(&IVideoDecoderClient::dequeuePixelBuffer),
        slot<Return<void>(std::uint8_t*, std::uint32_t, PixelInfo&)>(
            &IVideoDecoderClient::copyFromPixelBuffer),
        slot<Return<void>(PixelInfo const&)>(&IVideoDecoderClient::releasePixelBuffer),
        slot<Return<void>(std::shared_ptr<NativeBuffer>)>(&IVideoDecoderClient::queueNativeBuffer),
        slot<Return<std::shared_ptr<NativeBuffer>>()>(&IVideoDecoderClient::dequeueNativeBuffer),
        slot<Return<RenderEvent>()>(&IVideoDecoderClient::dequeueRenderEvent),
        slot<Return<void>(CodecType, Configuration const&)>(
            &IVideoDecoderClient::reconfigureOutputBuffer),
        slot<Return<void>()>(&IVideoDecoderClient::flush),
        slot<Return<void>(std::uint32_t*, std::uint32_t*, bool*)>(
            &IVideoDecoderClient::getInputBufferStatus),
        slot<Return<Configuration>()>(&IVideoDecoderClient::getConfiguration),
        slot<Return<std::int64_t>()>(&IVideoDecoderClient::currentSTCTime),
        slot<Return<void>()>(&IVideoDecoderClient::testConnection),
        slot<Return<void>()>(&IVideoDecoderClient::testInvalidConnection),
        slot<Return<void>(std::uint8_t const*, std::uint32_t, std::uint32_t)>(
            &IVideoDecoderClient::testWriteInputData));
    expectSlots<IVideoEncoderClient>(
        2, slot<Return<void>(Configuration const&)>(&IVideoEncoderClient::configure),
        slot<Return<void>()>(&IVideoEncoderClient::release),
        slot<Return<void>(ColorAspect const&)>(&IVideoEncoderClient::writeColorAspect),
        slot<Return<void>(unsigned long long, std::uint8_t const*, std::uint32_t)>(
            &IVideoEncoderClient::writeInputFrame),
        slot<Return<void>(unsigned long long, Image const&)>(&IVideoEncoderClient::writeInputImage),
        slot<Return<std::int32_t>(unsigned long long*, std::uint8_t*, std::uint32_t*, PicType*)>(
            &IVideoEncoderClient::readOutputFrame),
        slot<Return<void>()>(&IVideoEncoderClient::pause),
        slot<Return<void>()>(&IVideoEncoderClient::resume),
        slot<Return<void>()>(&IVideoEncoderClient::flush),
        slot<Return<void>(Configuration const&)>(&IVideoEncoderClient::setParameters),
        slot<Return<void>(std::uint32_t*, std::uint32_t*, std::int32_t*, std::int32_t*,
                          std::int32_t*)>(&IVideoEncoderClient::getInputBufferStatus),
        slot<Return<Configuration>()>(&IVideoEncoderClient::getConfiguration));
    expectSlots<IVideoScalerClient::Callback>(
        2, slot<void(Region const&)>(&IVideoScalerClient::Callback::onBbdRegion));
    expectSlots<IVideoScalerClient>(
        2,
        slot<void(std::shared_ptr<IVideoScalerClient::Callback>)>(&IVideoScalerClient::setCallback),
        slot<void(IVideoScalerClient::LayerInfo)>(&IVideoScalerClient::connect),
        slot<void()>(&IVideoScalerClient::disconnect),
        slot<void(IVideoScalerClient::LayerInfo)>(&IVideoScalerClient::updateRegion));
    expectSlots<IImageSink>(2, slot<Return<void>(Configuration const&)>(&IImageSink::configure),
                            slot<Return<void>(Image const&)>(&IImageSink::displayPicture),
                            slot<Return<void>()>(&IImageSink::close));
    expectSlots<ResourceClient::Reclaimable>(2,
                                             slot<bool()>(&ResourceClient::Reclaimable::reclaim));
    expectSlots<kvo::media::platform::SystemUtils>(
        0,
        slot<std::int32_t(char const*, std::int32_t)>(
            &kvo::media::platform::SystemUtils::getIntProperty),
        slot<bool(std::int32_t)>(&kvo::media::platform::SystemUtils::allowsForcedAcquire),
        slot<void(std::int32_t)>(&kvo::media::platform::SystemUtils::onProcessReclaimed),
        slot<void(std::int32_t)>(&kvo::media::platform::SystemUtils::onReclaimedClientReleased));
}

}  // namespace

}  // namespace kvo::media::hardware
