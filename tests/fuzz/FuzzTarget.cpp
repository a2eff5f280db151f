#include <fuzzer/FuzzedDataProvider.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <set>

#include "GuardedCalls.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"
#include "tvhw_vo.h"

namespace {

using namespace kvo::media::hardware;

constexpr int kCodecFails = -77;
constexpr int kMin = -2147483647 - 1;
constexpr int kMax = 2147483647;

void require(bool isTrue, std::string const& what) {
    if (!isTrue) {
        std::fprintf(stderr, "%s\n", what.c_str());
        std::abort();
    }
}

void requireCodecCode(int code) {
    static std::set<int> const kCodes{0, kCodecFails, -1, -19, -22};
    require(kCodes.count(code) != 0, "a codec wrapper returned " + std::to_string(code));
}

void requireSinkCode(Return<void> const& result) {
    int const code = result.status().code();
    require(code <= 0 && code >= -2, "an image sink returned " + std::to_string(code));
}

struct Listener : IVideoScalerClient::Callback {
    void onBbdRegion(Region const&) override {}
};

/// Everything of the library, driven by the input. Objects are made when they are first needed.
class World {
public:
    explicit World(FuzzedDataProvider& input) : mInput(input) {}

    void step() {
        oneOf([&] { changePlatform(); }, [&] { useDecoder(mDecoders[pick(2)]); },
              [&] { useEncoder(mEncoder); }, [&] { useScaler(mScalers[pick(2)]); },
              [&] { useSink(mSinks[pick(2)]); }, [&] { reclaim(); });
    }

private:
    std::size_t pick(std::size_t count) {
        return mInput.ConsumeIntegralInRange<std::size_t>(0, count - 1);
    }

    /// Takes one of the actions.
    template <typename... Actions>
    void oneOf(Actions const&... actions) {
        std::size_t number = pick(sizeof...(actions));
        ((number-- == 0 ? actions() : void()), ...);
    }

    bool flag() { return mInput.ConsumeBool(); }

    int number() {
        static constexpr std::array kSpecial{kMin, -1, 0, 1, 2, 14, 1920, 65536, kMax};
        return flag() ? mInput.ConsumeIntegral<int>() : kSpecial[pick(kSpecial.size())];
    }

    std::optional<int> maybe() { return flag() ? std::optional<int>(number()) : std::nullopt; }

    Configuration configuration() {
        Configuration config;
        for (char const* const name :
             {key::kWidth, key::kHeight, key::kFrameRate, key::kColorFormat, key::kAdaptiveEnable,
              key::kAdaptiveMaxWidth, key::kCallingPid, key::kOutFormat, key::kUseDmaBuffer}) {
            if (flag()) {
                config.setInt32(name, number());
            }
        }
        return config;
    }

    Region region() {
        auto const edge = [&] { return static_cast<std::uint32_t>(number()); };
        return {edge(), edge(), edge(), edge(), edge(), edge()};
    }

    void changePlatform() {
        oneOf([&] { kvo::host::failCall("*", number() | 1, 1 + pick(16)); },
              [&] {
                  kvo::host::forceGrant({maybe(), maybe(), maybe(), maybe()});
              },
              [&] {
                  kvo::host::setPool({{number(), false, number(), number()}, {1, true}});
              },
              [&] {
                  kvo::host::setPanel({number(), number(), flag()});
              },
              [&] { kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", maybe()); },
              [] { kvo::host::setForcedAcquirePolicy([](int pid) { return pid % 2 == 0; }); });
    }

    template <typename Wrapper, typename Fake>
    void construct(std::unique_ptr<Wrapper>& wrapper, std::shared_ptr<Fake> codec) {
        if (wrapper == nullptr) {
            codec->answer = Status(flag() ? 0 : kCodecFails);
            wrapper = std::make_unique<Wrapper>(flag() ? codec : nullptr);
        }
    }

    void useDecoder(std::unique_ptr<VideoDecoderClientWrapperResource>& decoder) {
        using Wrapper = VideoDecoderClientWrapperResource;
        static constexpr std::array kConfigure{
            &Wrapper::configureTunnelMode, &Wrapper::configureReferenceMode,
            &Wrapper::configurePixelMode, &Wrapper::configureNativeBufferMode,
            &Wrapper::reconfigureOutputBuffer};
        static auto const kCalls = guardedDecoderCalls();
        construct(decoder, std::make_shared<FakeDecoder>());
        auto const configure = [&] {
            auto const operation = kConfigure[pick(kConfigure.size())];
            auto const type =
                static_cast<CodecType>(flag() ? number() : static_cast<int>(pick(15)));
            requireCodecCode(((*decoder).*operation)(type, configuration()).status().code());
        };
        auto const show = [&] {
            BufferInfo buffer;
            buffer.videoPort = number();
            requireCodecCode(decoder->releaseOutputBuffer(buffer).status().code());
        };
        oneOf(
            configure, configure, [&] { requireCodecCode(decoder->release().status().code()); },
            show, [&] { decoder.reset(); },
            [&] { requireCodecCode(kCalls[pick(kCalls.size())].call(*decoder)); });
    }

    void useEncoder(std::unique_ptr<VideoEncoderClientWrapperResource>& encoder) {
        static auto const kCalls = guardedEncoderCalls();
        construct(encoder, std::make_shared<FakeEncoder>());
        oneOf([&] { requireCodecCode(encoder->configure(configuration()).status().code()); },
              [&] { requireCodecCode(encoder->release().status().code()); },
              [&] { encoder.reset(); },
              [&] { requireCodecCode(kCalls[pick(kCalls.size())].call(*encoder)); });
    }

    void useScaler(std::unique_ptr<VideoScalerClientTvhwImpl>& scaler) {
        if (scaler == nullptr) {
            auto const channel = mInput.PickValueInArray({0U, 1U, 2U, 4294967295U});
            scaler = std::make_unique<VideoScalerClientTvhwImpl>(channel);
        }
        IVideoScalerClient::LayerInfo info;
        info.type = static_cast<std::uint32_t>(flag() ? number() : static_cast<int>(pick(9)));
        info.port = mInput.ConsumeIntegral<std::uint8_t>();
        info.adaptive = number();
        auto const update = [&] {
            info.inputRegion = region();
            info.outputRegion = region();
            scaler->updateRegion(info);
        };
        oneOf([&] { scaler->connect(info); }, update, [&] { scaler->disconnect(); },
              [&] { scaler->bbdCallbackRegion(region()); },
              [&] { scaler->setCallback(flag() ? mListener : nullptr); }, [&] { scaler.reset(); });
    }

    void useSink(std::unique_ptr<ImageSinkTvhwImpl>& sink) {
        if (sink == nullptr) {
            sink = std::make_unique<ImageSinkTvhwImpl>();
        }
        auto const show = [&] {
            requireSinkCode(
                sink->displayPicture({0, number(), number(), 0, mMemory, number(), number()}));
        };
        oneOf([&] { requireSinkCode(sink->configure(configuration())); }, show,
              [&] { requireSinkCode(sink->close()); }, [&] { sink.reset(); });
    }

    /// Calls back with the cookie of an open client or with any other.
    void reclaim() {
        auto const clients = kvo::host::crmClients();
        auto const cookie = clients.empty() || flag() ? mInput.ConsumeIntegral<std::uint16_t>()
                                                      : clients[pick(clients.size())].cookie;
        int const answer = ResourceClient::OnReclaim(nullptr, reinterpret_cast<void*>(cookie));
        require(answer == 0 || answer == 1, "a reclaim answered " + std::to_string(answer));
    }

    FuzzedDataProvider& mInput;
    std::array<std::unique_ptr<VideoDecoderClientWrapperResource>, 2> mDecoders;
    std::unique_ptr<VideoEncoderClientWrapperResource> mEncoder;
    std::array<std::unique_ptr<VideoScalerClientTvhwImpl>, 2> mScalers;
    std::array<std::unique_ptr<ImageSinkTvhwImpl>, 2> mSinks;
    std::shared_ptr<Listener> mListener = std::make_shared<Listener>();
    std::uint32_t mMemory =
        kvo::host::registerMemory(std::make_shared<std::vector<unsigned char>>(4096));
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    kvo::host::reset();
    kvo::host::setLogLevel(-1);
    kvo::host::startJournal();  // So that each log line is put together.
    {
        FuzzedDataProvider input(data, size);
        World world(input);
        for (int steps = 0; steps < 200 && input.remaining_bytes() != 0; ++steps) {
            world.step();
        }
    }
    int failedCloses = 0;  // Each may leave the output open once.
    for (auto const& entry : kvo::host::stopJournal()) {
        require(entry.text.size() < 200, entry.text);
        failedCloses += entry.text == "0 ImageSink close: TVHW_VO_Close fail" ? 1 : 0;
    }
    require(kvo::host::crmClients().empty(), "a client is still open");
    require(ResourceClient::sReferenceHolder.size() == 0, "a registration is left");
    require(!kvo::host::scalerChannel(0).opened && !kvo::host::scalerChannel(1).opened,
            "a channel is still open");
    require(kvo::host::videoOutput().opens <= failedCloses, "the output is still open");
    kvo::host::reset();
    while (TVHW_VO_Close(0) == 0) {
    }
    return 0;
}
