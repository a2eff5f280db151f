#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <thread>

#include "FakeCodecs.h"
#include "Journal.h"
#include "SystemUtils.h"
#include "kvo_media_log.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw_crm.h"
#include "tvhw_vbe.h"

// The stand-ins are what every other test trusts.
namespace {

using kvo::media::platform::SystemUtils;

struct Client {
    TVHW_CRM_HANDLE handle = nullptr;
    int answer = 1;
    int reclaims = 0;
    std::thread::id reclaimThread;
    bool freesItself = false;
    std::function<void()> onReclaimed;

    Client() { EXPECT_EQ(TVHW_CRM_ClientInit(&handle, "test", onReclaim, 0, this), 0); }
    ~Client() {
        if (handle != nullptr) {
            TVHW_CRM_ClientFree(&handle);
        }
    }

    static int onReclaim(TVHW_CRM_RECLAIM_PARAM const*, void* cookie) {
        auto& client = *static_cast<Client*>(cookie);
        ++client.reclaims;
        client.reclaimThread = std::this_thread::get_id();
        if (client.freesItself) {
            EXPECT_EQ(TVHW_CRM_ClientFree(&client.handle), 0);
        }
        if (client.onReclaimed) {
            client.onReclaimed();
        }
        return client.answer;
    }

    int acquire(int codecType = 1, int width = 640, bool tryOnly = false) {
        TVHW_CRM_ACQUIRE_PARAM request{};
        request.codecType = codecType;
        request.width = width;
        return tryOnly ? TVHW_CRM_ClientTryAcquireResource(handle, &request)
                       : TVHW_CRM_ClientAcquireResource(handle, &request);
    }

    int acquireEncoder() {
        TVHW_CRM_ACQUIRE_PARAM request{1, 640, 480, 0, 1, 0, {}};
        return TVHW_CRM_ClientAcquireResource(handle, &request);
    }

    [[nodiscard]] TVHW_CRM_RESOURCE held() const {
        TVHW_CRM_RESOURCE resource{};
        TVHW_CRM_ClientGetResource(handle, &resource);
        return resource;
    }
};

class HostPlatformTest : public testing::Test {
protected:
    void SetUp() override { kvo::host::setPool({{3, false, 1920, 1088}, {1, false, 640, 480}}); }
    void TearDown() override { kvo::host::reset(); }
};

TEST_F(HostPlatformTest, ANewcomerTakesTheCoreOfTheLongestHolder) {
    Client first;
    Client second;
    Client third;
    EXPECT_EQ(first.acquire(1, 641), 0);
    EXPECT_EQ(second.acquire(), 0);
    EXPECT_EQ(second.held().core, 1);
    EXPECT_NE(third.acquire(1, 640, true), 0) << "a try takes nothing from anyone";
    EXPECT_EQ(first.reclaims + second.reclaims, 0);
    EXPECT_EQ(third.acquire(), 0);
    EXPECT_EQ(first.reclaims, 1);
    EXPECT_NE(first.reclaimThread, std::this_thread::get_id());
    EXPECT_EQ(third.held().core, 3);
    EXPECT_EQ(first.held().core, 0);

    second.answer = third.answer = 0;
    EXPECT_NE(first.acquire(), 0);
    EXPECT_EQ(second.reclaims, 1) << "now the longest holder";
    EXPECT_EQ(second.held().core, 1);
}

// The old core of a player is asked for while its new one is requested.
TEST_F(HostPlatformTest, AClientOfAReclaimsCallbackGetsAnAnswer) {
    kvo::host::setPool({{1}, {2}});
    Client first;
    Client second;
    EXPECT_EQ(first.acquire(), 0);
    EXPECT_EQ(second.acquire(), 0);
    std::vector<int> inside;
    for (Client* client : {&first, &second}) {
        client->onReclaimed = [&inside] {
            for (int count = 0; count < 3; ++count) {
                inside.push_back(Client().acquire());
            }
        };
    }
    Client newcomer;
    EXPECT_EQ(newcomer.acquire(), 0);
    // The first asks for the second's core. The second finds that the first is being asked and
    // gets nothing, but gives up its core, which each of the first's three gets in turn.
    EXPECT_EQ(testing::PrintToString(inside), "{ -16, -16, -16, 0, 0, 0 }");
    EXPECT_EQ(newcomer.held().core, 1);

    // Two players fight for one core: neither gets back what it has just given up.
    kvo::host::setPool({{3}});
    Client loser;
    Client anew;
    Client winner;
    EXPECT_EQ(loser.acquire(), 0);
    loser.freesItself = winner.freesItself = true;
    loser.onReclaimed = [&anew] { EXPECT_NE(anew.acquire(), 0); };
    winner.onReclaimed = [] { ADD_FAILURE() << "is asked before its own request has ended"; };
    EXPECT_EQ(winner.acquire(), 0);
    EXPECT_EQ(winner.held().core, 3);
}

// Each asks for what the other holds, and answers only when its own request has ended.
TEST_F(HostPlatformTest, TwoNewcomersThatWaitForEachOtherBothGetAnAnswer) {
    kvo::host::setPool({{1, false, 640, 480}, {2, true, 640, 480}});
    Client decoder;
    Client encoder;
    EXPECT_EQ(decoder.acquire(), 0);
    EXPECT_EQ(encoder.acquireEncoder(), 0);
    std::promise<void> ended;
    auto const hasEnded = ended.get_future().share();
    std::promise<void> asked;
    encoder.onReclaimed = [&] {
        asked.set_value();
        hasEnded.wait();
    };
    std::thread first([&] { EXPECT_EQ(decoder.acquireEncoder(), 0); });
    asked.get_future().wait();
    EXPECT_NE(encoder.acquire(), 0) << "its holder waits for this client";
    ended.set_value();
    first.join();
}

TEST_F(HostPlatformTest, WhatIsGivenUpGoesToTheRequestItWasAskedFor) {
    Client small;
    Client large;
    Client first;
    Client second;
    EXPECT_EQ(small.acquire(1, 640), 0);
    EXPECT_EQ(large.acquire(1, 1920), 0);
    std::promise<void> asked;
    std::promise<void> refuses;
    small.answer = second.answer = 0;
    small.onReclaimed = [&] {
        asked.set_value();
        refuses.get_future().wait();
    };
    large.onReclaimed = [&] {
        refuses.set_value();
        while (kvo::host::describe().find("refused 1") == std::string::npos) {
            std::this_thread::yield();
        }
    };
    std::thread waits([&] { EXPECT_NE(first.acquire(1, 640), 0); });
    asked.get_future().wait();
    EXPECT_EQ(second.acquire(1, 1920), 0);
    EXPECT_EQ(second.held().core, 3) << "not the older request's, which the core would serve, too";
    waits.join();
}

TEST_F(HostPlatformTest, AHolderThatRefusesIsPassedOver) {
    kvo::host::setPool({{1}, {2}});
    Client live;
    Client player;
    Client newcomer;
    live.answer = 0;
    EXPECT_EQ(live.acquire(), 0);
    EXPECT_EQ(player.acquire(), 0);
    EXPECT_EQ(newcomer.acquire(), 0);
    EXPECT_EQ(newcomer.held().core, 2);
    EXPECT_EQ(live.reclaims, 1);
    EXPECT_EQ(player.reclaims, 1);
}

TEST_F(HostPlatformTest, TheSmallestCoreThatFitsIsGranted) {
    Client small;
    Client large;
    EXPECT_EQ(small.acquire(1, 640), 0);
    EXPECT_EQ(large.acquire(1, 1920), 0);
    EXPECT_EQ(small.held().core, 1);
    EXPECT_EQ(large.held().core, 3);
    EXPECT_EQ(small.reclaims, 0);
}

TEST_F(HostPlatformTest, PortsAreHandedOutLikeCores) {
    Client clients[3];
    EXPECT_EQ(clients[0].acquire(TVHW_CRM_CODEC_TYPE_DISPLAY, 0), 0);
    EXPECT_EQ(clients[1].acquire(TVHW_CRM_CODEC_TYPE_DISPLAY, 0), 0);
    EXPECT_EQ(clients[1].held().videoPort, 2);
    EXPECT_EQ(clients[2].acquire(TVHW_CRM_CODEC_TYPE_DISPLAY, 0), 0);
    EXPECT_EQ(clients[2].held().videoPort, 1);
    EXPECT_EQ(clients[0].reclaims, 1);
}

TEST_F(HostPlatformTest, SeniorityIsOfTheResourceThatIsAskedFor) {
    Client first;
    Client second;
    Client newcomer;
    EXPECT_EQ(first.acquire(), 0);
    EXPECT_EQ(second.acquire(), 0);
    EXPECT_EQ(first.acquire(TVHW_CRM_CODEC_TYPE_DISPLAY, 0), 0);
    EXPECT_EQ(newcomer.acquire(), 0);
    EXPECT_EQ(first.reclaims, 1) << "its core is the oldest, its port is not asked for";
    EXPECT_EQ(second.reclaims, 0);

    kvo::host::setPool({{2, false, 640, 480}});
    Client late;
    EXPECT_EQ(late.acquire(), 0);
    Client last;
    EXPECT_EQ(last.acquire(), 0);
    EXPECT_EQ(second.reclaims + newcomer.reclaims, 0) << "their cores are no longer in the pool";
    EXPECT_EQ(late.reclaims, 1);
}

TEST_F(HostPlatformTest, WhatMakesNoSenseIsRefused) {
    Client client;
    EXPECT_NE(client.acquire(0), 0) << "no codec";
    EXPECT_NE(client.acquire(99), 0) << "a codec type of no MIME type";
    EXPECT_NE(client.acquire(1, 1921), 0) << "too wide for every core";
    EXPECT_NE(client.acquire(1, -1), 0);
    TVHW_CRM_ACQUIRE_PARAM request{1, 64, 64, 0, 0, 0, {}};
    request.reserved[9] = 1;
    EXPECT_NE(TVHW_CRM_ClientAcquireResource(client.handle, &request), 0);
    TVHW_CRM_RESOURCE dirty{};
    dirty.maxHeight = 1;
    client.acquire();
    EXPECT_NE(TVHW_CRM_ClientGetResource(client.handle, &dirty), 0);
    TVHW_CRM_HANDLE none = nullptr;
    EXPECT_NE(TVHW_CRM_ClientFree(&none), 0);
    EXPECT_EQ(TVHW_CRM_CodecTypeFromMIME("video/AVC"), 0);
}

TEST_F(HostPlatformTest, AFaultHappensOnceAtItsCall) {
    kvo::host::failCall("getIntProperty", 7, 2);
    kvo::host::failCall("*", 9, 4);
    kvo::host::setProperty("p", 3);
    auto& utils = SystemUtils::getInstance();
    EXPECT_EQ(utils.getIntProperty("p", 0), 3);
    EXPECT_EQ(utils.getIntProperty("p", 0), 7);
    EXPECT_EQ(utils.getIntProperty("p", 0), 3);
    EXPECT_EQ(utils.getIntProperty("p", 0), 9);
    kvo::host::setProperty("p", std::nullopt);
    EXPECT_EQ(utils.getIntProperty("p", 5), 5);

    EXPECT_THROW(kvo::host::failCall("getIntProperty", 7, 0), std::invalid_argument);
    EXPECT_THROW(kvo::host::failCall("getIntPropety", 7), std::invalid_argument);
    kvo::host::failCall("allowsForcedAcquire", 7);
    EXPECT_FALSE(utils.allowsForcedAcquire(1));
    EXPECT_TRUE(utils.allowsForcedAcquire(1));
}

/// Runs this program with `settings` in its environment and `filter`; returns status and output.
std::pair<int, std::string> runSet(std::string const& settings, std::string const& filter) {
    std::string const self = std::filesystem::read_symlink("/proc/self/exe").string();
    std::string const command = "env " + settings + " " + self +
                                " --gtest_also_run_disabled_tests --gtest_filter=" + filter +
                                " 2>&1";
    FILE* const pipe = popen(command.c_str(), "r");
    std::string output;
    for (int byte = std::fgetc(pipe); byte != EOF; byte = std::fgetc(pipe)) {
        output += static_cast<char>(byte);
    }
    return {WEXITSTATUS(pclose(pipe)), output};
}

TEST_F(HostPlatformTest, TheEnvironmentSetsTheFirstState) {
#ifdef __arm__
    GTEST_SKIP() << "the emulator does not start other programs";
#endif
    auto const set = runSet(
        "KVO_HOST_POOL=encoder:4:640x480 KVO_HOST_PANEL=1280x720 KVO_HOST_PROPERTIES=p=4,q=-1 "
        "KVO_HOST_FAULTS=getIntProperty=9@2 KVO_HOST_POLICY=tvhw_tests=-1,*=1",
        "*DISABLED_IsSet");
    EXPECT_EQ(set.first, 0) << set.second;
    for (std::string const wrong :
         {"KVO_HOST_POOL=decoder:5:1x1", "KVO_HOST_PANEL=0x1", "KVO_HOST_PROPERTIES=p",
          "KVO_HOST_FAULTS=TVHW_VO_Oper=1", "KVO_HOST_FAULTS=*=1@0", "KVO_HOST_POLICY=a=101",
          "KVO_HOST_FAULT=TVHW_VO_Open=1"}) {
        auto const [status, output] = runSet(wrong, "none");
        EXPECT_EQ(status, 2) << wrong;
        EXPECT_EQ(output.substr(0, wrong.size() + 2), wrong + ": ");
        EXPECT_EQ(output.find('\n') + 1, output.size()) << "one line";
    }
}

/// In the environment that the test above makes.
TEST(SettingsTest, DISABLED_IsSet) {
    auto& utils = SystemUtils::getInstance();
    EXPECT_EQ(utils.getIntProperty("p", 0), 4);
    EXPECT_EQ(utils.getIntProperty("p", 0), 9);
    kvo::host::reset();
    EXPECT_EQ(utils.getIntProperty("q", 0), -1);
    EXPECT_FALSE(utils.allowsForcedAcquire(getpid()));
    EXPECT_TRUE(utils.allowsForcedAcquire(1));
    TVHW_VBE_PANEL_SIZE panel{};
    EXPECT_EQ(TVHW_VBE_DISP_GetPanelSize(&panel), 0);
    EXPECT_EQ(panel.width, 1280);
    Client client;
    EXPECT_NE(client.acquire(), 0);
    EXPECT_EQ(client.acquireEncoder(), 0);
    std::string const row = "1      4      encoder   640x480     " + std::to_string(getpid());
    EXPECT_NE(kvo::host::describe().find(row), std::string::npos) << kvo::host::describe();
}

/// Built before any part of the platform, and so destroyed after every part that is not meant to
/// outlive it.
struct LastUsers {
    ~LastUsers() {
        if (wrapper == nullptr) {
            return;  // In a process that ran another test.
        }
        sink.reset();
        wrapper.reset();
        if (!kvo::host::crmClients().empty() || kvo::host::videoOutput().opens != 0) {
            std::_Exit(3);
        }
    }
    std::unique_ptr<kvo::media::hardware::VideoDecoderClientWrapperResource> wrapper;
    std::unique_ptr<kvo::media::hardware::ImageSinkTvhwImpl> sink;
};
LastUsers gLastUsers;

TEST_F(HostPlatformTest, OutlivesAWrapperInStaticStorage) {
    using namespace kvo::media::hardware;
    gLastUsers.wrapper =
        std::make_unique<VideoDecoderClientWrapperResource>(std::make_shared<FakeDecoder>());
    gLastUsers.wrapper->configureTunnelMode(CodecType::AVC, {});
    gLastUsers.sink = std::make_unique<ImageSinkTvhwImpl>();
    EXPECT_FALSE(kvo::host::crmClients().empty());
}

TEST_F(HostPlatformTest, TheJournalKeepsResultTimeAndThreadOfTheNewestEntries) {
    kvo::host::startJournal();
    auto const before = std::chrono::system_clock::now();
    kvo::host::failCall("getIntProperty", 7);
    SystemUtils::getInstance().getIntProperty("p", 0);
    auto const journal = kvo::host::stopJournal();
    ASSERT_EQ(journal.size(), 1U);
    EXPECT_EQ(journal[0].text, "getIntProperty(p, 0)");
    EXPECT_EQ(journal[0].result, 7);
    EXPECT_GE(journal[0].time, before);
    EXPECT_EQ(journal[0].thread, ::gettid());

    kvo::host::startJournal();
    for (std::size_t count = 0; count < kvo::host::kJournalLimit + 2; ++count) {
        kvo::host::note(std::to_string(count));
    }
    auto const newest = kvo::host::stopJournal();
    ASSERT_EQ(newest.size(), kvo::host::kJournalLimit + 1);
    EXPECT_EQ(newest[0].text, "2 older entries were dropped");
    EXPECT_EQ(newest[1].text, "2");
}

TEST_F(HostPlatformTest, LogLinesAreWholeAndFilteredOnesAreNotFormatted) {
    kvo::host::setLogLevel(1);
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([thread] {
            std::string const text(3000, static_cast<char>('a' + thread));
            for (int count = 0; count < 20; ++count) {
                kvo_media_log_printf(1, "Tag", "dir/file.cpp", "run", 12, "%s.", text.c_str());
                // Formatting this would read the address 1.
                kvo_media_log_printf(2, "Tag", "dir/file.cpp", "run", 13, "%s",
                                     reinterpret_cast<char const*>(1));
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::istringstream output(testing::internal::GetCapturedStderr());
    int lines = 0;
    for (std::string line; std::getline(output, line); ++lines) {
        static std::regex const kStart(
            R"(\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} +\d+ +\d+ W Tag: dir/file\.cpp:12 run: )");
        std::smatch start;
        ASSERT_TRUE(std::regex_search(line, start, kStart, std::regex_constants::match_continuous));
        std::string const text = start.suffix();
        ASSERT_EQ(text, std::string(3000, text[0]) + ".");
    }
    EXPECT_EQ(lines, 80);
}

}  // namespace
