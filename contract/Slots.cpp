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
    using Decoder = IVideoDecoderClient;
    using Encoder = IVideoEncoderClient;
    using Scaler = IVideoScalerClient;
    using Callback = IVideoScalerClient::Callback;
    using Reclaimable = ResourceClient::Reclaimable;
    using Utils = kvo::media::platform::SystemUtils;
    using Config = Configuration const&;
    expectSlots<IVideoDecoderClient>(
        2, slot<Return<void>(CodecType, Config)>(&Decoder::configureTunnelMode),
        slot<Return<void>(CodecType, Config)>(&Decoder::configureReferenceMode),
        slot<Return<void>(CodecType, Config)>(&Decoder::configurePixelMode),
        slot<Return<void>(CodecType, Config)>(&Decoder::configureNativeBufferMode),
        slot<Return<void>()>(&Decoder::release),
        slot<Return<void>(std::uint8_t const*, std::uint32_t, std::uint32_t)>(
            &Decoder::writeInputData),
        slot<Return<void>(std::uint32_t, unsigned long long, std::uint8_t const*, std::uint32_t)>(
            &Decoder::writeInputFrame),
        slot<Return<void>()>(&Decoder::writeInputEndOfStream),
        slot<Return<void>(ColorAspect const&, HdrInfo const&)>(&Decoder::writeHdrInfo),
        slot<Return<void>()>(&Decoder::pause), slot<Return<void>()>(&Decoder::resume),
        slot<Return<void>()>(&Decoder::step), slot<Return<void>(bool)>(&Decoder::setTunnelPeek),
        slot<Return<void>(double)>(&Decoder::setSpeed),
        slot<Return<FrameInfo>()>(&Decoder::getFrameInfo),
        slot<Return<ColorAspect>()>(&Decoder::getColorAspect),
        slot<Return<HdrInfo>()>(&Decoder::getHdrInfo),
        slot<Return<BufferInfo>()>(&Decoder::dequeueOutputBuffer),
        slot<Return<void>(BufferInfo const&)>(&Decoder::releaseOutputBuffer),
        slot<Return<PixelInfo>()>(&Decoder::dequeuePixelBuffer),
        slot<Return<void>(std::uint8_t*, std::uint32_t, PixelInfo&)>(&Decoder::copyFromPixelBuffer),
        slot<Return<void>(PixelInfo const&)>(&Decoder::releasePixelBuffer),
        slot<Return<void>(std::shared_ptr<NativeBuffer>)>(&Decoder::queueNativeBuffer),
        slot<Return<std::shared_ptr<NativeBuffer>>()>(&Decoder::dequeueNativeBuffer),
        slot<Return<RenderEvent>()>(&Decoder::dequeueRenderEvent),
        slot<Return<void>(CodecType, Config)>(&Decoder::reconfigureOutputBuffer),
        slot<Return<void>()>(&Decoder::flush),
        slot<Return<void>(std::uint32_t*, std::uint32_t*, bool*)>(&Decoder::getInputBufferStatus),
        slot<Return<Configuration>()>(&Decoder::getConfiguration),
        slot<Return<std::int64_t>()>(&Decoder::currentSTCTime),
        slot<Return<void>()>(&Decoder::testConnection),
        slot<Return<void>()>(&Decoder::testInvalidConnection),
        slot<Return<void>(std::uint8_t const*, std::uint32_t, std::uint32_t)>(
            &Decoder::testWriteInputData));
    expectSlots<IVideoEncoderClient>(
        2, slot<Return<void>(Config)>(&Encoder::configure), slot<Return<void>()>(&Encoder::release),
        slot<Return<void>(ColorAspect const&)>(&Encoder::writeColorAspect),
        slot<Return<void>(unsigned long long, std::uint8_t const*, std::uint32_t)>(
            &Encoder::writeInputFrame),
        slot<Return<void>(unsigned long long, Image const&)>(&Encoder::writeInputImage),
        slot<Return<std::int32_t>(unsigned long long*, std::uint8_t*, std::uint32_t*, PicType*)>(
            &Encoder::readOutputFrame),
        slot<Return<void>()>(&Encoder::pause), slot<Return<void>()>(&Encoder::resume),
        slot<Return<void>()>(&Encoder::flush), slot<Return<void>(Config)>(&Encoder::setParameters),
        slot<Return<void>(std::uint32_t*, std::uint32_t*, std::int32_t*, std::int32_t*,
                          std::int32_t*)>(&Encoder::getInputBufferStatus),
        slot<Return<Configuration>()>(&Encoder::getConfiguration));
    expectSlots<IVideoScalerClient::Callback>(2, slot<void(Region const&)>(&Callback::onBbdRegion));
    expectSlots<IVideoScalerClient>(2, slot<void(std::shared_ptr<Callback>)>(&Scaler::setCallback),
                                    slot<void(Scaler::LayerInfo)>(&Scaler::connect),
                                    slot<void()>(&Scaler::disconnect),
                                    slot<void(Scaler::LayerInfo)>(&Scaler::updateRegion));
    expectSlots<IImageSink>(2, slot<Return<void>(Config)>(&IImageSink::configure),
                            slot<Return<void>(Image const&)>(&IImageSink::displayPicture),
                            slot<Return<void>()>(&IImageSink::close));
    expectSlots<ResourceClient::Reclaimable>(2, slot<bool()>(&Reclaimable::reclaim));
    expectSlots<kvo::media::platform::SystemUtils>(
        0, slot<std::int32_t(char const*, std::int32_t)>(&Utils::getIntProperty),
        slot<bool(std::int32_t)>(&Utils::allowsForcedAcquire),
        slot<void(std::int32_t)>(&Utils::onProcessReclaimed),
        slot<void(std::int32_t)>(&Utils::onReclaimedClientReleased));
}

}  // namespace

}  // namespace kvo::media::hardware
