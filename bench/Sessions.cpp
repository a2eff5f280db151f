#include <cstdio>
#include <cstdlib>

#include "Codecs.h"
#include "Subject.h"
#include "SystemUtils.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw_crm.h"

namespace {

using namespace kvo::media::hardware;
constexpr int kCalls = 100;

void expectSuccess(int result) {
    if (result != 0) {
        std::fprintf(stderr, "tvhw_bench: the platform refused a core: %d\n", result);
        std::exit(2);
    }
}

/// What configuring and releasing a decoder asks of the platform and the codec, and nothing else.
void configureByHand(VideoDecoderClientWrapper& plain, Configuration const& config) {
    TVHW_CRM_HANDLE client = nullptr;
    auto const keepCore = [](TVHW_CRM_RECLAIM_PARAM const*, void*) { return 0; };
    expectSuccess(TVHW_CRM_ClientInit(&client, "VDC", keepCore, 0, nullptr));
    TVHW_CRM_ACQUIRE_PARAM request{};
    request.codecType = TVHW_CRM_CodecTypeFromMIME("video/avc");
    request.width = config.getInt32(key::kWidth, 0);
    request.height = config.getInt32(key::kHeight, 0);
    TVHW_CRM_ClientReleaseResource(client);
    expectSuccess(TVHW_CRM_ClientAcquireResource(client, &request));
    TVHW_CRM_RESOURCE granted{};
    expectSuccess(TVHW_CRM_ClientGetResource(client, &granted));
    int id = -1;
    expectSuccess(TVHW_CRM_ClientGetUniqueId(client, &id));
    Configuration copy = config;
    copy.setInt32(key::kResourceCoreType, granted.core);
    copy.setInt32(key::kResourceId, id);
    copy.setInt32(key::kVideoPort, granted.videoPort);
    copy.setInt32(key::kMaxWidth, granted.maxWidth);
    copy.setInt32(key::kMaxHeight, granted.maxHeight);
    expectSuccess(plain.configureReferenceMode(CodecType::AVC, copy).status().code());
    plain.release();
    kvo::media::platform::SystemUtils::getInstance().getIntProperty(
        "ro.vendor.kvo.omx.clear_display", 0);
    TVHW_CRM_ClientReleaseResource(client);
    TVHW_CRM_ClientFree(&client);
}

}  // namespace

Subjects sessions() {
    auto const codec = std::make_shared<IdleDecoder>();
    auto const wrapper = std::make_shared<VideoDecoderClientWrapperResource>(codec);
    auto const plain = std::make_shared<VideoDecoderClientWrapper>(codec);
    Configuration config;
    config.setInt32(key::kWidth, 1920);
    config.setInt32(key::kHeight, 1080);
    auto const configure = repeated(kCalls, [wrapper, config] {
        expectSuccess(wrapper->configureReferenceMode(CodecType::AVC, config).status().code());
        wrapper->release();
    });
    auto const byHand = repeated(kCalls, [plain, config] { configureByHand(*plain, config); });
    auto const make = repeated(
        kCalls, [codec] { keep(std::make_unique<VideoDecoderClientWrapperResource>(codec)); });
    auto const makePlain =
        repeated(kCalls, [codec] { keep(std::make_unique<VideoDecoderClientWrapper>(codec)); });
    return {{"a decoder configured, and released again",
             "the same calls of platform and codec, without the library",
             {configure},
             {byHand},
             kCalls,
             1.35,
             4,
             167},
            {"a decoder's wrapper made and destroyed, unused",
             "a plain wrapper",
             {make},
             {makePlain},
             kCalls,
             3.6,
             1,
             216}};
}
