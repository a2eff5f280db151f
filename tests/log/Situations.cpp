// Makes one thing go wrong on the host platform, as a program in the field would, for its log.

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include "FakeCodecs.h"
#include "WrapperTest.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::failCall;

/// A wrapper around a fake codec that is destroyed with it.
template <typename Wrapper, typename Fake>
struct Owner {
    std::shared_ptr<Fake> codec = std::make_shared<Fake>();
    Wrapper wrapper{codec};
};
using Decoder = Owner<VideoDecoderClientWrapperResource, FakeDecoder>;
using Encoder = Owner<VideoEncoderClientWrapperResource, FakeEncoder>;

Configuration const kStream = configuration(
    {{key::kWidth, 1280}, {key::kHeight, 720}, {key::kCallingPid, 42}, {key::kOutFormat, 1}});

void play(Decoder& decoder) {
    decoder.wrapper.configureReferenceMode(CodecType::AVC, kStream);
    for (int frame = 0; frame < 3; ++frame) {
        decoder.wrapper.writeInputData(nullptr, 0, 0);
        decoder.wrapper.dequeueOutputBuffer();
    }
}

void play(Decoder& decoder, char const* failing, std::uint64_t nth = 1) {
    failCall(failing, -5, nth);
    play(decoder);
    decoder.wrapper.release();
}

/// Keeps two threads inside the codec's operation of this name and asks for the only core.
void takeFromBusyCodec(char const* operation) {
    kvo::host::setPool({{}});
    auto& first = *new Decoder;
    play(first);
    std::atomic<int> inside{0};
    first.codec->onCall = [&](std::string const& called) {
        while (called == operation) {
            ++inside;
            std::this_thread::sleep_for(std::chrono::hours(1));
        }
    };
    std::thread([&first] { first.wrapper.flush(); }).detach();
    std::thread([&first] { first.wrapper.flush(); }).detach();
    while (operation == std::string("flush") && inside < 2) {
        std::this_thread::yield();
    }
    std::thread([] { play(*new Decoder); }).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(3700));
    VideoScalerClientTvhwImpl const scaler(0);  // Shows in the log how much later it is.
}

struct Holder : ResourceClient::Reclaimable {
    bool reclaim() override { return true; }
};

IVideoScalerClient::LayerInfo layer(int adaptive) {
    IVideoScalerClient::LayerInfo info;
    info.type = 4;
    info.adaptive = static_cast<decltype(info.adaptive)>(adaptive);
    info.inputRegion = info.outputRegion = {0, 0, 640, 360, 1280, 720};
    return info;
}

void show(Configuration const& config) {
    ImageSinkTvhwImpl sink;
    if (!sink.configure(config).status().isError()) {
        sink.displayPicture({});
    }
}

// What is made by `new` is meant to stay: the process ends without destroying it.
std::map<std::string, std::function<void()>> const kSituations{
    {"no-codec", [] { Decoder().wrapper.configureReferenceMode({}, kStream); }},
    {"may-not-force",
     [] {
         kvo::host::setPool({{}});
         kvo::host::setForcedAcquirePolicy([](int) { return false; });
         Decoder first;
         play(first);
         Decoder second;
         play(second);
     }},
    {"manager-unreachable",
     [] {
         Decoder decoder;
         play(decoder, "TVHW_CRM_ClientInit");
     }},
    {"live-encoder",
     [] {
         kvo::host::setPool({{1, true}});
         Configuration live = kStream;
         live.setInt32(key::kUseDmaBuffer, 1);
         Encoder first;
         first.wrapper.configure(live);
         Encoder().wrapper.configure(kStream);
     }},
    {"codec-stuck", [] { takeFromBusyCodec("flush"); }},
    {"reclaim-hangs", [] { takeFromBusyCodec("release"); }},
    {"core-kept",
     [] {
         kvo::host::setPool({{}});
         play(*new Decoder);
         Decoder second;
         play(second);
     }},
    {"never-freed",
     [] {
         auto const& owner = *new auto(std::make_shared<Holder>());
         auto const& client = *new auto(initializeResource(owner));
         client->acquireResource("video/avc", 1280, 720, 30, false, false, false);
         client->releaseResource();
     }},
    {"id-unreadable",
     [] {
         Decoder decoder;
         play(decoder, "TVHW_CRM_ClientGetUniqueId");
     }},
    {"port-not-granted",
     [] {
         failCall("TVHW_CRM_ClientAcquireResource", -16, 2);
         Decoder().wrapper.configureTunnelMode(CodecType::AVC, kStream);
     }},
    {"ports-not-cleared",
     [] {
         failCall("TVHW_CRM_ClientClearResource", -5);
         Decoder().wrapper.configurePixelMode(CodecType::AVC, kStream);
     }},
    {"window-blank",
     [] {
         failCall("TVHW_VSC_Connect", -5);
         VideoScalerClientTvhwImpl(0).connect(layer(0));
     }},
    {"never-placed", [] { VideoScalerClientTvhwImpl(0).connect(layer(0)); }},
    {"region-before-adaptive",
     [] {
         VideoScalerClientTvhwImpl scaler(0);
         scaler.updateRegion(layer(0));
         scaler.connect(layer(1));
     }},
    {"still-not-shown", [] { show(kStream); }},
    {"sink-format", [] { show({}); }},
    {"free-failed",
     [] {
         Decoder decoder;
         play(decoder, "TVHW_CRM_ClientFree");
     }},
    {"nothing-wrong",
     [] {
         Decoder decoder;
         play(decoder);
         decoder.wrapper.release();
     }},
};

}  // namespace

int main(int argc, char** argv) {
    auto const situation = argc == 2 ? kSituations.find(argv[1]) : kSituations.end();
    if (situation == kSituations.end()) {
        std::fputs("usage: tvhw_situation NAME, with NAME one of:\n", stderr);
        for (auto const& entry : kSituations) {
            std::fprintf(stderr, "  %s\n", entry.first.c_str());
        }
        return 2;
    }
    situation->second();
    std::_Exit(0);
}
