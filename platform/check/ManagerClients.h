#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Check.h"
#include "tvhw_crm.h"

/// Clients of the resource manager, for its checks.
namespace kvo::check {

// No two numbers of a request are alike.
constexpr int kWidth = 634;
constexpr int kHeight = 358;

constexpr char const* kMimeTypes[] = {"video/avc",  "video/hevc",          "video/x-vnd.on2.vp9",
                                      "video/av01", "video/mp4v-es",       "video/mpeg2",
                                      "video/3gpp", "video/mjpeg",         "video/dolby-vision",
                                      "",           "video/x-vnd.on2.vp8", "video/vvc"};

/// In place of a result: there was none, or none in time.
constexpr int kSilent = -999;

inline TVHW_CRM_ACQUIRE_PARAM coreRequest(char const* mime, bool isEncoder, int width = kWidth,
                                          int height = kHeight) {
    TVHW_CRM_ACQUIRE_PARAM request{};
    request.codecType = CALL(TVHW_CRM_CodecTypeFromMIME)(std::string(mime).c_str());
    request.width = width;
    request.height = height;
    request.frameRate = 25;
    request.isEncoder = isEncoder ? 1 : 0;
    return request;
}

/// What a client holds, as the manager tells it.
struct Held {
    int result = 0;
    TVHW_CRM_RESOURCE resource{};
    std::array<std::int32_t, 16> behind{};  ///< The record: stays 0.

    [[nodiscard]] bool isCore() const {
        return result == 0 && resource.core >= 1 && resource.core <= 4 &&
               behind == decltype(behind){};
    }
    [[nodiscard]] bool isPort() const {
        return result == 0 && (resource.videoPort == TVHW_CRM_VIDEO_PORT_0 ||
                               resource.videoPort == TVHW_CRM_VIDEO_PORT_1);
    }
    [[nodiscard]] bool isFor(int width, int height) const {
        return isCore() && resource.maxWidth >= width && resource.maxHeight >= height;
    }
    [[nodiscard]] std::string text() const {
        return check::text({{"get", result},
                            {"core", resource.core},
                            {"port", resource.videoPort},
                            {"width", resource.maxWidth},
                            {"height", resource.maxHeight}});
    }
};

/// CALL on a client's handle, of which there may be none.
#define CALL_IF_OPEN(function) handle == nullptr ? kSilent : CALL(function)

struct Client;

/// Clients by their cookies. A cookie is a number of the pointer's whole width: one that comes back
/// cut, changed or late leads nowhere.
struct Cookies {
    std::mutex mutex;
    std::condition_variable idle;  ///< A callback has ended.
    std::map<std::uintptr_t, Client*> clients;
    std::uintptr_t last = 0;
    std::atomic<int> forgotten{0};  ///< Callbacks with a cookie of no client.
};
inline Cookies gCookies;

/// A client, and what its reclaim callback does.
struct Client {
    TVHW_CRM_HANDLE handle = nullptr;
    std::atomic<int> reclaims{0};
    std::atomic<int> answer;
    std::function<int(Client&)> inside;  ///< Before the answer.
    std::atomic<int> insideResult{0};
    std::thread::id thread;             ///< Of the last callback.
    std::unique_ptr<Client> successor;  ///< That a callback has opened.
    std::future<int> otherThread;       ///< Of a callback that has another thread call the manager.
    std::uintptr_t cookie;
    int running = 0;     ///< Callbacks.
    int unwritten = -1;  ///< In place of the next id.
    int opened;          ///< The result of the opening.

    explicit Client(int itsAnswer = 1) : answer(itsAnswer), cookie(enter(*this)), opened(open()) {}
    Client(Client const&) = delete;
    Client& operator=(Client const&) = delete;
    ~Client() {
        free();
        {
            std::lock_guard<std::mutex> const lock(gCookies.mutex);
            gCookies.clients.erase(cookie);
        }
        waitUntilIdle();
    }

    void waitUntilIdle() {
        std::unique_lock<std::mutex> lock(gCookies.mutex);
        gCookies.idle.wait(lock, [this] { return running == 0; });
    }

    static std::uintptr_t enter(Client& client) {
        std::lock_guard<std::mutex> const lock(gCookies.mutex);
        gCookies.last += static_cast<std::uintptr_t>(0x9E3779B97F4A7C15U);
        gCookies.clients[gCookies.last] = &client;
        return gCookies.last;
    }

    /// Under the one name that the library's clients have.
    int open() {
        return CALL(TVHW_CRM_ClientInit)(&handle, "VDC", reclaimed, 0,
                                         reinterpret_cast<void*>(cookie));
    }

    /// Frees the client, whose handle is no handle any more, whatever the manager has left in it.
    int free() {
        TVHW_CRM_HANDLE last = std::exchange(handle, nullptr);
        return last == nullptr ? kSilent : CALL(TVHW_CRM_ClientFree)(&last);
    }

    int release() { return CALL_IF_OPEN(TVHW_CRM_ClientReleaseResource)(handle); }

    static int reclaimed(TVHW_CRM_RECLAIM_PARAM const*, void* cookie) {
        std::unique_lock<std::mutex> lock(gCookies.mutex);
        auto const found = gCookies.clients.find(reinterpret_cast<std::uintptr_t>(cookie));
        if (found == gCookies.clients.end()) {
            ++gCookies.forgotten;
            return 1;
        }
        Client& client = *found->second;
        ++client.running;
        client.thread = std::this_thread::get_id();
        lock.unlock();
        if (++client.reclaims == 1 && client.inside) {  // It may be asked again.
            client.insideResult = client.inside(client);
        }
        lock.lock();
        int const answer = client.answer;
        --client.running;
        gCookies.idle.notify_all();
        return answer;
    }

    /// Lets another thread call the manager. Returns what it answers, kSilent when that takes too
    /// long.
    int callFromOtherThread(std::chrono::seconds patience, std::function<int()> call) {
        otherThread = std::async(std::launch::async, std::move(call));
        bool const isBack = otherThread.wait_for(patience) == std::future_status::ready;
        return isBack ? otherThread.get() : kSilent;
    }

    /// As the library does: a request for a core comes after a release.
    int acquire(TVHW_CRM_ACQUIRE_PARAM const& request) {
        if (request.codecType != TVHW_CRM_CODEC_TYPE_DISPLAY) {
            release();
        }
        return CALL_IF_OPEN(TVHW_CRM_ClientAcquireResource)(handle, &request);
    }

    int acquire() { return acquire(coreRequest("video/avc", false)); }

    int tryAcquire() {
        auto const request = coreRequest("video/avc", false);
        return CALL_IF_OPEN(TVHW_CRM_ClientTryAcquireResource)(handle, &request);
    }

    int acquirePort() {
        TVHW_CRM_ACQUIRE_PARAM request{};
        request.codecType = TVHW_CRM_CODEC_TYPE_DISPLAY;
        return acquire(request);
    }

    [[nodiscard]] Held held() const {
        Held held;
        held.result = CALL_IF_OPEN(TVHW_CRM_ClientGetResource)(handle, &held.resource);
        return held;
    }

    int clear(int ports) {
        TVHW_CRM_RESOURCE request{};
        request.videoPort = ports;
        return CALL_IF_OPEN(TVHW_CRM_ClientClearResource)(handle, &request);
    }

    /// Its unique id, -1 for none.
    int id() {
        int ids[2] = {unwritten, 0};
        unwritten = ~unwritten;  // What is written only in part differs then.
        int const result = CALL_IF_OPEN(TVHW_CRM_ClientGetUniqueId)(handle, &ids[0]);
        return result == 0 && ids[1] == 0 ? ids[0] : -1;
    }
};

using Clients = std::vector<std::unique_ptr<Client>>;

/// What a client asks for.
using Acquire = int (*)(Client&);
inline int core(Client& client) { return client.acquire(); }
inline int port(Client& client) { return client.acquirePort(); }
inline int encoder(Client& client) { return client.acquire(coreRequest("video/avc", true)); }

inline bool isGranted(Held const& held, Acquire acquire) {
    return acquire == port ? held.isPort() : held.isCore();
}

/// How many clients get something while nobody gives anything up; more than any chip has when it
/// never ends.
inline std::size_t countFree(Acquire acquire) {
    constexpr std::size_t kMost = 80;
    Clients holders;
    do {
        holders.push_back(std::make_unique<Client>(0));
    } while (holders.size() <= kMost && acquire(*holders.back()) == 0);
    std::size_t lost = 0;  // For others, though it refused: no more are free than are kept.
    for (auto& holder : holders) {
        lost += holder->reclaims > 0 && holder->held().result != 0 ? 1U : 0U;
        holder->release();  // And frees: if one of the two gives back, the other can be looked at.
    }
    return holders.size() - 1 - std::min(lost, holders.size() - 1);
}

/// Clients that hold all that is free, and answer a reclaim with `answer`. None of them has refused
/// before, since a manager may remember that.
inline Clients holdAll(int answer, Acquire acquire = core) {
    Clients holders;
    for (std::size_t left = countFree(acquire); left > 0; --left) {
        holders.push_back(std::make_unique<Client>());
        if (acquire(*holders.back()) != 0) {
            holders.pop_back();
            break;
        }
    }
    for (auto& holder : holders) {
        holder->answer = answer;
        holder->reclaims = 0;
    }
    gCookies.forgotten = 0;
    return holders;
}

/// How many callbacks there have been of these clients, and of none.
inline int asked(Clients const& clients) {
    int total = gCookies.forgotten;
    for (auto const& client : clients) {
        total += client->reclaims;
    }
    return total;
}

/// The outcome where nothing is granted: a core that a-core-is-granted misses is no fault of the
/// other checks.
inline Outcome noneOf(Acquire acquire) {
    return skipped(acquire == port ? "no display port is granted to try it with"
                                   : "no core is granted to try it with");
}

/// A refusal that says of itself that the chip has no such core.
inline bool isLacking(int result) { return result == -EOPNOTSUPP; }

}  // namespace kvo::check
