#include "host/ResourcePool.h"

#include <gtest/gtest.h>

#include <functional>
#include <regex>
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
        mRequests.clear();
        mNews.clear();
    }

    int open(int priority = 0) {
        return pool().openClient("test", {1, "test", priority}) - kFirstClient + 1;
    }

    /// A client's request, and its state() then.
    std::string ask(int client, Request const& request, int inside = 0, bool tryOnly = false) {
        mRequests[client].push_back(pool().request(idOf(client), request, tryOnly, inside));
        return state(client);
    }

    /// What has become of a client's requests since they were looked at: the result, also who gave
    /// up for it, or whom to ask or to wait for.
    std::string state(int client) {
        for (Step const& step : pool().advance()) {
            int const holder = step.holder - kFirstClient + 1;
            mNews[step.request] = (step.reclaim != 0 ? "asks " : std::to_string(step.code)) +
                                  (step.reclaim == 0 && step.holder != 0 ? " from " : "") +
                                  (step.holder == 0 ? "" : std::to_string(holder));
            if (step.reclaim != 0) {
                mReclaims[holder] = step.reclaim;
            }
        }
        std::string all;
        for (Number const request : std::exchange(mRequests[client], {})) {
            auto const news = mNews.extract(request);
            all += (all.empty() ? "" : " and ") +
                   (news ? news.mapped()
                         : "waits for " + std::to_string(pool().waitsFor(request) - idOf(0)));
            if (!news || news.mapped()[0] == 'a') {
                mRequests[client].push_back(request);
            }
        }
        return all;
    }

    /// Plays a scene of steps like "3 decoder: asks 1": what client 3 does, and the state() of its
    /// requests then. It asks for a "port", for a "decoder" or "encoder" of no size, for a "large"
    /// decoder or one by size; only "tries" it; does it "inside" the reclaim from another; or acts.
    /// It opens with its first step, "at" a priority.
    void play(std::string const& scene) {
        static std::regex const parts(
            R"((\d+)( tries)?(?: (.+?))??(?: at (-?\d+))?(?: inside (\d+))?(?:: (.*))?)");
        std::map<std::string, std::function<void(int)>> const acts{
            {"s later", [](int time) { gNow += seconds(time); }},
            {"gives up", [&](int client) { answer(client, true); }},
            {"keeps", [&](int client) { answer(client, false); }},
            {"gives back", [&](int client) { pool().giveBack(idOf(client)); }},
            {"closes", [&](int client) { pool().closeClient(idOf(client)); }},
            {"is reclaimed",
             [&](int client) { mReclaims[client] = pool().startReclaim(idOf(client)); }}};
        std::istringstream steps(scene);
        for (std::string step; std::getline(steps >> std::ws, step, ',');) {
            std::smatch part;
            ASSERT_TRUE(std::regex_match(step, part, parts)) << step;
            auto const number = [&](std::size_t index) {
                return std::atoi(part.str(index).c_str());
            };
            int const client = number(1);
            std::string const wish = part[3];
            auto const act = acts.find(wish);
            if (act != acts.end()) {
                act->second(client);
                continue;
            }
            if (mRequests.count(client) == 0) {
                ASSERT_EQ(open(number(4)), client) << step;
            }
            int const inside = part[5].matched ? mReclaims.at(number(5)) : 0;
            EXPECT_EQ(wish.empty()      ? state(client)
                      : wish == "holds" ? held(client)
                                        : ask(client, requestOf(wish), inside, part[2].matched),
                      part[6])
                << step;
        }
    }

    std::string held(int client) {
        auto const [core, port] = pool().holding(idOf(client));
        return core == nullptr ? port == 0 ? "nothing" : "port " + std::to_string(port)
                               : "type " + std::to_string(core->type) +
                                     (port == 0 ? "" : " and port " + std::to_string(port));
    }

    static Request requestOf(std::string const& wish) {
        auto const by = wish.find('x');
        return wish == "large" ? kLargeDecoder
               : by == std::string::npos
                   ? Request{wish == "port", wish == "encoder", 1, 0, 0}
                   : Request{false, false, 1, std::stoi(wish), std::stoi(wish.substr(by + 1))};
    }

    void answer(int client, bool givesUp) { pool().finishReclaim(mReclaims.at(client), givesUp); }
    static int idOf(int client) { return client + (kFirstClient - 1); }
    ResourcePool& pool() { return *mPool; }

private:
    std::unique_ptr<ResourcePool> mPool;
    std::map<int, int> mReclaims;                  ///< The last from each client.
    std::map<int, std::vector<Number>> mRequests;  ///< Those of each client that have not ended.
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
            EXPECT_EQ(ask(open(test.holders[index]), kDecoder), "0");
        }
        play("2 decoder: 0, 1 gives back, 1 decoder: 0");  // 2 keeps its one, 1's is the newest.
        EXPECT_EQ(ask(open(9), kDecoder, 0, true), "-16") << "a try asks nobody";
        int const newcomer = open(test.newcomer);
        std::string becomes = ask(newcomer, kDecoder);
        for (int const asked : test.asked) {
            ASSERT_EQ(becomes, "asks " + std::to_string(asked));
            answer(asked, false);
            EXPECT_EQ(pool().clients().at(idOf(asked)).refusals, 1);
            becomes = state(newcomer);
        }
        EXPECT_EQ(becomes, "-16");
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
        // The first stays; each of the others differs in one thing from one that comes.
        start(
            {{4, true, 640, 480}, {2, false, 640, 480}, {3, false, 9, 1088}, {3, false, 1920, 9}});
        pool().setCores({kLargeCore, kSmallCore, kEncoderCore, {4, true, 640, 480}});
        std::vector<int> got;
        for (auto const& request : test.requests) {
            int const client = open();
            int const code = std::stoi(ask(client, request, 0, true));
            got.push_back(code == 0 ? pool().holding(idOf(client)).core->type : code);
        }
        EXPECT_EQ(got, test.cores);
    }
}

TEST_F(ResourcePoolTest, AClientHasOneCoreAndOnePortAndEachHasItsOwnAge) {
    start({kSmallCore, kLargeCore, kEncoderCore});
    play("1 decoder: 0, 2 decoder: 0, 2 port: 0, 1 port: 0, 2 port: 0");  // It has one.
    play("2 holds: type 3 and port 1, 1 holds: type 1 and port 2");  // The smaller core goes first.
    play("3 port: asks 1, 3 decoder: waits for 1 and waits for 1, 1 gives up, 1 holds: nothing");
    EXPECT_EQ(pool().clients().at(idOf(1)).refusals, 0);
    play("3: 0 from 1 and 0, 2 decoder: 0, 2 holds: type 3 and port 1, 3 holds: type 1 and port 2");
    play("2 gives back, 3 large: 0, 3 holds: type 3 and port 2, 4 decoder: 0, 4 holds: type 1");
    play("5 decoder: asks 4, 3 encoder: 0, 5 holds: type 3");  // At once.
}

TEST_F(ResourcePoolTest, WhatIsGivenUpGoesToWhoAskedAndWhatIsFreeToTheOldest) {
    start({kSmallCore, kLargeCore});
    play("1 decoder: 0, 2 decoder: 0, 3 decoder: asks 1, 4 large: asks 2");
    play("5 decoder: waits for 1, 6 decoder: waits for 1, 7 port: 0, 8 port: 0");
    play("5 port: waits for 1 and asks 7, 2 gives up, 4 holds: type 3");  // Though 3 is older.
    play("4: 0 from 2, 4 closes, 3: 0, 3 holds: type 3");  // Also while it waits for an answer.
    play("5: waits for 1 and waits for 7, 5 closes, 5: -22 and -22");  // At once.
    play("1 gives up, 6: 0, 6 holds: type 1, 1 decoder: asks 6");  // Nobody waits for 1 any longer.

    start({kSmallCore, kSmallCore, kLargeCore});
    play("1 decoder: 0, 2 decoder: 0, 3 decoder: 0, 4 decoder: asks 1, 5 1x1: waits for 1");
    play("2 gives back, 3 gives back, 4: 0, 5: 0, 4 holds: type 1, 5 holds: type 3");

    start({kSmallCore, kLargeCore});  // What was given up is kept, though a smaller one is free.
    play("1 1x999 at -1: 0, 2 decoder: 0, 3 decoder: asks 1, 4 decoder: waits for 1, 1 gives back");
    play("4: asks 2, 4 closes, 2 closes");  // Nor does 4 wait for 1 any longer.
    play("3: waits for 1, 3 holds: type 3, 1 gives up, 3: 0 from 1, 3 holds: type 3");

    start({kSmallCore, kSmallCore, kEncoderCore});  // Also what 1 leaves for another.
    play("1 encoder: 0, 2 decoder: 0, 3 decoder: 0, 4 encoder: asks 1, 1 decoder: asks 2");
    play("5 encoder at 1: waits for 1, 3 gives back, 4: 0, 5: asks 4");
}

TEST_F(ResourcePoolTest, WhoGaveUpMayBeAskedAgain) {
    start({kSmallCore, kLargeCore});
    play("1 decoder: 0, 2 decoder: 0, 1 large: asks 2, 3 decoder: asks 1, 4 1x1: waits for 1");
    play("1 gives up, 4: asks 3, 2 gives up, 1: 0 from 2, 3 keeps, 4: asks 1");
}

// Each asks for what another holds, and answers only when its own request has ended.
TEST_F(ResourcePoolTest, NobodyStartsToWaitInARing) {
    start({kSmallCore, kEncoderCore});
    play("1 decoder: 0, 2 encoder: 0, 3 port: 0, 4 port at 1: 0");
    play("5 encoder: asks 2, 1 encoder: waits for 2, 2 decoder: -16");  // Of two.
    play("2 port: asks 3, 3 decoder: -16");                             // Of three.
    play("6 decoder: asks 1, 7 decoder: waits for 1, 4 closes, 2: 0");  // Free meanwhile.
    play("3 closes, 7 port: waits for 1 and 0, 1 port: waits for 2 and waits for 2");

    start({kSmallCore});
    play("1 decoder: 0, 2 port: 0, 3 port at 1: 0, 2 decoder: asks 1, 4 1x1: waits for 1");
    play("1 gives back, 2: waits for 1");                 // Its callback may yet do more,
    play("4: asks 2, 5 port: waits for 2, 1 port: -16");  // and may wait for what 1 asks for.

    start({kSmallCore, kEncoderCore});  // Whoever's callback the request comes from.
    play("1 encoder: 0, 2 decoder: 0, 3 port: 0, 3 is reclaimed, 2 encoder: asks 1");
    play("1 decoder inside 3: -16");
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
        EXPECT_EQ(ask(open(), wider(number)), "0");
    }
    for (int request = 0; request < 8 * 11; ++request) {
        pool().request(idOf(request / 8 + 1), wider(request / 8 + 1), false, 0);
    }
    play("1 port: 0, 2 port: 0, 12 port: -16, 13 640x480: asks 1");
}

TEST_F(ResourcePoolTest, OfManyInAQueueOnlyTheFirstIsLookedAt) {
    start({kSmallCore});
    play("1 decoder: 0, 2 decoder: asks 1");
    for (int waiting = 3; waiting <= 1001; ++waiting) {
        EXPECT_EQ(ask(open(), kDecoder), "waits for 1");
    }
    gLooks = 0;
    for (int served = 1; served < 1000; ++served) {
        answer(served, true);
        EXPECT_EQ(state(served + 2), "asks " + std::to_string(served + 1));
    }
    EXPECT_LT(gLooks, 20 * 1000) << "each costs the same, however many wait";
    play("1002 640x480: waits for 1000, 1003 640x480: waits for 1000");
    play("1004 640x480: waits for 1000, 1001 closes, 1000 gives up, 1002: 0");  // Who is not gone.
    play("1003: asks 1002, 1002 keeps, 1004: -16");  // The refusal is for all.
}

TEST_F(ResourcePoolTest, WhatDiffersInAnythingButItsAgeIsDecidedForItself) {
    start({kSmallCore, kLargeCore, kEncoderCore});
    play("1 decoder: 0, 2 decoder: 0, 3 encoder: 0, 4 port: 0, 5 port at 1: 0");
    play("6 decoder: asks 1, 7 port: asks 4, 8 encoder: asks 3, 9 641x0: asks 2");
    play("10 0x481: waits for 2, 11 decoder at -1: -16");
    play("1 keeps, 6: waits for 2, 12 decoder: asks 1");
}

// Two players which start anew whenever they lose their core.
TEST_F(ResourcePoolTest, ARequestInsideAReclaimIsAnsweredAndTakesNothingBack) {
    start({kSmallCore, kSmallCore, kLargeCore});
    play("1 large: 0, 2 decoder: 0, 3 decoder: 0, 4 large: asks 1");
    play("2 gives back, 2 decoder: 0");  // It holds since the reclaim began.
    play("5 decoder inside 1: asks 3");  // Its own holder is passed over.
    play("6 decoder inside 3: -16");     // What it may take, too, is older.
    play("3 keeps, 5: -16, 1 gives back, 4: waits for 1, 4 holds: type 3");
    play("3 closes, 5 decoder inside 1: 0, 5 closes");  // What is free may be taken.
    play("7 decoder: 0, 8 decoder inside 1: -16, 10 s later, 4: 0 from 1");  // At the latest.

    start({kSmallCore, kSmallCore});
    play("1 decoder: 0, 2 decoder: 0, 1 is reclaimed, 3 decoder inside 1: asks 2, 2 keeps, 3: -16");
    play("2 gives back, 2 decoder: 0, 3 decoder inside 1: -16");
}

TEST_F(ResourcePoolTest, ARequestHasOneBoundHoweverManyHoldersDoNotAnswer) {
    auto const begin = gNow;
    auto const wait = [&] {
        gNow = pool().nextDeadline();
        return (gNow - begin) / seconds(1);
    };
    start({kSmallCore, kSmallCore, kSmallCore});
    play("1 decoder: 0, 2 decoder: 0, 3 decoder: 0, 4 decoder: asks 1");
    play("2 s later, 5 1x1: waits for 1");
    EXPECT_EQ(wait(), 5);
    play("4: asks 2");
    EXPECT_EQ(wait(), 10);
    play("4: -110, 5: asks 3, 6 decoder: waits for 3");  // The first is stuck, the second slow.
    EXPECT_EQ(wait(), 12);
    play("5: -110, 7 decoder: waits for 3, 2 gives up, 6: 0");  // The oldest, when it comes late.
    play("3 s later, 7: asks 6, 3 gives back, 7: 0, 6 gives up, 8 decoder: 0");

    start({kSmallCore, kSmallCore});
    play("1 decoder: 0, 2 decoder: 0, 3 decoder: asks 1, 4 1x1: waits for 1, 5 s later, 3: asks 2");
    int const byHand = pool().startReclaim(idOf(2));
    play("1 keeps, 2 keeps, 3: -16, 4: waits for 2");  // Nobody is asked twice for a request.
    pool().finishReclaim(byHand, false);
    play("4: asks 1, 5 s later, 4: -110");  // Though nobody is stuck.

    start({kSmallCore});  // Of two reclaims the longer one counts.
    play("1 decoder: 0, 1 is reclaimed, 5 s later, 2 decoder: waits for 1, 2 s later");
    play("1 is reclaimed, 3 s later, 2: -110");
}

TEST_F(ResourcePoolTest, WhoHasJustBeenGrantedACoreIsNotYetAskedForIt) {
    start({kSmallCore, kLargeCore});
    pool().setLeastHold(seconds(2));
    play("1 decoder: 0, 2 decoder: 0, 3 decoder: waits for 1");
    EXPECT_EQ(pool().nextDeadline(), gNow + seconds(2));
    play("4 port: 0, 5 port: 0, 6 port: waits for 4, 2 s later, 3: asks 1, 6: asks 4");
    pool().setLeastHold(seconds(12));
    play("7 large: -16");  // It could not wait that long.
}

TEST_F(ResourcePoolTest, AHolderIsWaitedForUntilItsDeadlineAndMayAnswerLater) {
    start({kSmallCore, kEncoderCore});
    play("1 decoder: 0, 2 decoder: asks 1, 9 s later, 2: waits for 1");
    EXPECT_EQ(pool().stuckClients(), "");
    play("1 s later, 2: -110");
    EXPECT_EQ(pool().nextDeadline(), ResourcePool::Clock::time_point::max());
    EXPECT_EQ(pool().stuckClients(), "client 70001 of process 1 (test)");
    EXPECT_NE(pool().describe().find("STUCK 10.0 s"), std::string::npos);
    play("3590 s later, 3 decoder: -110");  // Nobody waits for it or asks it anew.
    EXPECT_NE(pool().describe().find("STUCK 60 min"), std::string::npos);

    pool().setCores({kLargeCore});
    play("1 gives up, 1 holds: nothing");
    EXPECT_EQ(pool().stuckClients(), "");
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "gone with its holder";
}

TEST_F(ResourcePoolTest, TheCoresOfAnEarlierPoolAreKeptAndNotAskedFor) {
    start({kSmallCore, kSmallCore, kEncoderCore});
    play("1 decoder: 0, 2 encoder: 0, 3 decoder: 0, 1 closes, 4 encoder: asks 2");
    pool().setCores({kSmallCore, kEncoderCore});
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "what nobody holds goes first";
    pool().setCores({kLargeCore});
    EXPECT_NE(pool().describe().find("old "), std::string::npos);
    play("4: -95, 5 decoder: 0, 6 decoder: asks 5");
    play("3 decoder: waits for 5, 3 holds: type 1, 7 encoder: -95");  // It has none of this pool.
    pool().setCores({kSmallCore, kLargeCore, kEncoderCore});
    EXPECT_EQ(pool().describe().find("old "), std::string::npos) << "all are in the new pool";
    play("8 tries decoder: -16");
}

TEST_F(ResourcePoolTest, TheTablesFitATerminal) {
    start({{1, false, 65535, 65535}});
    int const client =
        pool().openClient("test", {4194304, std::string(200, 'x'), 0}, INT32_MAX - 1);
    EXPECT_EQ(ask(client - idOf(0), kDecoder), "0");
    EXPECT_NE(ask(open(), kDecoder), "0");
    gNow += std::chrono::hours(10000);
    EXPECT_NE(pool().describe().find("x 2147483647 10000 h "), std::string::npos)
        << "the name is cut";
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
    EXPECT_EQ(opened(70002), 70004) << "70003 is in use";
    pool().closeClient(70004);
    EXPECT_EQ(opened(0), 70005) << "not one that was closed";
    EXPECT_EQ(opened(90000), 90001);
    int const reclaim = pool().startReclaim(90001);
    EXPECT_TRUE(pool().closeClient(90001));
    EXPECT_FALSE(pool().closeClient(90001));
    EXPECT_EQ(opened(90000), 90002) << "the other may still be asked";
    pool().finishReclaim(reclaim, false);
    pool().closeClient(70001);
    EXPECT_EQ(opened(INT32_MAX), 70001) << "they are used up, and start anew";
    EXPECT_EQ(opened(INT32_MAX - 1), INT32_MAX);
    EXPECT_EQ(pool().clients().size(), 6U);
    EXPECT_EQ(pool().clients().begin()->second.refusals, 0);
}

}  // namespace
