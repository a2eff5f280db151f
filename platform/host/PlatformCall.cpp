#include "host/PlatformCall.h"

#include <algorithm>
#include <atomic>
#include <cassert>
#include <iterator>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "host/Forever.h"
#include "host/HostPlatform.h"
#include "host/Settings.h"

namespace kvo::host {

namespace {

/// The platform's operations, as failCall names them.
constexpr std::string_view kOperations[] = {"TVHW_CRM_ClientInit",
                                            "TVHW_CRM_ClientFree",
                                            "TVHW_CRM_CodecTypeFromMIME",
                                            "TVHW_CRM_ClientAcquireResource",
                                            "TVHW_CRM_ClientTryAcquireResource",
                                            "TVHW_CRM_ClientGetResource",
                                            "TVHW_CRM_ClientClearResource",
                                            "TVHW_CRM_ClientReleaseResource",
                                            "TVHW_CRM_ClientGetUniqueId",
                                            "TVHW_VSC_Initialize",
                                            "TVHW_VSC_Open",
                                            "TVHW_VSC_Close",
                                            "TVHW_VSC_Connect",
                                            "TVHW_VSC_Disconnect",
                                            "TVHW_VSC_SetAdaptiveStreamEx",
                                            "TVHW_VSC_SetWinBlank",
                                            "TVHW_VSC_SetInputRegion",
                                            "TVHW_VSC_SetInputRegion_ForAdaptive",
                                            "TVHW_VSC_SetOutputRegion",
                                            "TVHW_VO_Open",
                                            "TVHW_VO_Close",
                                            "TVHW_VO_Config",
                                            "TVHW_VO_DisplayPicture",
                                            "TVHW_VBE_DISP_GetPanelSize",
                                            "getIntProperty",
                                            "allowsForcedAcquire",
                                            "onProcessReclaimed",
                                            "onReclaimedClientReleased"};

struct Fault {
    std::string operation;
    int code;
    std::uint64_t callsLeft;  ///< Until it happens; 1 means the next call.
};

std::vector<Fault> faultsOfTheStart() {
    std::vector<Fault> faults;
    for (auto const& fault : settings().faults) {
        faults.push_back({fault.operation, fault.code, fault.call});
    }
    return faults;
}

std::atomic<bool> gRecording{false};
std::atomic<bool> gHasFaults{!settings().faults.empty()};
std::atomic<std::uint64_t> gCallCount{0};

/// The parts that need the lock.
struct State {
    std::mutex mutex;
    std::vector<JournalEntry> journal;
    std::vector<Fault> faults = faultsOfTheStart();
    std::vector<void (*)()> resetHandlers;
};

void record(JournalEntry entry) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    if (isRecording()) {
        forever<State>().journal.push_back(std::move(entry));
    }
}

/// Takes the code of a fault that happens with this call of `operation`.
std::optional<int> takeFault(std::string const& operation) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    std::vector<Fault>& faults = forever<State>().faults;
    std::optional<int> code;
    for (auto fault = faults.begin(); fault != faults.end();) {
        bool const counts = fault->operation == "*" || fault->operation == operation;
        if (counts && --fault->callsLeft == 0) {
            code = fault->code;
            fault = faults.erase(fault);
        } else {
            ++fault;
        }
    }
    gHasFaults.store(!faults.empty(), std::memory_order_relaxed);
    return code;
}

}  // namespace

bool isOperation(std::string const& name) {
    return std::find(std::begin(kOperations), std::end(kOperations), name) != std::end(kOperations);
}

void reset() {
    std::vector<void (*)()> handlers;
    {
        std::lock_guard<std::mutex> const lock(forever<State>().mutex);
        gRecording.store(false, std::memory_order_relaxed);
        forever<State>().journal.clear();
        forever<State>().faults = faultsOfTheStart();
        gHasFaults.store(!forever<State>().faults.empty(), std::memory_order_relaxed);
        handlers = forever<State>().resetHandlers;
    }
    for (auto* const handler : handlers) {
        handler();
    }
}

void startJournal() {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().journal.clear();
    gRecording.store(true, std::memory_order_relaxed);
}

std::vector<JournalEntry> stopJournal() {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    gRecording.store(false, std::memory_order_relaxed);
    return std::exchange(forever<State>().journal, {});
}

void note(std::string text) {
    if (isRecording()) {
        record({JournalEntry::Kind::kNote, std::move(text), {}});
    }
}

void failCall(std::string operation, int code, std::uint64_t nth) {
    if (nth == 0) {
        throw std::invalid_argument("failCall: call 0 of " + operation +
                                    " never comes; the next is call 1");
    }
    if (operation != "*" && !isOperation(operation)) {
        throw std::invalid_argument("failCall: the platform has no operation \"" + operation +
                                    "\"");
    }
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().faults.push_back({std::move(operation), code, nth});
    gHasFaults.store(true, std::memory_order_relaxed);
}

std::uint64_t platformCallCount() { return gCallCount.load(std::memory_order_relaxed); }

bool isRecording() { return gRecording.load(std::memory_order_relaxed); }

void PlatformCall::enter(char const* operation, std::string const* description) {
    assert(isOperation(operation));
    gCallCount.fetch_add(1, std::memory_order_relaxed);
    if (isRecording() && description != nullptr) {
        record({JournalEntry::Kind::kPlatformCall, *description, {}});
    }
    if (gHasFaults.load(std::memory_order_relaxed)) {
        mFailure = takeFault(operation);
    }
}

void recordLogLine(std::string text, char const* file, int line) {
    record({JournalEntry::Kind::kLogLine, std::move(text), file, line});
}

OnReset::OnReset(void (*handler)()) {
    std::lock_guard<std::mutex> const lock(forever<State>().mutex);
    forever<State>().resetHandlers.push_back(handler);
}

}  // namespace kvo::host
