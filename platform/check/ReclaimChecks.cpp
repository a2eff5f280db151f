// The resource manager: what it takes from clients for others.

#include <algorithm>
#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <utility>

#include "ManagerClients.h"

namespace kvo::check {

namespace {

// With another thread's call: Free may wait for the callback, which must not take too long then.
constexpr std::chrono::seconds kPatienceWithFree{2};
constexpr std::chrono::seconds kPatience{8};

std::atomic<bool> gIsBack{false};  ///< The request of duringReclaim.
std::atomic<int> gTaken{-1};       ///< Whether it was back before the first callback's end.

int nothing(Client&) { return 0; }

/// As a codec's release() may, on a stack of 64 KB, which has to hold the calls around it, too.
int useStack(Client&) {
    constexpr std::size_t kPage = 4096;
    std::array<char volatile, 12 * kPage> deep;
    for (std::size_t left = deep.size(); left > 0; left -= kPage) {
        deep[left - 1] = 1;
    }
    return 0;
}

/// Lets all holders' callbacks do `inside` while a newcomer takes one of their cores. The newcomer
/// must get it, and the values be right that `look` tells of the holder that was asked and of the
/// newcomer.
template <typename Look>
Outcome duringReclaim(int (*inside)(Client&), Look const& look) {
    auto holders = holdAll(1);
    if (holders.empty()) {
        return noneOf(core);
    }
    for (auto& holder : holders) {
        holder->inside = inside;
    }
    Client newcomer;
    Values all{{"request", newcomer.acquire()}};
    gIsBack = true;
    std::string const got = ", newcomer: " + newcomer.held().text();
    auto const was = std::find_if(holders.begin(), holders.end(),
                                  [](auto const& holder) { return holder->reclaims > 0; });
    if (was == holders.end()) {
        return outcome(false, text(all) + ", asked 0, unknown cookies " +
                                  std::to_string(gCookies.forgotten) + got);
    }
    all.emplace_back("fits", newcomer.held().isFor(kWidth, kHeight), 1);
    for (auto& holder : holders) {
        holder->waitUntilIdle();
    }
    for (Value const& value : look(**was, newcomer)) {
        all.push_back(value);
    }
    return areRight(all, got);
}

Values otherThread(Client& holder, Client&) {
    return {{"other thread", holder.thread != std::this_thread::get_id(), 1}};
}

int takeFourSeconds(Client&) {
    std::this_thread::sleep_for(std::chrono::seconds(4));
    int none = -1;
    gTaken.compare_exchange_strong(none, gIsBack ? 1 : 0);  // Several may be asked at once.
    return 0;
}

Values taken(Client&, Client&) { return {{"back before the answer", gTaken.load()}}; }

/// A client that is asked loses all that it holds, and no other its core, until each has lost it.
Outcome cookies() {
    auto const holders = holdAll(1);
    if (holders.empty()) {
        return noneOf(core);
    }
    holders.front()->acquirePort();  // Where there is one.
    Clients newcomers;
    Outcome last;
    do {
        newcomers.push_back(std::make_unique<Client>(0));
        int const result = newcomers.back()->acquire();
        int kept = 0;
        int lost = 0;
        for (auto const& holder : holders) {
            holder->waitUntilIdle();
            bool const wasAsked = holder->reclaims > 0;
            auto const held = holder->held();
            kept += wasAsked && held.result == 0 ? 1 : 0;
            lost += !wasAsked && !held.isCore() ? 1 : 0;
        }
        int const askedFor = static_cast<int>(newcomers.size());
        last = areRight({{"newcomers", askedFor, Value::kAny},
                         {"request", result},
                         {"asked", asked(holders), Value::kAny},
                         {"too few", asked(holders) < askedFor},
                         {"unknown cookies", gCookies.forgotten.load()},
                         {"asked and still holding", kept},
                         {"not asked and without a core", lost}});
    } while (last.kind == Outcome::Kind::kWell && newcomers.size() < holders.size());
    return last;
}

Outcome reclaimsEachTime() {
    auto holders = holdAll(1);
    if (holders.empty()) {
        return noneOf(core);
    }
    auto next = std::make_unique<Client>();
    return manyTimes([&](int round) {
        bool const frees = round % 2 == 0;
        for (auto& holder : holders) {
            holder->inside = [frees](Client& asked) { return frees ? asked.free() : 0; };
        }
        int const request = next->acquire();
        auto const lost = std::find_if(holders.begin(), holders.end(),
                                       [](auto const& holder) { return holder->reclaims > 0; });
        Values values{{"request", request}, {"nobody asked", lost == holders.end()}};
        if (lost != holders.end()) {
            std::swap(*lost, next);
            values.emplace_back("no core", !(*lost)->held().isCore());
            next->waitUntilIdle();
            values.emplace_back("inside", next->insideResult.load());
            next->reclaims = 0;
        }
        if (next->handle == nullptr) {
            next = std::make_unique<Client>();
        }
        return values;
    });
}

/// Waits for another thread, which may do all that does not concern the holder, and releases what
/// it holds. The thread is one that the callback may wait for; a lock that this thread may take
/// again would stop it.
int callsWithoutLock(Client& holder) {
    int const besides = holder.callFromOtherThread(kPatience, [&] {
        Client other;
        other.clear(TVHW_CRM_VIDEO_PORT_ALL);
        bool const isAnswered = other.id() != -1 && other.held().result != 0;
        return isAnswered ? holder.release() : kSilent;
    });
    return besides == 0 ? holder.release() : besides;
}

Values insideResult(Client& holder, Client&) { return {{"inside", holder.insideResult.load()}}; }

/// Free may wait for the callback, which therefore goes on when Free takes long.
int freeMeanwhile(Client& holder) {
    return holder.callFromOtherThread(kPatienceWithFree, [&] { return holder.free(); });
}

Values freed(Client& holder, Client&) {
    return {{"free",
             holder.otherThread.valid() ? holder.otherThread.get() : holder.insideResult.load()}};
}

/// The successor keeps what it gets, so that it must be another core than the newcomer's.
int restart(Client& holder) {
    holder.successor = std::make_unique<Client>(0);
    int const result = holder.successor->acquire();
    return result == 0 && !holder.successor->held().isCore() ? kSilent : 0;
}

Values releaseAndFree(Client& holder, Client&) {
    int const release = holder.release();
    return {{"release", release}, {"free", holder.free()}};
}

Values askAgain(Client& holder, Client& newcomer) {
    int const freed = newcomer.free();
    int const request = holder.acquire();
    return {{"free", freed}, {"holder's request", request}, {"no core", !holder.held().isCore()}};
}

Outcome refusesAll(Acquire acquire) {
    auto const holders = holdAll(0, acquire);
    if (holders.empty()) {
        return noneOf(acquire);
    }
    bool const hasPort = acquire == core && holders.front()->acquirePort() == 0;
    Client newcomer;
    int const result = acquire(newcomer);
    int const reclaims = asked(holders);
    int const tried = acquire == core ? newcomer.tryAcquire() : result;
    for (char const* const mime : kMimeTypes) {
        Client(0).acquire(
            coreRequest(mime, acquire == encoder));  // Granted or not: of other cores.
    }
    std::size_t keep = 0;
    for (auto const& holder : holders) {
        keep += isGranted(holder->held(), acquire) ? 1U : 0U;
    }
    auto const held = newcomer.held();
    return areRight(
        {{"request", result, Value::kAny},
         {"try", tried, Value::kAny},
         {"granted", result == 0 || tried == 0 || held.result == 0},
         {"asked", reclaims, Value::kAny},
         {"nobody asked", reclaims == 0 && acquire == core},  // Others need no reclaims.
         {"holders", holders.size(), Value::kAny},
         {"without theirs", holders.size() - keep},
         {"without the port", hasPort && !holders.front()->held().isPort()}},
        ", newcomer: " + held.text());
}

}  // namespace

Checks reclaimChecks() {
    return {
        {kMust, "a-reclaim-comes-on-another-thread",
         "clients hold all cores, another asks; the callbacks use 48 KB of stack and answer 1",
         "a callback on another thread, and 0 and a core for the newcomer",
         [] { return duringReclaim(useStack, otherThread); }},
        {kMust, "a-reclaim-may-take-4-seconds", "the same; the callback takes 4 s",
         "0 and a core for the newcomer, after the callback's answer",
         [] { return duringReclaim(takeFourSeconds, taken); }},
        {kMust, "the-cookie-comes-back",
         "the same until all have lost theirs, one with a port; cookies have a pointer's width",
         "the holder's cookie; who was asked holds nothing then, all others a core", cookies},
        {kMust, "a-reclaim-works-each-time",
         "the same, 100 to 1000 times; each second time the callback frees its client",
         "0, a core, somebody asked, and no descriptor, thread or 64 KB kept each time",
         reclaimsEachTime},
        {kMust, "no-lock-is-held-in-a-reclaim",
         "the same; the callback waits for a thread that calls all else and releases; then it does",
         "0 for each release, and for the newcomer",
         [] { return duringReclaim(callsWithoutLock, insideResult); }},
        {kMust, "freeing-inside-a-reclaim", "the same; the callback frees its client",
         "0 for it, and 0 and a core for the newcomer",
         [] { return duringReclaim([](Client& holder) { return holder.free(); }, insideResult); }},
        {kMust, "freeing-during-a-reclaim",
         "the same; another thread frees the client meanwhile, and may wait for the callback",
         "0 for it, and 0 and a core for the newcomer",
         [] { return duringReclaim(freeMeanwhile, freed); }},
        {kMust, "restarting-inside-a-reclaim",
         "the same; the callback opens another client, which asks for a core",
         "some answer to it, and 0 and a core for the newcomer",
         [] { return duringReclaim(restart, insideResult); }},
        {kMust, "after-a-reclaim-release-and-free-succeed",
         "after a reclaim the client releases and is freed", "0 twice",
         [] { return duringReclaim(nothing, releaseAndFree); }},
        {kMust, "after-a-reclaim-a-core-is-granted-again",
         "after a reclaim the newcomer is freed, and the client asks again", "0 twice, and a core",
         [] { return duringReclaim(nothing, askAgain); }},
        {kMust, "a-refused-reclaim-leaves-the-core",
         "clients hold all cores, one a port, and answer 0; another asks for one, and tries",
         "somebody is asked, the newcomer refused and holds nothing, and all keep theirs",
         [] { return refusesAll(core); }},
        {kMust, "a-refused-reclaim-leaves-the-port", "the same with display ports",
         "the same, or nobody is asked", [] { return refusesAll(port); }},
        {kMust, "a-refused-reclaim-leaves-the-encoder", "the same with encoder cores",
         "the same, or nobody is asked", [] { return refusesAll(encoder); }},
    };
}

}  // namespace kvo::check
