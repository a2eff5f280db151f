#include "Platform.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <numeric>

#include "../ScalerStart.h"
#include "SystemUtils.h"
#include "kvo_media_log.h"
#include "scheduler/Access.h"
#include "scheduler/Scheduler.h"
#include "tvhw/ResourceClient.h"
#include "tvhw_vbe.h"
#include "tvhw_vo.h"
#include "tvhw_vsc.h"

namespace interleave {

namespace {

/// Where rules read the log. Other lines order nothing.
constexpr std::array<char const*, 2> kLinesRead{"reclaim: start", "reclaim timeout"};

Platform* thePlatform = nullptr;

constexpr int kNothingHeld = -61;
constexpr int kFails = -5;

/// Returns the result of a call that is made with `locks` locks held.
int call(char const* operation, std::size_t locks = 0) {
    if (!isRunning()) {
        return 0;
    }
    expect(locksHeld() == locks, "%s is called with %zu locks held", operation, locksHeld());
    point("%s", operation);
    auto& failing = platform().failing;
    return failing.count(operation) != 0 && failing.erase(operation) != 0 ? kFails : 0;
}

/// As call(), for an operation that one thread at a time may be in.
int callAlone(char const* operation, std::size_t locks) {
    expect(platform().inside.insert(operation).second, "%s is called twice at once", operation);
    int const result = call(operation, locks);
    platform().inside.erase(operation);
    return result;
}

/// As call(), for a client.
int call(char const* operation, TVHW_CRM_HANDLE client) {
    bool isKnown = false;
    {
        Unseen const unseen;  // Whether another is opened meanwhile changes nothing.
        for (auto const& known : platform().clients) {
            isKnown = isKnown || &known == client;
        }
    }
    expect(isKnown, "%s is called without a client", operation);
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
        ++platform().reclaimsTold.at(threadNumber());
    }
    void onReclaimedClientReleased(int /*pid*/) override {
        call("onReclaimedClientReleased", 1);  // The guard's.
        ++platform().releasesTold.at(threadNumber());
    }
};

/// The locks that are held while the library logs: while something is opened for the first time,
/// and when a reclaim has waited long enough.
std::size_t locksOfLine(std::string const& text) {
    static std::array<char const*, 3> const kLocked{"failed to open vo", "failed to init vsc",
                                                    "reclaim timeout waiting"};
    return std::any_of(kLocked.begin(), kLocked.end(),
                       [&](char const* line) { return text.rfind(line, 0) == 0; })
               ? 1
               : 0;
}

}  // namespace

Scenario scenario(std::string name, std::vector<std::string> facts, std::function<void()> body) {
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
    return {std::move(name), onPlatform, std::move(facts)};
}

Platform& platform() { return *thePlatform; }

bool hasLogged(std::string const& text, std::optional<std::size_t> thread) {
    bool const isRead = std::any_of(kLinesRead.begin(), kLinesRead.end(),
                                    [&](char const* line) { return text == line; });
    expect(isRead, "add '%s' to the lines that rules read", text.c_str());
    bool hasLogged = false;
    auto const& log = platform().log;
    for (std::size_t logger = 0; logger < log.size(); ++logger) {
        if (logger == thread.value_or(logger)) {
            touch(text + std::to_string(logger), false);
            Unseen const unseen;
            for (auto const& line : log.at(logger)) {
                hasLogged = hasLogged || line.rfind(text, 0) == 0;
            }
        }
    }
    return hasLogged;
}

}  // namespace interleave

using interleave::call;
using interleave::callAlone;
using interleave::expect;
using interleave::platform;

/// The stand-ins' word on what a program does wrong, which is the rules' to say here.
namespace kvo::host {
void tellMisuse(std::string const& what, char const* advice);
void tellMisuse(std::string const& /*what*/, char const* /*advice*/) {}
bool isPortHeld(int port);
bool isPortHeld(int /*port*/) { return true; }
}  // namespace kvo::host

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
    std::size_t const locks = interleave::locksOfLine(format);
    expect(interleave::locksHeld() == locks, "logged with %zu locks held: %s",
           interleave::locksHeld(), text.data());
    interleave::point("logs: %s", text.data());
    int count = 0;
    if (std::sscanf(text.data(), "reclaim timeout waiting: processing count=%d", &count) == 1) {
        auto const& calls = platform().callsInProgress;
        int const inFlight = std::accumulate(calls.begin(), calls.end(), 0);
        expect(count <= inFlight, "%d calls are counted, %d are in flight", count, inFlight);
    }
    std::size_t const self = interleave::threadNumber();
    for (std::string const line : interleave::kLinesRead) {
        if (std::string(format).rfind(line, 0) == 0) {
            interleave::touch(line + std::to_string(self), true);
        }
    }
    interleave::Unseen const unseen;
    platform().log.at(self).emplace_back(format);
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
    int const result = callAlone("VO_Open", 1);
    platform().outputsOpen += result == 0 ? 1 : 0;
    return result;
}

int TVHW_VO_Close(std::int32_t /*output*/) {
    int const result = call("VO_Close");
    expect(platform().outputsOpen > 0, "the video output is closed too often");
    platform().outputsOpen -= result == 0 ? 1 : 0;
    return result;
}

int TVHW_VSC_Initialize() {
    int const result = callAlone("VSC_Initialize", 1);
    platform().scalerInitialisations += result == 0 ? 1 : 0;
    return result;
}

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
