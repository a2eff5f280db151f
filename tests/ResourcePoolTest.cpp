#include "host/ResourcePool.h"

#include <gtest/gtest.h>

// The policy of both resource managers, without threads or processes.
namespace {

using kvo::host::CodecCore;
using kvo::host::ResourcePool;
using Request = ResourcePool::Request;
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

/// A pool and what drives it: clients count from 1, and time stands still until it is moved.
class ResourcePoolTest : public testing::Test {
protected:
    void start(std::vector<CodecCore> const& cores) {
        mPool = std::make_unique<ResourcePool>(cores, [] { return gNow; });
        mReclaims.clear();
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
    int ask(int client, Request const& request, int inside = 0, bool tryOnly = false) {
        return pool().request(idOf(client), request, tryOnly, inside == 0 ? 0 : mReclaims[inside]);
    }

    /// What is to be done for a request: its result, or whom to ask or to wait for.
    std::string next(int request) {
        Step const step = pool().advance(request);
        if (step.kind == Step::Kind::kFinished) {
            return std::to_string(step.code);
        }
        int const client = step.holder - kFirstClient + 1;
        if (step.kind == Step::Kind::kReclaim) {
            mReclaims[client] = step.reclaim;
        }
        return (step.kind == Step::Kind::kReclaim ? "asks " : "waits for ") +
               std::to_string(client);
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
};

TEST_F(ResourcePoolTest, TheLowestPriorityThenTheLongestHolderIsAskedFirst) {
    struct Case {
        std::vector<int> holders;  ///< Their priorities, the longest holder first.
        int newcomer;
        std::vector<int> asked;
    };
    for (auto const& test : std::vector<Case>{{{0, 0, 0}, 0, {1, 2, 3}},
                                              {{2, 1, 0}, 2, {3, 2, 1}},
                                              {{0, -1, 0, -1}, 0, {2, 4, 1, 3}},
                                              {{1, 0, 1}, 0, {2}},
                                              {{-1, -1}, -2, {}}}) {
        SCOPED_TRACE(testing::PrintToString(test.holders));
        std::vector<CodecCore> cores;
        for (auto const& ignored : test.holders) {
            static_cast<void>(ignored);
            cores.insert(cores.begin(), {1, false, 640 + static_cast<int>(cores.size()), 480});
        }
        start(cores);  // The last is granted first.
        for (int const priority : test.holders) {
            holder(kDecoder, priority);
        }
        EXPECT_EQ(next(ask(open(9), kDecoder, 0, true)), "-16") << "a try asks nobody";
        int const request = ask(open(test.newcomer), kDecoder);
        for (int const asked : test.asked) {
            ASSERT_EQ(next(request), "asks " + std::to_string(asked));
            answer(asked, false);
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
                           {{{false, true, 1, 641, 1}, {false, false, 0, 1, 1}}, {-95, -95}}}) {
        start({kLargeCore, kSmallCore, kEncoderCore, {4, true, 640, 480}});
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
    int const forPort = ask(newcomer, kPort);
    int const forCore = ask(newcomer, kDecoder);
    EXPECT_EQ(next(forPort), "asks 2");
    EXPECT_EQ(next(forCore), "asks 1");
    answer(first, true);
    EXPECT_EQ(core(first), 0);
    EXPECT_EQ(port(first), 0) << "it gives up all";
    EXPECT_EQ(next(forPort), "waits for 2") << "a request that asked waits for its answer";
    EXPECT_EQ(next(ask(second, kDecoder)), "0");
    EXPECT_EQ(core(second), 3) << "the smaller core has gone to who asked for it";
    EXPECT_EQ(core(newcomer), 1);
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
    int const forSmall = ask(older, kDecoder);
    int const newer = open();
    int const forLarge = ask(newer, kLargeDecoder);
    int const last = open();
    int const waiting = ask(last, kDecoder);
    int const end = open();
    int const waitingToo = ask(end, kDecoder);
    EXPECT_EQ(next(forSmall), "asks 1");
    EXPECT_EQ(next(forLarge), "asks 2");
    EXPECT_EQ(next(waiting), "waits for 1");
    answer(large, true);
    EXPECT_EQ(core(newer), 3) << "not the older request's, which the core would serve, too";
    EXPECT_EQ(next(forLarge), "0");
    pool().closeClient(idOf(newer));
    EXPECT_EQ(next(forSmall), "waits for 1") << "it has just asked";
    EXPECT_EQ(next(waitingToo), "waits for 1") << "another is older";
    EXPECT_EQ(next(waiting), "0");
    EXPECT_EQ(core(last), 3);
    answer(small, false);
    EXPECT_EQ(next(forSmall), "asks " + std::to_string(last));
    pool().closeClient(idOf(older));
    answer(last, true);
    EXPECT_EQ(next(forSmall), "-22") << "a closed client is granted nothing";
    EXPECT_EQ(next(waitingToo), "0");
    EXPECT_EQ(core(end), 3);
}

// Each asks for what another holds, and answers only when its own request has ended.
TEST_F(ResourcePoolTest, NobodyStartsToWaitInARing) {
    start({kSmallCore, kEncoderCore});
    int const decoder = holder(kDecoder);
    int const encoder = holder(kEncoder);
    int const shown = holder(kPort);
    holder(kPort, 1);
    EXPECT_EQ(next(ask(decoder, kEncoder)), "asks 2");
    EXPECT_EQ(next(ask(encoder, kDecoder)), "-16") << "of two";
    EXPECT_EQ(next(ask(encoder, kPort)), "asks 3");
    EXPECT_EQ(next(ask(shown, kDecoder)), "-16") << "of three";
    EXPECT_EQ(next(ask(open(), kDecoder)), "asks 1") << "one outside of it waits for its end";
}

// Two players which start anew whenever they lose their core.
TEST_F(ResourcePoolTest, ARequestInsideAReclaimIsAnsweredAndTakesNothingBack) {
    start({kSmallCore, kSmallCore, kLargeCore});
    int const first = holder(kDecoder);
    int const late = holder(kDecoder);
    int const second = holder(kLargeDecoder);
    int const newcomer = open();
    int const request = ask(newcomer, kDecoder);
    EXPECT_EQ(next(request), "asks 1");
    pool().giveBack(idOf(late));
    EXPECT_EQ(next(ask(late, kDecoder)), "0") << "it holds since the reclaim began";
    int const anew = open();
    int const inside = ask(anew, kDecoder, first);
    EXPECT_EQ(next(inside), "asks 3") << "its own holder is passed over";
    EXPECT_EQ(next(ask(open(), kDecoder, second)), "-16") << "what it may take, too, is older";
    answer(second, false);
    EXPECT_EQ(next(inside), "-16");
    pool().giveBack(idOf(first));  // Inside the callback.
    EXPECT_EQ(core(newcomer), 1);
    EXPECT_EQ(next(request), "waits for 1") << "the callback may yet do more";
    pool().closeClient(idOf(second));
    EXPECT_EQ(next(ask(anew, kLargeDecoder, first)), "0") << "what is free may be taken";
    pool().closeClient(idOf(anew));
    holder(kDecoder);
    EXPECT_EQ(next(ask(open(), kDecoder, first)), "-16") << "all are granted since it began";
    answer(first, true);
    EXPECT_EQ(next(request), "0");
}

TEST_F(ResourcePoolTest, AHolderIsWaitedForUntilItsDeadlineAndMayAnswerLater) {
    start({kSmallCore, kEncoderCore});
    int const stuck = holder(kDecoder);
    int const request = ask(open(), kDecoder);
    auto const deadline = gNow + seconds(10);
    EXPECT_EQ(next(request), "asks 1");
    EXPECT_EQ(pool().nextDeadline(), deadline);
    gNow = deadline - seconds(1);
    EXPECT_EQ(next(request), "waits for 1");
    EXPECT_EQ(pool().stuckClients(), "");
    gNow = deadline;
    EXPECT_EQ(next(request), "-110");
    EXPECT_EQ(next(ask(open(), kDecoder)), "-110") << "nobody waits for it anew";
    EXPECT_EQ(pool().nextDeadline(), ResourcePool::Clock::time_point::max());
    EXPECT_EQ(pool().stuckClients(), "client 70001 of process 1 (test)");
    EXPECT_NE(pool().describe().find("STUCK, asked 10.0 s ago"), std::string::npos);

    pool().setCores({kSmallCore, kLargeCore});
    int const willing = holder(kDecoder);
    int const other = holder(kLargeDecoder, 1);
    EXPECT_EQ(next(ask(open(), kDecoder)), "asks " + std::to_string(willing));
    answer(willing, true);
    EXPECT_EQ(core(other), 3);
    EXPECT_EQ(core(stuck), 1) << "of the old pool";
    answer(stuck, true);
    EXPECT_EQ(core(stuck), 0);
    EXPECT_EQ(pool().stuckClients(), "");
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "gone with its holder";
}

TEST_F(ResourcePoolTest, TheCoresOfAnEarlierPoolAreKeptAndNotAskedFor) {
    start({kSmallCore, kSmallCore});
    int const old = holder(kDecoder);
    pool().setCores({kLargeCore});
    EXPECT_NE(pool().describe().find("old "), std::string::npos);
    holder(kDecoder);
    EXPECT_EQ(next(ask(open(), kDecoder)), "asks 2");
    EXPECT_EQ(core(old), 1);
    EXPECT_EQ(next(ask(open(), kEncoder)), "-95");
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
    EXPECT_EQ(pool().clients().size(), 5U);
    EXPECT_EQ(pool().clients().begin()->second.refusals, 0);
}

}  // namespace
