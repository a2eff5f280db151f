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
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Check.h"
#include "tvhw_crm.h"

namespace kvo::check {

namespace {

// With another thread's call: Free may wait for the callback, which must not take too long then.
constexpr std::chrono::seconds kPatienceWithFree{2};
constexpr std::chrono::seconds kPatience{8};
constexpr int kSilent = -999;
constexpr int kMany = 100;
constexpr std::size_t kMostCores = 80;

// No two numbers of a request are alike.
constexpr int kWidth = 634;
constexpr int kHeight = 358;
constexpr int kFrameRate = 25;

/// Clients by their cookies. A cookie is a number of the pointer's whole width: one that comes back
/// cut, changed or late leads nowhere.
struct Client;
std::mutex gMutex;
std::condition_variable gIdle;  ///< A callback has ended.
std::map<std::uintptr_t, Client*> gClients;
std::uintptr_t gLastCookie = 0;
std::atomic<int> gForgotten{0};  ///< Callbacks with a cookie of no client.

TVHW_CRM_ACQUIRE_PARAM coreRequest(char const* mime, bool isEncoder, int width = kWidth,
                                   int height = kHeight) {
    TVHW_CRM_ACQUIRE_PARAM request{};
    request.codecType = CALL(TVHW_CRM_CodecTypeFromMIME)(std::string(mime).c_str());
    request.width = width;
    request.height = height;
    request.frameRate = kFrameRate;
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
        return values({{"get", result},
                       {"core", resource.core},
                       {"port", resource.videoPort},
                       {"width", resource.maxWidth},
                       {"height", resource.maxHeight}});
    }
};

/// A client, and what its reclaim callback does.
struct Client {
    TVHW_CRM_HANDLE handle = nullptr;
    std::atomic<int> reclaims{0};
    std::atomic<int> insideResult{0};
    std::thread::id thread;
    std::function<int(Client&)> inside;
    std::unique_ptr<Client> successor;  ///< That a callback has opened.
    std::future<int> otherThread;       ///< Of a callback that has another thread call the manager.
    std::atomic<int> answer{1};
    std::uintptr_t cookie = 0;
    int running = 0;  ///< Callbacks.
    int opened;

    Client() : cookie(enter(*this)), opened(open()) {}
    Client(Client const&) = delete;
    Client& operator=(Client const&) = delete;
    ~Client() {
        if (handle != nullptr) {
            free();
        }
        {
            std::lock_guard<std::mutex> const lock(gMutex);
            gClients.erase(cookie);
        }
        waitUntilIdle();
    }

    void waitUntilIdle() {
        std::unique_lock<std::mutex> lock(gMutex);
        gIdle.wait(lock, [this] { return running == 0; });
    }

    static std::uintptr_t enter(Client& client) {
        constexpr auto kSpread = static_cast<std::uintptr_t>(0x9E3779B97F4A7C15U);
        std::lock_guard<std::mutex> const lock(gMutex);
        gLastCookie += kSpread;
        gClients[gLastCookie] = &client;
        return gLastCookie;
    }

    /// Under the one name that the library's clients have.
    int open() {
        return CALL(TVHW_CRM_ClientInit)(&handle, "VDC", reclaimed, 0,
                                         reinterpret_cast<void*>(cookie));
    }

    /// Frees the client, whose handle is no handle any more, whatever the manager has left in it.
    int free() {
        TVHW_CRM_HANDLE last = handle;
        handle = nullptr;
        return CALL(TVHW_CRM_ClientFree)(&last);
    }

    int release() { return CALL(TVHW_CRM_ClientReleaseResource)(handle); }

    static int reclaimed(TVHW_CRM_RECLAIM_PARAM const*, void* cookie) {
        std::unique_lock<std::mutex> lock(gMutex);
        auto const found = gClients.find(reinterpret_cast<std::uintptr_t>(cookie));
        if (found == gClients.end()) {
            ++gForgotten;
            return 1;
        }
        Client& client = *found->second;
        ++client.running;
        client.thread = std::this_thread::get_id();
        lock.unlock();
        ++client.reclaims;
        if (client.inside) {
            client.insideResult = client.inside(client);
        }
        lock.lock();
        int const answer = client.answer;
        --client.running;
        gIdle.notify_all();
        return answer;
    }

    /// Lets another thread call the manager. Returns what it answers, kSilent when that takes too
    /// long.
    int callFromOtherThread(std::chrono::seconds patience, std::function<int()> call) {
        otherThread = std::async(std::launch::async, std::move(call));
        bool const isBack = otherThread.wait_for(patience) == std::future_status::ready;
        return isBack ? otherThread.get() : kSilent;
    }

    int acquire(TVHW_CRM_ACQUIRE_PARAM const& request) {
        return CALL(TVHW_CRM_ClientAcquireResource)(handle, &request);
    }

    int acquire() { return acquire(coreRequest("video/avc", false)); }

    int tryAcquire() {
        auto const request = coreRequest("video/avc", false);
        return CALL(TVHW_CRM_ClientTryAcquireResource)(handle, &request);
    }

    int acquirePort() {
        TVHW_CRM_ACQUIRE_PARAM request{};
        request.codecType = TVHW_CRM_CODEC_TYPE_DISPLAY;
        return acquire(request);
    }

    [[nodiscard]] Held held() const {
        Held held;
        struct {
            TVHW_CRM_RESOURCE resource{};
            std::array<std::int32_t, 16> behind{};
        } memory;
        held.result = CALL(TVHW_CRM_ClientGetResource)(handle, &memory.resource);
        held.resource = memory.resource;
        held.behind = memory.behind;
        return held;
    }

    int clear(int ports) {
        TVHW_CRM_RESOURCE request{};
        request.videoPort = ports;
        return CALL(TVHW_CRM_ClientClearResource)(handle, &request);
    }

    int id() {
        int ids[2] = {-1, 0};
        int const result = CALL(TVHW_CRM_ClientGetUniqueId)(handle, &ids[0]);
        return result == 0 && ids[1] == 0 ? ids[0] : -1;
    }
};

using Clients = std::vector<std::unique_ptr<Client>>;

/// What a client asks for.
using Acquire = int (*)(Client&);
int core(Client& client) { return client.acquire(); }
int port(Client& client) { return client.acquirePort(); }
int encoder(Client& client) { return client.acquire(coreRequest("video/avc", true)); }

bool isGranted(Held const& held, Acquire acquire) {
    return acquire == port ? held.isPort() : held.isCore();
}

/// How many clients get something while nobody gives anything up; kMostCores when it never ends.
std::size_t countFree(Acquire acquire) {
    Clients holders;
    do {
        holders.push_back(std::make_unique<Client>());
        holders.back()->answer = 0;
    } while (holders.size() <= kMostCores && acquire(*holders.back()) == 0);
    std::size_t const count = holders.size() - 1;
    for (auto& holder : holders) {
        holder->release();  // And frees: if one of the two gives back, the other can be looked at.
    }
    return count;
}

/// Clients that hold all that is free, and answer a reclaim with `answer`. None of them has refused
/// before, since a manager may remember that.
Clients holdAll(int answer, Acquire acquire = core) {
    std::size_t const count = countFree(acquire);
    Clients holders;
    for (std::size_t each = 0; each < count; ++each) {
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
    gForgotten = 0;
    return holders;
}

int asked(Clients const& clients) {
    int total = gForgotten;
    for (auto const& client : clients) {
        total += client->reclaims;
    }
    return total;
}

/// A core that a-core-is-granted misses is no fault of the other checks.
Outcome noCore() { return skipped("no core is granted to try it with"); }
Outcome none(Acquire acquire) {
    return acquire == port ? skipped("no display port is granted to try it with") : noCore();
}

/// Lets all holders' callbacks do `inside` while a newcomer takes one of their cores; then looks
/// at the holder that was asked, the newcomer and the result of its request.
template <typename Check>
Outcome duringReclaim(std::function<int(Client&)> const& inside, Check const& check) {
    auto holders = holdAll(1);
    if (holders.empty()) {
        return noCore();
    }
    for (auto& holder : holders) {
        holder->inside = inside;
    }
    Client newcomer;
    int const result = newcomer.acquire();
    for (auto& holder : holders) {
        if (holder->reclaims > 0) {
            holder->waitUntilIdle();
            return check(*holder, newcomer, result);
        }
    }
    return outcome(false,
                   values({{"asked", 0}, {"unknown cookies", gForgotten}, {"request", result}}) +
                       ", newcomer: " + newcomer.held().text());
}

int nothing(Client&) { return 0; }

/// Whether a client that opens now gets what another has given back, nobody being asked.
Outcome isFree(Clients const& holders, int result, Acquire acquire) {
    Client newcomer;
    int const request = acquire(newcomer);
    auto const held = newcomer.held();
    long long keep = 0;
    for (auto const& holder : holders) {
        if (holder->handle != nullptr) {
            auto const its = holder->held();
            bool const isShared =
                acquire == port && its.resource.videoPort == held.resource.videoPort;
            keep += isGranted(its, acquire) && !isShared ? 1 : 0;
        }
    }
    bool const isWell = result == 0 && request == 0 && asked(holders) == 0 &&
                        isGranted(held, acquire) &&
                        keep + 1 == static_cast<long long>(holders.size());
    return outcome(isWell, values({{"result", result},
                                   {"newcomer's request", request},
                                   {"asked", asked(holders)},
                                   {"others that keep theirs", keep}}) +
                               ", newcomer: " + held.text());
}

/// Lets a client give back with `giveBack` while all others keep theirs.
Outcome givesBack(Acquire acquire, int (*giveBack)(Client&), bool isStillOpen) {
    auto const free = static_cast<long long>(countFree(acquire));
    auto holders = holdAll(0, acquire);
    if (free == 0) {
        return none(acquire);
    }
    auto const again = static_cast<long long>(holders.size());
    if (again < free) {
        return outcome(false, values({{"free at first", free}, {"free again", again}}));
    }
    Client& first = *holders[holders.size() / 2];
    int const result = giveBack(first);
    int const described = isStillOpen ? first.held().result : 1;
    Outcome taken = isFree(holders, result, acquire);
    if (described == 0) {
        taken.kind = Outcome::Kind::kFailed;
    }
    taken.came += values({{", get afterwards", described}});
    return taken;
}

int release(Client& client) { return client.release(); }
int freeClient(Client& client) { return client.free(); }

/// Does `once` a hundred times, up to the first time that it fails.
template <typename Once>
Outcome aHundredTimes(Once const& once) {
    int done = 0;
    int result = 0;
    while (done < kMany && (result = once(done)) == 0) {
        ++done;
    }
    return outcome(done == kMany, values({{"times", done}, {"result", result}}));
}

/// A refusal that says of itself that the chip has no such core.
bool isLacking(int result) { return result == -EOPNOTSUPP; }

Outcome givesBackEachTime(Acquire acquire) {
    auto const once = [&](int round) {
        Client next;
        next.answer = 0;
        if (acquire == port && round % 3 == 0) {
            next.acquire();
        }
        int const result = acquire(next);
        return result != 0 || round % 2 == 0 ? result : next.release();
    };
    int const first = once(0);
    return isLacking(first) || (first != 0 && acquire != port) ? none(acquire)
                                                               : aHundredTimes(once);
}

constexpr char const* kMimeTypes[] = {"video/avc",  "video/hevc",          "video/x-vnd.on2.vp9",
                                      "video/av01", "video/mp4v-es",       "video/mpeg2",
                                      "video/3gpp", "video/mjpeg",         "video/dolby-vision",
                                      "",           "video/x-vnd.on2.vp8", "video/vvc"};

Outcome mimeTypes() {
    std::string came;
    std::string lacking;
    bool isWell = true;
    std::map<std::string, int> types;
    for (std::string const mime : kMimeTypes) {
        int const type = CALL(TVHW_CRM_CodecTypeFromMIME)(mime.c_str());
        int const again = CALL(TVHW_CRM_CodecTypeFromMIME)(std::string(mime).c_str());
        isWell = isWell && type >= 0 && again == type && type != TVHW_CRM_CODEC_TYPE_DISPLAY &&
                 (type == 0 || !mime.empty());
        types[mime] = type;
        came += (mime.empty() ? "none" : mime) + " " + std::to_string(type) + ", ";
        lacking += type == 0 && !mime.empty() ? " " + mime : "";
    }
    bool const isAvc = types["video/avc"] > 0 && types["video/avc"] != types["video/hevc"];
    return outcome(isWell && isAvc,
                   came + "the chip lacks:" + (lacking.empty() ? " none" : lacking));
}

Outcome decoderCore() {
    if (gLacking.decoder) {
        return skipped("the chip decodes nothing, as --no-decoder says");
    }
    Client client;
    int const acquired = client.acquire();
    auto const held = client.held();
    auto const again = client.held();
    if (isLacking(acquired) && held.result != 0) {
        return skipped("the chip decodes nothing, as the manager's -95 says");
    }
    Client other;  // A core may come with a port, but not two with the same one.
    other.answer = 0;
    int const otherPort =
        other.tryAcquire() == 0 ? other.held().resource.videoPort : TVHW_CRM_VIDEO_PORT_NONE;
    bool const isPortWell =
        held.resource.videoPort < 1 || (held.isPort() && held.resource.videoPort != otherPort);
    return outcome(
        acquired == 0 && held.isFor(kWidth, kHeight) && isPortWell && again.text() == held.text(),
        values({{"request", acquired}}) + ", " + held.text() +
            values({{", another core's port", otherPort}}));
}

/// Two decoder cores or more: a chip that small may do without an encoder.
bool isSmallChip() { return countFree(core) < 2; }

Outcome encoderCore() {
    if (gLacking.encoder) {
        return skipped("the chip encodes nothing, as --no-encoder says");
    }
    std::string came;
    bool isAllLacking = true;
    for (char const* const mime : {"video/avc", "video/x-vnd.on2.vp8"}) {
        Client client;
        int const acquired = client.acquire(coreRequest(mime, true));
        auto const held = client.held();
        came +=
            std::string(mime) + ": " + values({{"request", acquired}}) + ", " + held.text() + "; ";
        if (acquired == 0) {
            return outcome(held.isFor(kWidth, kHeight), came);
        }
        isAllLacking = isAllLacking && isLacking(acquired) && held.result != 0;
    }
    return isAllLacking || isSmallChip() ? skipped("the chip encodes nothing, it seems: " + came)
                                         : outcome(false, came + "or say --no-encoder");
}

/// A core is one for what was asked, whatever the codec and the size; if not, it is refused.
Outcome grantsFit() {
    Client first;
    if (first.acquire() != 0) {
        return noCore();
    }
    auto const most = first.held().resource;
    first.free();
    std::string wrong;
    int granted = 0;
    auto const ask = [&](char const* mime, int width, int height) {
        Client client;
        auto const request = coreRequest(mime, false, width, height);
        if (request.codecType == 0) {
            return kSilent;
        }
        int const result = client.acquire(request);
        auto const held = client.held();
        granted += result == 0 ? 1 : 0;
        if (result == 0 ? !held.isFor(width, height) : held.result == 0) {
            wrong += std::string(mime) + " " + std::to_string(width) + "x" +
                     std::to_string(height) + ": " + values({{"request", result}}) + ", " +
                     held.text() + "; ";
        }
        return result;
    };
    for (char const* const mime : kMimeTypes) {
        ask(mime, kWidth, kHeight);
        ask(mime, 1922, 1084);
    }
    ask("video/avc", 30002, kHeight);
    ask("video/avc", kWidth, 20002);
    if (std::max(most.maxWidth, most.maxHeight) < 30000) {
        ask("video/avc", most.maxWidth + 2, kHeight);
        ask("video/avc", kWidth, most.maxHeight + 2);
    }

    int const widest = ask("video/avc", most.maxWidth, kHeight);
    int const highest = ask("video/avc", kWidth, most.maxHeight);
    return outcome(wrong.empty() && widest == 0 && highest == 0,
                   values({{"granted", granted},
                           {"at the first core's width", widest},
                           {"at its height", highest}}) +
                       ", wrong: " + (wrong.empty() ? "none" : wrong));
}

/// The port goes first to whom the core came second, so that no core has its port's number.
Outcome coreAndPort() {
    Clients clients;
    std::vector<Held> before;
    while (clients.size() < 2) {
        clients.push_back(std::make_unique<Client>());
        clients.back()->answer = 0;
        if (clients.back()->acquire() != 0) {
            clients.pop_back();
            break;
        }
        before.push_back(clients.back()->held());
    }
    if (clients.empty()) {
        return noCore();
    }
    std::string came;
    bool isWell = true;
    std::set<int> ports;
    for (std::size_t each = clients.size(); each-- > 0;) {
        int const result = clients[each]->acquirePort();
        auto const held = clients[each]->held();
        came += "core alone: " + before[each].text() + "; " + values({{"port's request", result}}) +
                ", " + held.text() + "; ";
        bool const isPort =
            result == 0 && held.isPort() && ports.insert(held.resource.videoPort).second;
        isWell = isWell && held.isFor(kWidth, kHeight) &&
                 held.resource.core == before[each].resource.core &&
                 held.resource.maxWidth == before[each].resource.maxWidth &&
                 held.resource.maxHeight == before[each].resource.maxHeight &&
                 (isPort || (result != 0 && !ports.empty()));
    }
    return outcome(isWell, came);
}

Outcome keepsPort() {
    std::size_t const count = countFree(port);
    Client first;
    first.answer = 0;
    int const result = first.acquirePort();
    if (isLacking(result)) {
        return none(port);
    }

    int const again = first.acquirePort();
    auto const held = first.held();
    std::size_t others = 0;
    Clients more;
    for (; others + 1 < count; ++others) {
        more.push_back(std::make_unique<Client>());
        more.back()->answer = 0;
        if (more.back()->acquirePort() != 0) {
            break;
        }
    }
    return outcome(result == 0 && held.isPort() && others + 1 == count,
                   values({{"request", result},
                           {"again", again},
                           {"ports", static_cast<long long>(count)},
                           {"left for others", static_cast<long long>(others)}}) +
                       ", " + held.text());
}

Outcome clearPorts() {
    bool const hasSecond = countFree(port) > 1;
    Client client;
    bool const hasCore = client.acquire() == 0;
    Steps steps;
    steps("port 0", client.clear(TVHW_CRM_VIDEO_PORT_0));
    if (hasSecond) {
        steps("port 1", client.clear(TVHW_CRM_VIDEO_PORT_1));
    }
    steps("both", client.clear(TVHW_CRM_VIDEO_PORT_ALL));
    steps("both again", client.clear(TVHW_CRM_VIDEO_PORT_ALL));
    steps("core lost", hasCore && !client.held().isCore() ? 1 : 0);
    Client idle;
    steps("both, by a client that holds nothing", idle.clear(TVHW_CRM_VIDEO_PORT_ALL));
    return steps.done();
}

Outcome uniqueIds() {
    std::array<Client, 3> clients;
    std::set<int> ids;
    std::string came;
    bool isWell = true;
    for (auto& client : clients) {
        int const id = client.id();
        client.tryAcquire();
        int const again = client.id();
        came += values({{"id", id}, {"again", again}}) + "; ";
        isWell = isWell && id != -1 && again == id && ids.insert(id).second;
    }
    return outcome(isWell, came);
}

Outcome tryForm() {
    {
        Client client;
        if (client.acquire() != 0) {
            return noCore();
        }
    }
    Client client;
    int const result = client.tryAcquire();
    auto const held = client.held();
    return outcome(result == 0 && held.isFor(kWidth, kHeight),
                   values({{"request", result}}) + ", " + held.text());
}

Outcome refusesAll(Acquire acquire) {
    auto const holders = holdAll(0, acquire);
    if (holders.empty()) {
        return none(acquire);
    }
    Client newcomer;
    int const result = acquire(newcomer);
    bool const isAsked = asked(holders) > 0 || acquire != core;  // Others need no reclaims.
    int const tried = acquire == core ? newcomer.tryAcquire() : result;
    long long keep = 0;
    for (auto const& holder : holders) {
        keep += isGranted(holder->held(), acquire) ? 1 : 0;
    }
    auto const all = static_cast<long long>(holders.size());
    auto const held = newcomer.held();
    return outcome(result != 0 && tried != 0 && isAsked && keep == all && held.result != 0,
                   values({{"asked", asked(holders)},
                           {"request", result},
                           {"try", tried},
                           {"holders", all},
                           {"keep", keep}}) +
                       ", newcomer: " + held.text());
}

/// Another newcomer would find out which core is whose: a request is not back before the answer.
Outcome slowReclaim() {
    static std::atomic<bool> isBack{false};
    auto holders = holdAll(1);
    if (holders.empty()) {
        return noCore();
    }
    for (auto& holder : holders) {
        holder->inside = [](Client&) {
            std::this_thread::sleep_for(std::chrono::seconds(4));
            return isBack ? 1 : 0;
        };
    }
    Client newcomer;
    int const result = newcomer.acquire();
    isBack = true;
    auto const held = newcomer.held();
    int taken = 0;
    for (auto& holder : holders) {
        holder->waitUntilIdle();
        taken += holder->insideResult;
    }
    return outcome(
        asked(holders) > 0 && result == 0 && taken == 0 && held.isCore(),
        values(
            {{"asked", asked(holders)}, {"request", result}, {"back before the answer", taken}}) +
            ", newcomer: " + held.text());
}

/// A client that is asked loses its core, and no other does, until each has lost it.
Outcome cookies() {
    auto const holders = holdAll(1);
    if (holders.empty()) {
        return noCore();
    }
    Clients newcomers;
    for (std::size_t round = 1;; ++round) {
        newcomers.push_back(std::make_unique<Client>());
        newcomers.back()->answer = 0;
        int const result = newcomers.back()->acquire();
        int kept = 0;
        int lost = 0;
        for (auto const& holder : holders) {
            holder->waitUntilIdle();
            bool const wasAsked = holder->reclaims > 0;
            bool const isHolder = holder->held().isCore();
            kept += wasAsked && isHolder ? 1 : 0;
            lost += !wasAsked && !isHolder ? 1 : 0;
        }
        bool const isWell = result == 0 && asked(holders) >= static_cast<int>(round) &&
                            gForgotten == 0 && kept == 0 && lost == 0;
        if (!isWell || round == holders.size()) {
            return outcome(isWell, values({{"newcomers", static_cast<long long>(round)},
                                           {"request", result},
                                           {"asked", asked(holders)},
                                           {"unknown cookies", gForgotten},
                                           {"asked and still holding", kept},
                                           {"not asked and without a core", lost}}));
        }
    }
}

Outcome reclaimsEachTime() {
    auto holders = holdAll(1);
    if (holders.empty()) {
        return noCore();
    }
    Outcome result = aHundredTimes([&](int) {
        auto next = std::make_unique<Client>();
        int const request = next->acquire();
        auto const lost = std::find_if(holders.begin(), holders.end(),
                                       [](auto const& holder) { return holder->reclaims > 0; });
        if (lost == holders.end()) {
            return kSilent;
        }
        *lost = std::move(next);
        return request != 0 || (*lost)->held().isCore() ? request : kSilent;
    });
    return result;
}

Outcome threads() {
    std::atomic<int> refused{0};
    std::atomic<int> wrong{0};
    std::array<std::thread, 4> all;
    for (int thread = 0; thread < 4; ++thread) {
        all[static_cast<std::size_t>(thread)] = std::thread([&, thread] {
            for (int round = 0; round < 25; ++round) {
                Client client;
                client.answer = 0;
                int const width = 640 + 2 * thread;
                int const result = client.acquire(coreRequest("video/avc", false, width, kHeight));
                auto const held = client.held();
                refused += result == 0 ? 0 : 1;
                wrong += client.opened != 0 || (result == 0) != (held.result == 0) ||
                                 (result == 0 && !held.isFor(width, kHeight)) ||
                                 client.release() != 0 || client.held().result == 0 ||
                                 client.free() != 0
                             ? 1
                             : 0;
            }
        });
    }
    for (auto& thread : all) {
        thread.join();
    }
    return outcome(wrong == 0, values({{"rounds", 100}, {"refused", refused}, {"wrong", wrong}}));
}

}  // namespace

Checks managerChecks() {
    constexpr Level kMust = Level::kMust;
    return {
        {kMust, "init-writes-a-handle", "TVHW_CRM_ClientInit", "0 and a handle that is not null",
         [] {
             Client const client;
             return outcome(client.opened == 0 && client.handle != nullptr,
                            values({{"result", client.opened},
                                    {"handle is null", client.handle == nullptr ? 1 : 0}}));
         }},
        {kMust, "free-succeeds", "a client is opened and freed, whatever that leaves in the handle",
         "0 twice",
         [] {
             Client client;
             int const opened = client.opened;
             return areEqual({{"init", opened}, {"free", client.free()}});
         }},
        {kMust, "mime-types-are-known",
         "TVHW_CRM_CodecTypeFromMIME, twice for each type that a decoder asks for, and for none",
         "a type above 0 for avc and all that the chip has, another for hevc than for avc, 0 for "
         "none",
         mimeTypes},
        {kMust, "a-core-is-granted-and-described",
         "a client asks for a video/avc core, 634x358 at 25, and what it holds",
         "0 twice, a core of 1 to 4, at least as large, no port that another core has, and nothing "
         "behind the record; or --no-decoder",
         decoderCore},
        {Level::kShould, "an-encoder-core-is-granted",
         "clients ask for encoder cores, video/avc and video/x-vnd.on2.vp8, 634x358 at 25",
         "0 for one of them, a core of 1 to 4, at least as large; or --no-encoder", encoderCore},
        {kMust, "a-grant-fits-the-request",
         "a core is asked for by each MIME type and in other sizes, larger than the first one "
         "bears too",
         "each is refused, with nothing held, or bears what was asked for; none is refused that "
         "the first one bears",
         grantsFit},
        {kMust, "get-fails-when-nothing-is-held", "a new client asks what it holds", "an error",
         [] {
             Client const client;
             auto const held = client.held();
             return outcome(client.opened == 0 && held.result != 0,
                            values({{"init", client.opened}, {"get", held.result}}));
         }},
        {kMust, "releasing-nothing-succeeds",
         "a new client releases twice; one that held a core does so", "0 each time",
         [] {
             Client idle;
             int const first = idle.release();
             int const second = idle.release();
             Client client;
             client.acquire();
             int const held = client.release();
             return areEqual({{"new", first},
                              {"again", second},
                              {"with a core", held},
                              {"after it", client.release()}});
         }},
        {kMust, "release-gives-back",
         "of clients that hold all cores and refuse to give up, one releases; another opens and "
         "asks",
         "0, an error for what is held, and 0 and a core for the newcomer, nobody asked",
         [] { return givesBack(core, release, true); }},
        {kMust, "free-gives-back",
         "of clients that hold all cores and refuse to give up, one is freed; another opens and "
         "asks",
         "0, and 0 and a core for the newcomer, nobody asked",
         [] { return givesBack(core, freeClient, false); }},
        {kMust, "release-gives-the-port-back", "as release-gives-back, with display ports",
         "as there", [] { return givesBack(port, release, true); }},
        {kMust, "free-gives-the-port-back", "as free-gives-back, with display ports", "as there",
         [] { return givesBack(port, freeClient, false); }},
        {kMust, "cores-are-given-back-each-time",
         "100 times a core by a new client, freed, or released and freed", "0 each time",
         [] { return givesBackEachTime(core); }},
        {kMust, "ports-are-given-back-each-time",
         "the same with display ports, each third time after a core", "0 each time",
         [] { return givesBackEachTime(port); }},
        {kMust, "encoders-are-given-back-each-time", "the same with encoder cores", "0 each time",
         [] { return givesBackEachTime(encoder); }},
        {kMust, "a-core-and-a-port-at-once",
         "two clients ask for a core, then for a display port; nobody gives up anything",
         "0, and of the ports 1 and 2 one each or a refusal for the second; the cores as before",
         coreAndPort},
        {kMust, "a-client-keeps-its-port",
         "a client asks for a display port twice, then others for the ports that are left",
         "one port for it, whatever the second answer, and each other port for another client",
         keepsPort},
        {kMust, "ports-are-cleared",
         "a client with a core clears port 0, port 1 if there is one, and both, twice; one without "
         "does, too",
         "0 each time, and the core is still held", clearPorts},
        {kMust, "ids-are-unique", "three clients' ids, before and after a request",
         "three ids that differ, the same afterwards, and none of -1", uniqueIds},
        {kMust, "a-try-grants-what-is-free",
         "TVHW_CRM_ClientTryAcquireResource while a core is free",
         "0 and a core that is at least as large", tryForm},
        {kMust, "a-reclaim-comes-on-another-thread",
         "clients hold all cores, another asks for one; the callbacks answer 1",
         "a callback on another thread, and 0 and a core for the newcomer",
         [] {
             return duringReclaim(nothing, [](Client& holder, Client& newcomer, int result) {
                 bool const isOther = holder.thread != std::this_thread::get_id();
                 auto const held = newcomer.held();
                 return outcome(isOther && result == 0 && held.isFor(kWidth, kHeight),
                                values({{"other thread", isOther ? 1 : 0}, {"request", result}}) +
                                    ", newcomer: " + held.text());
             });
         }},
        {kMust, "a-reclaim-may-take-4-seconds", "the same; the callback takes 4 s",
         "0 and a core for the newcomer, after the callback's answer", slowReclaim},
        {kMust, "the-cookie-comes-back",
         "the same, until all have lost theirs; cookies are numbers of a pointer's width",
         "the cookie of a client that holds a core; who was asked holds none then, all others do",
         cookies},
        {kMust, "a-reclaim-works-each-time", "the same, 100 times, by a new client each",
         "0 and a core each time, and somebody asked", reclaimsEachTime},
        // The other thread is one that the callback may wait for; a lock that this thread may take
        // again would stop it.
        {kMust, "no-lock-is-held-in-a-reclaim",
         "the same; the callback waits for another thread, which opens a client, clears, asks for "
         "its "
         "id and what it holds and releases the callback's; then it releases, too",
         "0 for each release, and for the newcomer",
         [] {
             return duringReclaim(
                 [](Client& holder) {
                     int const besides = holder.callFromOtherThread(kPatience, [&] {
                         Client other;
                         other.clear(TVHW_CRM_VIDEO_PORT_ALL);
                         bool const isAnswered = other.id() != -1 && other.held().result != 0;
                         return isAnswered ? holder.release() : kSilent;
                     });
                     return besides == 0 ? holder.release() : besides;
                 },
                 [](Client& holder, Client&, int result) {
                     return areEqual({{"inside", holder.insideResult}, {"request", result}});
                 });
         }},
        {kMust, "freeing-inside-a-reclaim", "the same; the callback frees its client",
         "0 for it, and 0 and a core for the newcomer",
         [] {
             return duringReclaim(
                 [](Client& holder) { return holder.free(); },
                 [](Client& holder, Client& newcomer, int result) {
                     return areEqual({{"inside", holder.insideResult},
                                      {"request", result},
                                      {"no core", newcomer.held().isCore() ? 0 : 1}});
                 });
         }},
        // Free may wait for the callback, which therefore goes on when Free takes long.
        {kMust, "freeing-during-a-reclaim",
         "the same; another thread frees the client while the callback runs, for which Free may "
         "wait",
         "0 for it, and 0 and a core for the newcomer",
         [] {
             return duringReclaim(
                 [](Client& holder) {
                     return holder.callFromOtherThread(kPatienceWithFree,
                                                       [&] { return holder.free(); });
                 },
                 [](Client& holder, Client& newcomer, int result) {
                     int const freed = holder.otherThread.valid() ? holder.otherThread.get()
                                                                  : holder.insideResult.load();
                     return areEqual({{"free", freed},
                                      {"request", result},
                                      {"no core", newcomer.held().isCore() ? 0 : 1}});
                 });
         }},
        // The successor keeps what it gets, so that it must be another core than the newcomer's.
        {kMust, "restarting-inside-a-reclaim",
         "the same; the callback opens another client, which asks for a core",
         "some answer to it, "
         "and 0 and a core for the newcomer",
         [] {
             return duringReclaim(
                 [](Client& holder) {
                     holder.successor = std::make_unique<Client>();
                     holder.successor->answer = 0;
                     int const result = holder.successor->acquire();
                     return result == 0 && !holder.successor->held().isCore() ? 2 : 1;
                 },
                 [](Client& holder, Client& newcomer, int result) {
                     return outcome(
                         holder.insideResult == 1 && result == 0 && newcomer.held().isCore(),
                         values({{"answered (2: with 0 and no core)", holder.insideResult},
                                 {"request", result}}) +
                             ", newcomer: " + newcomer.held().text());
                 });
         }},
        {kMust, "after-a-reclaim-release-and-free-succeed",
         "after a reclaim the client releases and is freed", "0 twice",
         [] {
             return duringReclaim(nothing, [](Client& holder, Client&, int) {
                 int const release = holder.release();
                 return areEqual({{"release", release}, {"free", holder.free()}});
             });
         }},
        {kMust, "after-a-reclaim-a-core-is-granted-again",
         "after a reclaim the newcomer is freed, and the client asks again", "0 twice, and a core",
         [] {
             return duringReclaim(nothing, [](Client& holder, Client& newcomer, int) {
                 int const freed = newcomer.free();
                 int const request = holder.acquire();
                 return areEqual({{"free", freed},
                                  {"request", request},
                                  {"no core", holder.held().isCore() ? 0 : 1}});
             });
         }},
        {kMust, "a-refused-reclaim-leaves-the-core",
         "clients hold all cores and answer 0; another asks for one, then in the try form",
         "somebody is asked, the newcomer refused and holds nothing, and all keep theirs",
         [] { return refusesAll(core); }},
        {kMust, "a-refused-reclaim-leaves-the-port", "the same with display ports",
         "the same, or nobody is asked", [] { return refusesAll(port); }},
        {kMust, "a-refused-reclaim-leaves-the-encoder", "the same with encoder cores",
         "the same, or nobody is asked", [] { return refusesAll(encoder); }},
        {kMust, "threads-do-not-meet",
         "four threads, 25 times each: a client asks for a core, what it holds, releases and is "
         "freed",
         "each is granted a core that fits, or refused with nothing held; 0 for all else", threads},
    };
}

}  // namespace kvo::check
