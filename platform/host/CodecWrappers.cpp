#include "host/CodecWrappers.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "host/Misuse.h"
#include "host/UnknownKeys.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::host {

namespace {

namespace key = media::hardware::key;
using media::hardware::Configuration;

enum class State { kNew, kConfigured, kReleased };

struct Wrapper {
    std::atomic<void const*> owner{nullptr};  ///< Null when no wrapper uses the record.
    std::atomic<State> state{State::kConfigured};
    std::atomic<int> width{0};
    std::atomic<int> height{0};
    std::atomic<bool> isAdaptive{false};
    std::atomic<bool> isTold{false};  ///< Of a call in this state.
    Wrapper* next = nullptr;
};

/// Records that are used again and never destroyed: any thread may look at them at any time.
template <typename Record>
class Records {
public:
    Record& claim(void const* owner) {
        for (Record* record = mFirst.load(); record != nullptr; record = record->next) {
            void const* nobody = nullptr;
            if (record->owner.compare_exchange_strong(nobody, owner)) {
                return *record;
            }
        }
        auto* const record = new Record;
        record->owner = owner;
        record->next = mFirst.load();
        while (!mFirst.compare_exchange_weak(record->next, record)) {
        }
        return *record;
    }

    /// Returns the first record for which `fits` says so, or null.
    template <typename Fits>
    Record* find(Fits const& fits) {
        for (Record* record = mFirst.load(); record != nullptr; record = record->next) {
            if (fits(*record)) {
                return record;
            }
        }
        return nullptr;
    }

private:
    std::atomic<Record*> mFirst{nullptr};
};

Records<Wrapper> gWrappers;
Records<CallOfThread> gCalls;
thread_local CallOfThread* tCall = nullptr;
std::atomic<unsigned int> gKnownPorts{0};  ///< A bit each: was granted once, or told of.

Wrapper* find(void const* wrapper) {
    return gWrappers.find([&](Wrapper const& record) { return record.owner == wrapper; });
}

void enter(Wrapper& wrapper, State state) {
    bool const wasUsable = wrapper.state.exchange(state) == State::kConfigured;
    bool const isUsable = state == State::kConfigured;
    wrappersNotConfigured += (wasUsable ? 1 : 0) - (isUsable ? 1 : 0);
    wrapper.isTold = false;
}

bool startsWith(char const* text, char const* start) {
    return std::strncmp(text, start, std::strlen(start)) == 0;
}

/// Says whether this thread is in a call of another wrapper, around this one: that is the player's.
bool isWithinAnother(void const* wrapper = nullptr) {
    return tCall != nullptr && tCall->wrapper != nullptr && tCall->wrapper != wrapper;
}

/// Says whether an operation makes sense on a configured codec only.
bool isOfRunningCodec(char const* operation) {
    constexpr std::array kOfAnyCodec{"configure", "get", "set", "test", "current"};
    return std::strcmp(operation, "release") != 0 &&
           std::none_of(kOfAnyCodec.begin(), kOfAnyCodec.end(),
                        [&](char const* start) { return startsWith(operation, start); });
}

/// Returns the bit of a display port, the last for all that are too high; 0 for none.
unsigned int bitOf(int port) {
    return port < 0 ? 0U : 1U << static_cast<unsigned int>(std::min(port, 31));
}

std::string called(void const* wrapper, char const* operation) {
    std::ostringstream text;
    text << operation << "() of wrapper " << wrapper;
    return text.str();
}

/// Returns the record of another thread that is in a call of the wrapper.
CallOfThread* otherCall(void const* wrapper, char const* operationStart) {
    return gCalls.find([&](CallOfThread const& call) {
        return &call != tCall && call.wrapper == wrapper &&
               startsWith(call.operation, operationStart);
    });
}

/// Not before: a codec may read a key of its own as late as with the first frame.
void tellUnreadKeys(void const* wrapper) {
    for (std::string const& unread : takeUnreadKeys(wrapper)) {
        std::ostringstream text;
        text << "wrapper " << wrapper << " was configured with the key " << unread
             << ", which nobody reads; the nearest is " << nearestKnownKey(unread);
        tellMisuse(text.str(), "use the names of kvo/media/hardware/ConfigurationKeys.h");
    }
}

/// A child has no thread that could be in a call, but the one that forks.
[[maybe_unused]] int const gForgetsCalls = pthread_atfork(nullptr, nullptr, [] {
    gCalls.find([](CallOfThread& call) {
        call.wrapper = &call == tCall ? call.wrapper.load() : nullptr;
        return false;
    });
});

[[maybe_unused]] int const gTellsAtExit = std::atexit([] {
    auto const* const call = gCalls.find([](CallOfThread const& each) {
        return each.wrapper != nullptr && std::strcmp(each.operation, "release") == 0;
    });
    if (call != nullptr) {
        tellMisuse(called(call->wrapper, "release") + " has not returned when the process ends",
                   kLetReleaseReturn);
    }
});

}  // namespace

std::atomic<int> wrappersNotConfigured{0};

CallOfThread& callOfThread() {
    thread_local bool hasEnded = false;
    struct Owner {
        ~Owner() {
            tCall->owner = nullptr;
            tCall = nullptr;
            hasEnded = true;
        }
    };
    if (tCall != nullptr) {
        return *tCall;
    }
    CallOfThread& call = gCalls.claim(&tCall);
    tCall = &call;
    if (!hasEnded) {
        thread_local Owner const owner;
    }
    return call;
}

void noteWrapper(void const* wrapper, bool hasClient) {
    if (hasClient) {
        enter(gWrappers.claim(wrapper), State::kNew);
    }
}

void forgetWrapper(void const* wrapper) {
    auto const* const call =
        gCalls.find([&](CallOfThread const& each) { return each.wrapper == wrapper; });
    if (call != nullptr) {
        tellMisuse(called(wrapper, call->operation) + " is under way, and the wrapper destroyed",
                   "end the threads that use a wrapper before you destroy it");
    }
    tellUnreadKeys(wrapper);
    if (Wrapper* const record = find(wrapper); record != nullptr) {
        enter(*record, State::kConfigured);
        record->owner = nullptr;
    }
}

void tellOverlap(void const* wrapper, char const* operation) {
    if (otherCall(wrapper, "configure") != nullptr || otherCall(wrapper, "reconf") != nullptr) {
        tellMisuse(called(wrapper, operation) + " while another thread configures it",
                   "let one thread at a time configure and release a codec");
    }
}

void tellThrown(void const* wrapper, char const* operation) {
    if (!isWithinAnother(wrapper)) {
        tellMisuse(called(wrapper, operation) + " ends with an exception of the codec",
                   "let the codec answer with a status");
    }
}

void noteConfigured(void const* wrapper, char const* operation, Configuration const& config,
                    media::hardware::Status status) {
    Wrapper* const record = find(wrapper);
    if (record == nullptr) {
        return;
    }
    if (!status.isError()) {
        record->width = config.getInt32(key::kWidth, 0);
        record->height = config.getInt32(key::kHeight, 0);
        record->isAdaptive = config.getInt32(key::kAdaptiveEnable, 0) != 0;
        gKnownPorts |= bitOf(config.getInt32(key::kVideoPort, -1));
        enter(*record, State::kConfigured);
    }
    if (isWithinAnother(wrapper)) {
        return;
    }
    if (config.getInt32(key::kWidth, 0) <= 0 || config.getInt32(key::kHeight, 0) <= 0) {
        tellMisuse(called(wrapper, operation) + " without width or height",
                   "set both to the size of the pictures, which decides what core is asked for");
    }
    if (!status.isError()) {
        noteKeysGiven(wrapper, config);
    }
}

void noteReleased(void const* wrapper) {
    tellUnreadKeys(wrapper);
    Wrapper* const record = find(wrapper);
    if (record != nullptr && record->state == State::kConfigured) {
        enter(*record, State::kReleased);
    }
}

void noteReconfiguring(void const* wrapper, Configuration const& config) {
    tellOverlap(wrapper, "reconfigureOutputBuffer");
    Wrapper const* const record = find(wrapper);
    if (record == nullptr || record->state != State::kConfigured || record->isAdaptive ||
        isWithinAnother(wrapper)) {
        return;
    }
    int const width = config.getInt32(key::kWidth, record->width);
    int const height = config.getInt32(key::kHeight, record->height);
    if (width != record->width || height != record->height) {
        std::ostringstream text;
        text << called(wrapper, "reconfigureOutputBuffer") << " with " << width << 'x' << height
             << ", configured with " << record->width << 'x' << record->height;
        tellMisuse(text.str(),
                   "release the decoder and configure it, or configure it with adaptive-enable");
    }
}

void noteReleasing(media::hardware::BufferInfo const& buffer) {
    int const port = buffer.videoPort;
    unsigned int const bit = bitOf(port);
    if ((gKnownPorts & bit) == bit || isWithinAnother()) {
        return;
    }
    gKnownPorts |= bit;
    if (!isPortHeld(port)) {
        tellMisuse("releaseOutputBuffer() of a buffer with videoPort " + std::to_string(port) +
                       ", which nobody has",
                   "release a buffer as it was dequeued, or with a port that was granted");
    }
}

void checkCall(void const* wrapper, char const* operation) {
    if (!isOfRunningCodec(operation)) {
        return;
    }
    Wrapper* const record = find(wrapper);
    if (record == nullptr || record->state == State::kConfigured || record->isTold.exchange(true)) {
        return;
    }
    if (record->state == State::kReleased) {
        tellMisuse(called(wrapper, operation) + " after its release",
                   "configure it again, or end the threads that use a codec before you release it");
    } else {
        tellMisuse(called(wrapper, operation) + " before it is configured",
                   "use a codec after one of its configure operations has succeeded");
    }
}

}  // namespace kvo::host
