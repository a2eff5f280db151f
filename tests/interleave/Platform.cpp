#include "Platform.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <utility>

#include "../ScalerStart.h"
#include "CodecOperations.h"
#include "SystemUtils.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"
#include "kvo_media_log.h"
#include "scheduler/Access.h"
#include "scheduler/Scheduler.h"
#include "tvhw/ResourceClient.h"
#include "tvhw_vbe.h"
#include "tvhw_vo.h"
#include "tvhw_vsc.h"

namespace interleave {

namespace {

Platform* thePlatform = nullptr;

constexpr int kNothingHeld = -61;
constexpr int kFails = -5;

/// Returns the result of a call that is made with `locks` locks held.
int call(char const* operation, std::size_t locks = 0) {
    expect(locksHeld() == locks, "%s is called with %zu locks held", operation, locksHeld());
    point("%s", operation);
    if (platform().failing != operation) {
        return 0;
    }
    platform().failing = {};
    return kFails;
}

/// As call(), for an operation that one thread at a time may be in, under its lock; counts those
/// that succeed.
int callAlone(char const* operation, int& successes) {
    expect(!std::exchange(platform().isOpening, true), "%s is called twice at once", operation);
    int const result = call(operation, 1);
    platform().isOpening = false;
    successes += result == 0 ? 1 : 0;
    return result;
}

/// As call(), for a client.
int call(char const* operation, TVHW_CRM_HANDLE client) {
    int const result = call(operation);
    expect(client->isOpen, "%s uses client %d, which was freed", operation, client->uniqueId);
    return result;
}

class Utils final : public kvo::media::platform::SystemUtils {
public:
    int getIntProperty(char const* /*name*/, int defaultValue) override {
        call("getIntProperty");
        return defaultValue;
    }
    bool allowsForcedAcquire(int /*pid*/) override {
        call("allowsForcedAcquire");
        return true;
    }
    void onProcessReclaimed(int /*pid*/) override {
        call("onProcessReclaimed");
        ++platform().self().reclaimsTold;
    }
    void onReclaimedClientReleased(int /*pid*/) override {
        call("onReclaimedClientReleased", 1);  // The guard's.
        ++platform().self().releasesTold;
    }
};

}  // namespace

void add(std::vector<Scenario>& all, std::string name, std::vector<std::string> facts,
         std::function<void()> body) {
    auto const onPlatform = [body = std::move(body)] {
        Platform own;
        thePlatform = &own;
        forgetScalerInitialisation();
        body();
        joinAll();
        for (auto const& client : own.clients) {
            expect(!client.isOpen, "client %d was not freed", client.uniqueId);
        }
        expect(ResourceClient::sReferenceHolder.size() == 0, "a registration is left");
        expect(own.outputsOpen == 0, "the video output is open %d times", own.outputsOpen);
        expect(own.channelsOpen == 0, "a scaler channel is open");
    };
    all.push_back({std::move(name), onPlatform, std::move(facts)});
}

Platform& platform() { return *thePlatform; }

}  // namespace interleave

using interleave::call;
using interleave::callAlone;
using interleave::expect;
using interleave::platform;

// The bases of the wrappers: those of the host platform keep records that outlive a run.
namespace kvo::media::hardware {

#define FORWARD(Wrapper, Result, name, parameters, ...)                       \
    Return<Result> Wrapper::name parameters {                                 \
        return mClient == nullptr ? Status{-22} : mClient->name(__VA_ARGS__); \
    }

VideoDecoderClientWrapper::VideoDecoderClientWrapper(std::shared_ptr<IVideoDecoderClient> client)
    : mClient(std::move(client)) {}
VideoDecoderClientWrapper::~VideoDecoderClientWrapper() = default;
#define FORWARD_DECODER(...) FORWARD(VideoDecoderClientWrapper, __VA_ARGS__)
FORWARD_DECODER(void, release, (), )
KVO_MEDIA_DECODER_OPERATIONS(FORWARD_DECODER, FORWARD_DECODER)

VideoEncoderClientWrapper::VideoEncoderClientWrapper(std::shared_ptr<IVideoEncoderClient> client)
    : mClient(std::move(client)) {}
VideoEncoderClientWrapper::~VideoEncoderClientWrapper() = default;
#define FORWARD_ENCODER(...) FORWARD(VideoEncoderClientWrapper, __VA_ARGS__)
FORWARD_ENCODER(void, release, (), )
KVO_MEDIA_ENCODER_OPERATIONS(FORWARD_ENCODER, FORWARD_ENCODER)

}  // namespace kvo::media::hardware

kvo::media::platform::SystemUtils& kvo::media::platform::SystemUtils::getInstance() {
    static interleave::Utils theUtils;
    return theUtils;
}

extern "C" {

void kvo_media_log_printf(int /*level*/, char const* /*tag*/, char const* /*file*/,
                          char const* /*function*/, int /*line*/, char const* format, ...) {
    std::array<char, 200> text{};
    std::va_list arguments;
    va_start(arguments, format);
    static_cast<void>(std::vsnprintf(text.data(), text.size(), format, arguments));
    va_end(arguments);
    auto const begins = [&](char const* start) {
        return std::string_view(format).find(start) == 0;
    };
    // A lock is held while something is opened for the first time, and when a reclaim has waited.
    bool const hasTimedOut = begins("reclaim timeout waiting");
    bool const isLocked =
        hasTimedOut || begins("failed to open vo") || begins("failed to init vsc");
    expect(interleave::locksHeld() == (isLocked ? 1 : 0), "logged with %zu locks held: %s",
           interleave::locksHeld(), text.data());
    interleave::point("logs: %s", text.data());
    if (int count = 0;
        std::sscanf(text.data(), "reclaim timeout waiting: processing count=%d", &count) == 1) {
        int inFlight = 0;
        for (auto const& thread : platform().threads) {
            inFlight += thread.callsInProgress;
        }
        expect(count <= inFlight, "%d calls are counted, %d are in flight", count, inFlight);
    }
    auto& self = platform().self();
    if (hasTimedOut) {
        self.hasTimedOut = true;
    }
    if (begins("reclaim: start")) {
        self.hasBegunReclaim = true;
    }
}

int TVHW_CRM_ClientInit(TVHW_CRM_HANDLE* client, char const* /*name*/,
                        TVHW_CRM_RECLAIM_CALLBACK reclaim, int /*reserved*/, void* cookie) {
    if (int const result = call("ClientInit"); result != 0) {
        return result;
    }
    auto& clients = platform().clients;
    int const id = 1 + static_cast<int>(clients.size());
    clients.push_back({id, reclaim, cookie, true, false, 0, 0});
    *client = &clients.back();
    return 0;
}

int TVHW_CRM_ClientFree(TVHW_CRM_HANDLE* client) {
    int const result = call("ClientFree", *client);
    (*client)->isOpen = false;
    (*client)->freedBy = interleave::threadNumber();
    *client = nullptr;
    return result;
}

int TVHW_CRM_CodecTypeFromMIME(char const* /*mime*/) {
    call("CodecTypeFromMIME");
    return 1;
}

int TVHW_CRM_ClientAcquireResource(TVHW_CRM_HANDLE client, TVHW_CRM_ACQUIRE_PARAM const* request) {
    if (int const result = call("ClientAcquireResource", client); result != 0) {
        return result;
    }
    client->holdsCore = client->holdsCore || request->codecType != TVHW_CRM_CODEC_TYPE_DISPLAY;
    if (!platform().ports.empty()) {
        client->port = platform().ports.front();
        platform().ports.pop_front();
    }
    return 0;
}

int TVHW_CRM_ClientGetResource(TVHW_CRM_HANDLE client, TVHW_CRM_RESOURCE* resource) {
    int const result = call("ClientGetResource", client);
    if (result != 0 || (!client->holdsCore && client->port == 0)) {
        return result != 0 ? result : interleave::kNothingHeld;
    }
    resource->core = client->holdsCore ? 1 : 0;
    resource->videoPort = client->port;
    resource->maxWidth = 1920;
    resource->maxHeight = 1088;
    return 0;
}

int TVHW_CRM_ClientClearResource(TVHW_CRM_HANDLE client, TVHW_CRM_RESOURCE const* /*resource*/) {
    return call("ClientClearResource", client);
}

int TVHW_CRM_ClientReleaseResource(TVHW_CRM_HANDLE client) {
    int const result = call("ClientReleaseResource", client);
    client->holdsCore = false;
    client->port = 0;
    return result;
}

int TVHW_CRM_ClientGetUniqueId(TVHW_CRM_HANDLE client, int* id) {
    int const result = call("ClientGetUniqueId", client);
    *id = client->uniqueId;
    return result;
}

int TVHW_VBE_DISP_GetPanelSize(TVHW_VBE_PANEL_SIZE* size) {
    *size = {1920, 1080};
    return call("GetPanelSize");
}

int TVHW_VO_Open(std::int32_t /*output*/, std::int32_t /*mode*/) {
    return callAlone("VO_Open", platform().outputsOpen);
}

int TVHW_VO_Close(std::int32_t /*output*/) {
    int const result = call("VO_Close");
    expect(platform().outputsOpen > 0, "the video output is closed too often");
    platform().outputsOpen -= result == 0 ? 1 : 0;
    return result;
}

int TVHW_VSC_Initialize() { return callAlone("VSC_Initialize", platform().scalerInitialisations); }

int TVHW_VSC_Open(std::uint32_t /*channel*/) {
    ++platform().channelsOpen;
    return call("VSC_Open");
}

int TVHW_VSC_Close(std::uint32_t /*channel*/) {
    --platform().channelsOpen;
    return call("VSC_Close");
}

#define SCALER_CALL(name, ...) \
    int TVHW_VSC_##name(__VA_ARGS__) { return call("VSC_" #name); }
SCALER_CALL(Connect, std::uint32_t, TVHW_VSC_SOURCE, std::int32_t)
SCALER_CALL(Disconnect, std::uint32_t, TVHW_VSC_SOURCE, std::int32_t)
SCALER_CALL(SetInputRegion, std::uint32_t, TVHW_VSC_WINDOW)
SCALER_CALL(SetOutputRegion, std::uint32_t, TVHW_VSC_WINDOW)
SCALER_CALL(SetAdaptiveStreamEx, std::uint32_t, std::int32_t)
SCALER_CALL(SetWinBlank, std::uint32_t, std::int32_t, std::int32_t)

}  // extern "C"
