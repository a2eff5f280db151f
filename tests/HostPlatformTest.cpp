#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <functional>
#include <future>
#include <list>

#include "Journal.h"
#include "SystemUtils.h"
#include "host/InProcessManager.h"
#include "kvo_media_log.h"
#include "tvhw_crm.h"
#include "tvhw_vbe.h"

// The stand-ins are what every other test trusts.
namespace {

using kvo::media::platform::SystemUtils;

struct Client {
    TVHW_CRM_HANDLE handle = nullptr;
    std::function<void()> onReclaimed = [] {};

    Client() { EXPECT_EQ(TVHW_CRM_ClientInit(&handle, "test", onReclaim, 0, this), 0); }
    ~Client() { TVHW_CRM_ClientFree(&handle); }

    static int onReclaim(TVHW_CRM_RECLAIM_PARAM const*, void* cookie) {
        static_cast<Client*>(cookie)->onReclaimed();
        return 1;
    }

    [[nodiscard]] int acquire(TVHW_CRM_ACQUIRE_PARAM const& request = {1, 640, 0, 0, 0, 0, {}}) {
        return TVHW_CRM_ClientAcquireResource(handle, &request);
    }
};

class HostPlatformTest : public testing::Test {
protected:
    void SetUp() override { kvo::host::setPool({{1, false, 640, 480}}); }
    void TearDown() override { kvo::host::reset(); }
};

// Whom the manager asks is the pool's policy, which has tests of its own; the platform check asks
// what a client sees of it.
TEST_F(HostPlatformTest, WhoWaitsForAHolderSleepsUntilSomethingChanges) {
    kvo::host::setPool({{1, false, 640, 480}, {1, false, 640, 480}});
    std::promise<void> release;
    Client holder;
    Client other;
    Client first;
    Client second;
    holder.onReclaimed = [&] { release.get_future().wait(); };
    EXPECT_EQ(holder.acquire(), 0);
    EXPECT_EQ(other.acquire(), 0);
    TVHW_CRM_ACQUIRE_PARAM const request{1, 640, 0, 0, 0, 0, {}};
    EXPECT_EQ(TVHW_CRM_ClientTryAcquireResource(first.handle, &request), -16);
    auto const begin = std::chrono::steady_clock::now();
    auto granted = std::async(std::launch::async, [&] { return first.acquire(); });
    auto closed = std::async(std::launch::async, [&] { return second.acquire(); });
    // An emulator translates what the threads run first, one waiting for the other.
    EXPECT_EQ(granted.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    rusage before{};
    rusage after{};
    getrusage(RUSAGE_SELF, &before);
    EXPECT_EQ(granted.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_nvcsw - before.ru_nvcsw, 100);
    auto const last = kvo::host::crmClients().back();
    EXPECT_EQ(last.name, "test");
    auto* handle = second.handle;  // Not the one that its thread reads.
    EXPECT_EQ(TVHW_CRM_ClientFree(&handle), 0);
    EXPECT_EQ(closed.get(), -22);
    EXPECT_EQ(kvo::host::reclaim(last.uniqueId).get(), -1) << "nobody asks it";
    int id = 0;
    TVHW_CRM_RESOURCE resource{};
    EXPECT_EQ(TVHW_CRM_ClientGetUniqueId(second.handle, &id), -22);
    EXPECT_EQ(TVHW_CRM_ClientGetResource(second.handle, &resource), -22);
    EXPECT_EQ(TVHW_CRM_ClientReleaseResource(second.handle), -22);
    EXPECT_EQ(TVHW_CRM_ClientReleaseResource(other.handle), 0);
    EXPECT_EQ(granted.get(), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5)) << "at once";
    release.set_value();
    EXPECT_EQ(other.acquire(), 0);
}

/// A manager with less patience than that of the process, and holders that answer when told to.
struct SlowHolders {
    kvo::host::InProcessManager manager{{{}}, std::chrono::milliseconds(200)};
    std::promise<void> mayAnswer;
    std::shared_future<void> answers{mayAnswer.get_future()};
};

TEST(InProcessManagerTest, WhoWaitsIsAnsweredInTimeThoughNoHolderAnswers) {
    static auto& all = *new std::list<SlowHolders>;  // A callback may still return to one.
    SlowHolders& slow = all.emplace_back();
    auto const request = [&slow] {
        int client = 0;
        auto const onReclaim = [](auto const*, void* holders) {
            static_cast<SlowHolders*>(holders)->answers.wait();
            return 1;
        };
        slow.manager.open("test", onReclaim, &slow, client);
        return slow.manager.acquire(client, {false, false, 1, 640, 480}, false);
    };
    EXPECT_EQ(request(), 0);
    auto first = std::async(std::launch::async, request);
    auto second = std::async(std::launch::async, request);
    EXPECT_EQ(std::pair(first.get(), second.get()), std::pair(-110, -110));
    slow.mayAnswer.set_value();
    while (request() != 0) {  // Until the answer has arrived.
    }
}

TEST_F(HostPlatformTest, WhatMakesNoSenseIsRefused) {
    Client client;
    for (TVHW_CRM_ACQUIRE_PARAM const& request : std::vector<TVHW_CRM_ACQUIRE_PARAM>{
             {99, 64, 64, 0, 0, 0, {}},
             {1, -1, 64, 0, 0, 0, {}},
             {1, 64, 64, 0, 0, 2, {}},
             {1, 64, 64, 0, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0, 0, 1}}}) {
        EXPECT_EQ(client.acquire(request), -22);
    }
    EXPECT_EQ(client.acquire(), 0);
    TVHW_CRM_RESOURCE dirty{};
    dirty.maxHeight = 1;
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

/// In an environment of its own: see settings_test.py.
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
    EXPECT_EQ(client.acquire({1, 640, 0, 0, 1, 0, {}}), 0);
    std::string const row = "1     4    encoder 640x480   " + std::to_string(getpid());
    EXPECT_NE(kvo::host::describe().find(row), std::string::npos) << kvo::host::describe();
}

TEST_F(HostPlatformTest, LogLinesAreWholeAndFilteredOnesAreNotFormatted) {
    kvo::host::setLogLevel(1);
    testing::internal::CaptureStderr();
    std::vector<std::future<void>> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.push_back(std::async(std::launch::async, [thread] {
            std::string const text(3000, static_cast<char>('a' + thread));
            for (int count = 0; count < 20; ++count) {
                kvo_media_log_printf(1, "Tag", "dir/file.cpp", "run", 12, "%s.", text.c_str());
                // Formatting this would read the address 1.
                kvo_media_log_printf(2, "Tag", "dir/file.cpp", "run", 13, "%s",
                                     reinterpret_cast<char const*>(1));
            }
        }));
    }
    threads.clear();  // Each is waited for.
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
