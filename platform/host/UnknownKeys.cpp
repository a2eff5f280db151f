#include "host/UnknownKeys.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <mutex>
#include <numeric>
#include <utility>

#include "host/Forever.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::host {

namespace {

namespace key = media::hardware::key;

constexpr std::array kKnown{
    key::kWidth,          key::kHeight,           key::kFrameRate,         key::kColorFormat,
    key::kAdaptiveEnable, key::kAdaptiveMaxWidth, key::kAdaptiveMaxHeight, key::kCallingPid,
    key::kOutFormat,      key::kUseDmaBuffer,     key::kResourceCoreType,  key::kResourceId,
    key::kVideoPort,      key::kMaxWidth,         key::kMaxHeight,         key::kCoreType};

std::atomic<bool> gAreThereUnknown{false};

struct State {
    std::mutex mutex;
    std::map<std::string, bool> isDone;                     ///< Read, or taken, by unknown key.
    std::map<void const*, std::vector<std::string>> given;  ///< Unread at first, by wrapper.
};

/// Returns how many letters have to change, come or go.
std::size_t distance(std::string const& left, std::string const& right) {
    std::vector<std::size_t> row(right.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (char const letter : left) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < right.size(); ++j) {
            std::size_t const changed = diagonal + (letter == right[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[right.size()];
}

}  // namespace

void noteKeyAdded(char const* key) {
    bool const isKnown = std::any_of(kKnown.begin(), kKnown.end(), [&](char const* known) {
        return std::strcmp(key, known) == 0;
    });
    if (!isKnown) {
        std::lock_guard<std::mutex> const lock(forever<State>().mutex);
        forever<State>().isDone.emplace(key, false);
        gAreThereUnknown = true;
    }
}

void noteKeyRead(char const* key) {
    if (gAreThereUnknown.load(std::memory_order_relaxed)) {
        std::lock_guard<std::mutex> const lock(forever<State>().mutex);
        auto const unknown = forever<State>().isDone.find(key);
        if (unknown != forever<State>().isDone.end()) {
            unknown->second = true;
        }
    }
}

void noteKeysGiven(void const* wrapper, media::hardware::KeyValueMap const& map) {
    if (!gAreThereUnknown.load(std::memory_order_relaxed)) {
        return;
    }
    auto& state = forever<State>();
    std::unique_lock<std::mutex> lock(state.mutex);
    std::map<std::string, bool> const before = state.isDone;
    lock.unlock();
    for (auto const& [key, isDone] : before) {
        // To look for it is to read it.
        if (!isDone && map.getInt64(key.c_str(), 0) == map.getInt64(key.c_str(), 1)) {
            lock.lock();
            state.isDone[key] = false;
            state.given[wrapper].push_back(key);
            lock.unlock();
        }
    }
}

std::vector<std::string> takeUnreadKeys(void const* wrapper) {
    std::vector<std::string> unread;
    if (gAreThereUnknown.load(std::memory_order_relaxed)) {
        auto& state = forever<State>();
        std::lock_guard<std::mutex> const lock(state.mutex);
        auto const given = state.given.extract(wrapper);
        for (std::string const& key : given ? given.mapped() : unread) {
            if (!std::exchange(state.isDone[key], true)) {
                unread.push_back(key);
            }
        }
    }
    return unread;
}

std::string nearestKnownKey(std::string const& key) {
    return *std::min_element(kKnown.begin(), kKnown.end(),
                             [&](std::string const& left, std::string const& right) {
                                 return distance(key, left) < distance(key, right);
                             });
}

}  // namespace kvo::host
