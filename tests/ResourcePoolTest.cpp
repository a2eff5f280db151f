#include "host/ResourcePool.h"

#include <gtest/gtest.h>

#include <sstream>

// The policy of both resource managers, without threads or processes.
namespace {

using kvo::host::CodecCore;
using kvo::host::ResourcePool;
using Request = ResourcePool::Request;
using Number = ResourcePool::Number;
using Step = ResourcePool::Step;
using std::chrono::seconds;

constexpr int kFirstClient = 70001;

constexpr Request kDecoder{false, false, 1, 640, 480};
constexpr Request kLargeDecoder{false, false, 1, 1920, 1088};
constexpr Request kEncoder{false, true, 1, 640, 480};
constexpr Request kPort{true, false, 0, 0, 0};

constexpr CodecCore kSmallCore{1, false, 640, 480};
constexpr CodecCore kLargeCore{3, false, 1920, 1088};
constexpr CodecCore kEncoderCore{2, true, 640, 480};

ResourcePool::Clock::time_point gNow{};
int gLooks = 0;  ///< At the clock: how much the pool does.

/// A pool and what drives it: clients count from 1, and time stands still until it is moved.
class ResourcePoolTest : public testing::Test {
protected:
    void start(std::vector<CodecCore> const& cores) {
        mPool = std::make_unique<ResourcePool>(cores, [] {
            ++gLooks;
            return gNow;
        });
        mReclaims.clear();
        mNews.clear();
    }

    int open(int priority = 0) {
        return pool().openClient("test", {1, "test", priority}) - kFirstClient + 1;
    }

    /// A new client that is granted what it asks for at once.
    int holder(Request const& request, int priority = 0) {
        int const client = open(priority);
        EXPECT_EQ(next(ask(client, request)), "0");
        return client;
    }

    /// A request, from inside the reclaim from client `inside` if that is not 0.
    Number ask(int client, Request const& request, int inside = 0, bool tryOnly = false) {
        return pool().request(idOf(client), request, tryOnly, inside == 0 ? 0 : mReclaims[inside]);
    }

    /// What has become of a request since it was looked at: its result, or whom to ask or to wait
    /// for.
    std::string next(Number request) {
        for (Step const& step : pool().advance()) {
            int const client = step.holder - kFirstClient + 1;
            mNews[step.request] =
                step.reclaim == 0 ? std::to_string(step.code) : "asks " + std::to_string(client);
            if (step.reclaim != 0) {
                mReclaims[client] = step.reclaim;
            }
        }
        auto const news = mNews.extract(request);
        return news ? news.mapped()
                    : "waits for " + std::to_string(pool().waitsFor(request) - kFirstClient + 1);
    }

    void answer(int client, bool givesUp) { pool().finishReclaim(mReclaims[client], givesUp); }

    /// The type of the core that a client holds; 0 for none.
    int core(int client) {
        auto const* const core = pool().holding(idOf(client)).core;
        return core == nullptr ? 0 : core->type;
    }
    int port(int client) { return pool().holding(idOf(client)).port; }

    static int idOf(int client) { return client + kFirstClient - 1; }
    ResourcePool& pool() { return *mPool; }

private:
    std::unique_ptr<ResourcePool> mPool;
    std::map<int, int> mReclaims;  ///< The last from each client.
    std::map<Number, std::string> mNews;
};

TEST_F(ResourcePoolTest, TheLowestPriorityThenTheSmallestCoreThenTheLongestHolderIsAskedFirst) {
    struct Case {
        std::vector<int> holders;  ///< Their priorities, the longest holder first.
        std::vector<int> widths;   ///< Of their cores.
        int newcomer;
        std::vector<int> asked;
    };
    for (auto const& test :
         std::vector<Case>{{{0, 0, 0}, {640, 640, 640}, 0, {2, 3, 1}},
                           {{0, 0, 0}, {642, 640, 641}, 0, {2, 3, 1}},
                           {{2, 1, 0}, {640, 641, 642}, 2, {3, 2, 1}},
                           {{0, -1, 0, -1}, {641, 640, 640, 640}, 0, {2, 4, 3, 1}},
                           {{1, 0, 1}, {640, 640, 640}, 0, {2}},
                           {{-1, -1}, {640, 640}, -2, {}}}) {
        SCOPED_TRACE(testing::PrintToString(test.holders) + testing::PrintToString(test.widths));
        start({});
        std::vector<CodecCore> cores;
        for (std::size_t index = 0; index < test.holders.size(); ++index) {
            cores.push_back({1, false, test.widths[index], 480});
            pool().setCores(cores);
            holder(kDecoder, test.holders[index]);
        }
        EXPECT_EQ(next(ask(2, kDecoder)), "0") << "it has one and keeps it";
        pool().giveBack(idOf(1));
        EXPECT_EQ(next(ask(1, kDecoder)), "0") << "and holds from now on";
        EXPECT_EQ(next(ask(open(9), kDecoder, 0, true)), "-16") << "a try asks nobody";
        Number const request = ask(open(test.newcomer), kDecoder);
        for (int const asked : test.asked) {
            ASSERT_EQ(next(request), "asks " + std::to_string(asked));
            answer(asked, false);
            EXPECT_EQ(pool().clients().at(idOf(asked)).refusals, 1);
        }
        EXPECT_EQ(next(request), "-16");
    }
}

TEST_F(ResourcePoolTest, TheSmallestCoreThatFitsIsGrantedThenTheFirst) {
    struct Case {
        std::vector<Request> requests;  ///< Each of a new client.
        std::vector<int> cores;         ///< What they get: a type, or a result code.
    };
    for (auto const& test :
         std::vector<Case>{{{kDecoder, kLargeDecoder}, {1, 3}},
                           {{kDecoder, kDecoder, kEncoder, kEncoder}, {1, 3, 2, 4}},
                           {{{false, false, 1, 641, 1}, {false, false, 1, 1, 481}}, {3, -16}},
                           {{{false, false, 1, 1921, 1}, {false, false, 1, 1, 1089}}, {-95, -95}},
                           {{{false, true, 1, 641, 1}, {false, false, 0, 1, 1}}, {-95, -95}},
                           {{{false, false, 1, -1, 1}, {false, false, 1, 1, -1}}, {-22, -22}},
                           {{{false, false, -1, 1, 1}}, {-22}}}) {
        start({{4, true, 640, 480}});
        pool().setCores({kLargeCore, kSmallCore, kEncoderCore, {4, true, 640, 480}});
        std::vector<int> got;
        for (auto const& request : test.requests) {
            int const client = open();
            int const code = std::stoi(next(ask(client, request, 0, true)));
            got.push_back(code == 0 ? core(client) : code);
        }
        EXPECT_EQ(got, test.cores);
    }
}

TEST_F(ResourcePoolTest, AClientHasOneCoreAndOnePortAndEachHasItsOwnAge) {
    start({kSmallCore, kLargeCore});
    int const first = holder(kDecoder);
    int const second = holder(kLargeDecoder);
    EXPECT_EQ(next(ask(second, kPort)), "0");
    EXPECT_EQ(next(ask(first, kPort)), "0");
    EXPECT_EQ(next(ask(second, kPort)), "0") << "it has one";
    EXPECT_EQ(port(second), 1);
    EXPECT_EQ(port(first), 2);
    int const newcomer = open();
    Number const forPort = ask(newcomer, kPort);
    Number const forCore = ask(newcomer, kDecoder);
    EXPECT_EQ(next(forPort), "asks 1") << "it loses the smaller core with its port";
    EXPECT_EQ(next(forCore), "waits for 1");
    answer(first, true);
    EXPECT_EQ(core(first), 0);
    EXPECT_EQ(port(first), 0) << "it gives up all";
    EXPECT_EQ(pool().clients().at(idOf(first)).refusals, 0);
    EXPECT_EQ(next(forPort), "0");
    EXPECT_EQ(next(forCore), "0");
    EXPECT_EQ(next(ask(second, kDecoder)), "0");
    EXPECT_EQ(core(second), 3) << "the smaller core has gone to who waited for it";
    EXPECT_EQ(core(newcomer), 1);
    EXPECT_EQ(port(newcomer), 2);
    pool().giveBack(idOf(second));
    EXPECT_EQ(next(ask(newcomer, kLargeDecoder)), "0");
    EXPECT_EQ(core(newcomer), 3);
    EXPECT_EQ(core(holder(kDecoder)), 1) << "it has one core, and gave back the other";
}

TEST_F(ResourcePoolTest, WhatIsGivenUpGoesToWhoAskedAndWhatIsFreeToTheOldest) {
    start({kSmallCore, kLargeCore});
    int const small = holder(kDecoder);
    int const large = holder(kLargeDecoder);
    int const older = open();
    Number const forSmall = ask(older, kDecoder);
    int const newer = open();
    Number const forLarge = ask(newer, kLargeDecoder);
    int const last = open();
    Number const waiting = ask(last, kDecoder);
    int const end = open();
    Number const waitingToo = ask(end, kDecoder);
    holder(kPort);
    holder(kPort);
    Number const forPort = ask(last, kPort);
    EXPECT_EQ(next(forSmall), "asks 1");
    EXPECT_EQ(next(forLarge), "asks 2");
    EXPECT_EQ(next(waiting), "waits for 1");
    answer(large, true);
    EXPECT_EQ(core(newer), 3) << "not the older request's, which the core would serve, too";
    EXPECT_EQ(next(forLarge), "0");
    pool().closeClient(idOf(newer));
    EXPECT_EQ(next(forSmall), "0") << "also while it waits for an answer";
    EXPECT_EQ(core(older), 3);
    EXPECT_EQ(next(waiting), "waits for 1");
    pool().closeClient(idOf(last));
    EXPECT_EQ(next(waiting), "-22") << "at once";
    EXPECT_EQ(next(forPort), "-22");
    answer(small, true);
    EXPECT_EQ(next(waitingToo), "0") << "nobody else wants it";
    EXPECT_EQ(core(end), 1);
    EXPECT_EQ(next(ask(small, kDecoder)), "asks 6") << "who waited for it does so no longer";
}

// Each asks for what another holds, and answers only when its own request has ended.
TEST_F(ResourcePoolTest, NobodyStartsToWaitInARing) {
    start({kSmallCore, kEncoderCore});
    int const decoder = holder(kDecoder);
    int const encoder = holder(kEncoder);
    int const shown = holder(kPort);
    int const shownToo = holder(kPort, 1);
    EXPECT_EQ(next(ask(decoder, kEncoder)), "asks 2");
    EXPECT_EQ(next(ask(encoder, kDecoder)), "-16") << "of two";
    Number const forPort = ask(encoder, kPort);
    EXPECT_EQ(next(forPort), "asks 3");
    EXPECT_EQ(next(ask(shown, kDecoder)), "-16") << "of three";
    EXPECT_EQ(next(ask(open(), kDecoder)), "asks 1") << "one outside of it waits for its end";
    int const follower = open();
    Number const queued = ask(follower, kDecoder);
    EXPECT_EQ(next(queued), "waits for 1");
    pool().closeClient(idOf(shownToo));
    EXPECT_EQ(next(forPort), "0") << "another has become free";
    pool().closeClient(idOf(shown));
    EXPECT_EQ(next(ask(follower, kPort)), "0");
    pool().closeClient(idOf(5));
    EXPECT_EQ(next(ask(decoder, kPort)), "waits for 2") << "not for who follows one";
    pool().closeClient(idOf(follower));
    EXPECT_EQ(next(queued), "-22");
}

// Each holder of a core has many requests for the next larger one: looked at one by one, the ways
// from the last to the first would take hours.
TEST_F(ResourcePoolTest, ManyRequestsThatDependOnEachOtherAreDecided) {
    start({});
    auto const wider = [](int by) { return Request{false, false, 1, 640 + by, 480}; };
    std::vector<CodecCore> cores;
    for (int number = 0; number < 12; ++number) {
        cores.push_back({1, false, 640 + number, 480});
        pool().setCores(cores);
        holder(wider(number));
    }
    for (int request = 0; request < 8 * 11; ++request) {
        next(ask(request / 8 + 1, wider(request / 8 + 1)));
    }
    EXPECT_EQ(next(ask(1, kPort)), "0");
    EXPECT_EQ(next(ask(2, kPort)), "0");
    EXPECT_EQ(next(ask(12, kPort)), "-16");
    EXPECT_EQ(next(ask(open(), wider(0))), "asks 1");
}

TEST_F(ResourcePoolTest, OfManyInAQueueOnlyTheFirstIsLookedAt) {
    start({kSmallCore});
    holder(kDecoder);
    std::vector<Number> queue(1000);
    for (Number& request : queue) {
        request = ask(open(), kDecoder);
    }
    gLooks = 0;
    for (int served = 1; served < 1000; ++served) {
        Number const first = queue[static_cast<std::size_t>(served) - 1];
        EXPECT_EQ(next(first), "asks " + std::to_string(served));
        answer(served, true);
    }
    EXPECT_LT(gLooks, 20 * 1000) << "each costs the same, however many wait";
    EXPECT_EQ(next(queue.back()), "asks 1000");
    Number const heir = ask(open(), kDecoder);
    Number const newer = ask(open(), kDecoder);
    Number const newest = ask(open(), kDecoder);
    pool().closeClient(idOf(1001));
    answer(1000, true);
    EXPECT_EQ(next(heir), "0") << "not who is gone";
    EXPECT_EQ(next(newer), "asks 1002");
    answer(1002, false);
    EXPECT_EQ(next(newest), "-16") << "the refusal is for all";
}

TEST_F(ResourcePoolTest, WhatDiffersInAnythingButItsAgeIsDecidedForItself) {
    start({kSmallCore, kLargeCore, kEncoderCore});
    for (auto const& request : {kDecoder, kLargeDecoder, kEncoder, kPort}) {
        holder(request);
    }
    holder(kPort, 1);
    Number const first = ask(open(), {false, false, 1, 0, 0});
    EXPECT_EQ(next(first), "asks 1");
    EXPECT_EQ(next(ask(open(), {true, false, 1, 0, 0})), "asks 4");
    EXPECT_EQ(next(ask(open(), {false, true, 1, 0, 0})), "asks 3");
    EXPECT_EQ(next(ask(open(), {false, false, 1, 641, 0})), "asks 2");
    EXPECT_EQ(next(ask(open(), {false, false, 1, 0, 481})), "waits for 2");
    EXPECT_EQ(next(ask(open(-1), {false, false, 1, 0, 0})), "-16");
    answer(1, false);
    EXPECT_EQ(next(first), "waits for 2");
    EXPECT_EQ(next(ask(open(), {false, false, 1, 0, 0})), "asks 1");
}

// Two players which start anew whenever they lose their core.
TEST_F(ResourcePoolTest, ARequestInsideAReclaimIsAnsweredAndTakesNothingBack) {
    start({kSmallCore, kSmallCore, kLargeCore});
    int const first = holder(kLargeDecoder);
    int const late = holder(kDecoder);
    int const second = holder(kDecoder);
    int const newcomer = open();
    Number const request = ask(newcomer, kLargeDecoder);
    EXPECT_EQ(next(request), "asks 1");
    pool().giveBack(idOf(late));
    EXPECT_EQ(next(ask(late, kDecoder)), "0") << "it holds since the reclaim began";
    int const anew = open();
    Number const inside = ask(anew, kDecoder, first);
    EXPECT_EQ(next(inside), "asks 3") << "its own holder is passed over";
    EXPECT_EQ(next(ask(open(), kDecoder, second)), "-16") << "what it may take, too, is older";
    answer(second, false);
    EXPECT_EQ(next(inside), "-16");
    pool().giveBack(idOf(first));  // Inside the callback.
    EXPECT_EQ(next(request), "waits for 1") << "the callback may yet do more";
    EXPECT_EQ(core(newcomer), 3);
    pool().closeClient(idOf(second));
    EXPECT_EQ(next(ask(anew, kDecoder, first)), "0") << "what is free may be taken";
    pool().closeClient(idOf(anew));
    holder(kDecoder);
    EXPECT_EQ(next(ask(open(), kDecoder, first)), "-16") << "all are granted since it began";
    gNow += seconds(10);
    EXPECT_EQ(next(request), "0") << "at the latest";
}

TEST_F(ResourcePoolTest, ARequestHasOneBoundHoweverManyHoldersDoNotAnswer) {
    start({kSmallCore, kSmallCore, kSmallCore});
    holder(kDecoder);
    int const slow = holder(kDecoder);
    holder(kDecoder);
    auto const begin = gNow;
    Number const request = ask(open(), kDecoder);
    EXPECT_EQ(next(request), "asks 1");
    gNow += seconds(2);
    Number const later = ask(open(), {false, false, 1, 639, 480});
    EXPECT_EQ(next(later), "waits for 1");
    gNow = pool().nextDeadline();
    EXPECT_EQ(next(request), "asks 2") << "the first has not answered for long";
    EXPECT_EQ(gNow, begin + seconds(5));
    gNow = pool().nextDeadline();
    EXPECT_EQ(gNow, begin + seconds(10));
    EXPECT_EQ(next(request), "-110");

    EXPECT_EQ(next(later), "asks 3") << "the first is stuck, the second slow";
    Number const another = ask(open(), kDecoder);
    EXPECT_EQ(next(another), "waits for 3");
    gNow = pool().nextDeadline();
    EXPECT_EQ(gNow, begin + seconds(12));
    EXPECT_EQ(next(later), "-110");
    int const last = open();
    Number const waiting = ask(last, kDecoder);
    EXPECT_EQ(next(waiting), "waits for 3");
    answer(slow, true);
    EXPECT_EQ(next(another), "0") << "the oldest gets what is given up late";
    gNow += seconds(3);
    EXPECT_EQ(next(waiting), "asks 6");
    pool().giveBack(idOf(3));
    EXPECT_EQ(next(waiting), "0") << "it no longer has to wait for either";
    answer(6, true);
    EXPECT_EQ(core(holder(kDecoder)), 1);

    start({kSmallCore, kSmallCore});
    int const first = holder(kDecoder);
    int const second = holder(kDecoder);
    Number const asking = ask(open(), kDecoder);
    Number const other = ask(open(), {false, false, 1, 639, 480});
    EXPECT_EQ(next(asking), "asks 1");
    gNow += seconds(5);
    EXPECT_EQ(next(asking), "asks 2");
    int const byHand = pool().startReclaim(idOf(second));
    answer(first, false);
    answer(second, false);
    EXPECT_EQ(next(asking), "-16") << "nobody is asked twice for it";
    EXPECT_EQ(next(other), "waits for 2") << "it may yet give up";
    pool().finishReclaim(byHand, false);
    EXPECT_EQ(next(other), "asks 1");
    gNow += seconds(5);
    EXPECT_EQ(next(other), "-110") << "though nobody is stuck";
}

TEST_F(ResourcePoolTest, WhoHasJustBeenGrantedACoreIsNotYetAskedForIt) {
    start({kSmallCore, kLargeCore});
    pool().setLeastHold(seconds(2));
    holder(kDecoder);
    EXPECT_EQ(next(ask(open(), kDecoder)), "0") << "the large one is free";
    Number const waiting = ask(open(), kDecoder);
    EXPECT_EQ(next(waiting), "waits for 1");
    EXPECT_EQ(pool().nextDeadline(), gNow + seconds(2));
    gNow += seconds(2);
    EXPECT_EQ(next(waiting), "asks 1");
    pool().setLeastHold(seconds(12));
    EXPECT_EQ(next(ask(open(), kLargeDecoder)), "-16") << "it could not wait that long";
}

TEST_F(ResourcePoolTest, AHolderIsWaitedForUntilItsDeadlineAndMayAnswerLater) {
    start({kSmallCore, kEncoderCore});
    int const stuck = holder(kDecoder);
    Number const request = ask(open(), kDecoder);
    auto const deadline = gNow + seconds(10);
    EXPECT_EQ(next(request), "asks 1");
    gNow = deadline - seconds(1);
    EXPECT_EQ(next(request), "waits for 1");
    EXPECT_EQ(pool().stuckClients(), "");
    gNow = deadline;
    EXPECT_EQ(next(request), "-110");
    EXPECT_EQ(pool().nextDeadline(), ResourcePool::Clock::time_point::max());
    EXPECT_EQ(pool().stuckClients(), "client 70001 of process 1 (test)");
    EXPECT_NE(pool().describe().find("STUCK 10.0 s"), std::string::npos);
    gNow += std::chrono::hours(2);
    EXPECT_EQ(next(ask(open(), kDecoder)), "-110") << "nobody waits for it or asks it anew";

    pool().setCores({kLargeCore});
    answer(stuck, true);
    EXPECT_EQ(core(stuck), 0);
    EXPECT_EQ(pool().stuckClients(), "");
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "gone with its holder";
}

TEST_F(ResourcePoolTest, TheCoresOfAnEarlierPoolAreKeptAndNotAskedFor) {
    start({kSmallCore, kSmallCore, kEncoderCore});
    int const gone = holder(kDecoder);
    holder(kEncoder);
    int const old = holder(kDecoder);
    pool().closeClient(idOf(gone));
    Number const forEncoder = ask(open(), kEncoder);
    EXPECT_EQ(next(forEncoder), "asks 2");
    pool().setCores({kSmallCore, kEncoderCore});
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "what nobody holds goes first";
    pool().setCores({kLargeCore});
    EXPECT_EQ(next(forEncoder), "-95");
    EXPECT_NE(pool().describe().find("old "), std::string::npos);
    holder(kDecoder);
    EXPECT_EQ(next(ask(open(), kDecoder)), "asks 5");
    EXPECT_EQ(next(ask(old, kDecoder)), "waits for 5") << "it has none of this pool";
    EXPECT_EQ(core(old), 1);
    EXPECT_EQ(next(ask(open(), kEncoder)), "-95");
    pool().setCores({kSmallCore, kLargeCore, kEncoderCore});
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "all are in the new pool";
    EXPECT_EQ(next(ask(open(), kDecoder, 0, true)), "-16");
}

TEST_F(ResourcePoolTest, TheTablesFitATerminal) {
    start({{1, false, 65535, 65535}});
    int const client =
        pool().openClient("test", {4194304, std::string(200, 'x'), 0}, INT32_MAX - 1);
    EXPECT_EQ(next(pool().request(client, kDecoder, false, 0)), "0");
    EXPECT_NE(next(ask(open(), kDecoder)), "0");
    gNow += std::chrono::hours(10000);
    std::istringstream lines(pool().describe());
    for (std::string line; std::getline(lines, line);) {
        EXPECT_LE(line.size(), 80U) << line;
    }
}

TEST_F(ResourcePoolTest, NoIdIsGivenOutTwice) {
    start({});
    auto const opened = [&](int above) { return pool().openClient("test", {}, above); };
    EXPECT_EQ(opened(0), 70001);
    EXPECT_EQ(opened(70002), 70003) << "above a bound";
    EXPECT_EQ(opened(0), 70002) << "which uses up no ids of the others";
    EXPECT_EQ(opened(0), 70004) << "70003 is in use";
    pool().closeClient(70004);
    EXPECT_EQ(opened(0), 70005) << "not one that was closed";
    EXPECT_EQ(opened(90000), 90001);
    int const reclaim = pool().startReclaim(90001);
    EXPECT_TRUE(pool().closeClient(90001));
    EXPECT_FALSE(pool().closeClient(90001));
    EXPECT_EQ(opened(90000), 90002) << "the other may still be asked";
    pool().finishReclaim(reclaim, false);
    EXPECT_EQ(opened(INT32_MAX), 70004) << "they are used up, and start anew";
    EXPECT_EQ(opened(INT32_MAX - 1), INT32_MAX);
    EXPECT_EQ(pool().clients().size(), 7U);
    EXPECT_EQ(pool().clients().begin()->second.refusals, 0);
}

}  // namespace
