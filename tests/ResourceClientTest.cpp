#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdlib>

#include "Journal.h"
#include "WrapperTest.h"
#include "tvhw/ImageSinkTvhwImpl.h"

namespace {

std::atomic<std::size_t> gRegistrationsAtFree{0};  ///< When a client was last closed.
void (*gLast)() = nullptr;                         ///< Runs when all static objects are gone.

// Before any library is initialised, so that it runs after the last of them.
[[gnu::section(".preinit_array"), gnu::used]] void (*const gRegisterLast)() = [] {
    on_exit(
        [](int, void*) {
            if (gLast != nullptr) {
                gLast();
            }
        },
        nullptr);
};

}  // namespace

/// Comes before the resource manager's own, for the whole program.
extern "C" KVO_MEDIA_EXPORT int TVHW_CRM_ClientFree(TVHW_CRM_HANDLE* client) {
    gRegistrationsAtFree = ResourceClient::sReferenceHolder.size();
    static auto* const real =
        reinterpret_cast<decltype(&TVHW_CRM_ClientFree)>(dlsym(RTLD_NEXT, "TVHW_CRM_ClientFree"));
    return real(client);
}

namespace {

using kvo::host::failCall;

struct Owner : ResourceClient::Reclaimable {
    std::function<bool()> onReclaim = [] { return true; };
    int reclaims = 0;

    ~Owner() override { kvo::host::note("~Owner"); }
    bool reclaim() override {
        ++reclaims;
        return onReclaim();
    }
};

int onReclaim(std::uintptr_t cookie) {
    return ResourceClient::OnReclaim(nullptr, reinterpret_cast<void*>(cookie));
}

class ResourceClientTest : public testing::Test {
protected:
    void TearDown() override {
        client.reset();
        EXPECT_TRUE(kvo::host::crmClients().empty());
        kvo::host::reset();
    }

    std::shared_ptr<Owner> owner = std::make_shared<Owner>();
    std::shared_ptr<ResourceClient> client = initializeResource(owner);
    std::uintptr_t cookie = kvo::host::crmClients().back().cookie;
};

TEST_F(ResourceClientTest, ARequestGivesBackFirstAndAnswersZeroWhateverComesOfIt) {
    kvo::host::forceGrant({26, 2, 64, 48});
    EXPECT_EQ(recorded([&] {
                  EXPECT_EQ(client->acquireResource("video/hevc", 1, 2, 3, false, false, false), 0);
                  EXPECT_EQ(client->acquireResource("video/%s", 64, 64, 0, true, true, true), 0);
                  EXPECT_EQ(kvo::host::crmClients().back().core, 0);
                  EXPECT_EQ(client->acquireDisplayResource(true), 0);
              }),
              (Lines{"TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_CodecTypeFromMIME(video/hevc)",
                     "TVHW_CRM_ClientAcquireResource(ID, 2, 1, 2, 3, 0, 0)",
                     "TVHW_CRM_ClientGetResource(ID)",
                     "2 VideoClient acquireResource: crm: acquired resource, core=0x1a, port=2, "
                     "size=64/48",
                     "TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_CodecTypeFromMIME(video/%s)",
                     "1 VideoClient acquireResource: crm-acquire: video/%s -> none",
                     "TVHW_CRM_ClientTryAcquireResource(ID, 0, 64, 64, 0, 1, 1)",
                     "0 VideoClient acquireResource: crm-acquire: failed to acquire resource, "
                     "ret=-95, try=1",
                     "TVHW_CRM_ClientTryAcquireResource(ID, 16385, 0, 0, 0, 0, 0)",
                     "TVHW_CRM_ClientGetResource(ID)",
                     "2 VideoClient acquireDisplayResource: crm: acquired display resource, "
                     "port=2"}));
}

TEST_F(ResourceClientTest, FailuresAreLoggedOnceAndAClosedClientCallsNothing) {
    int value = 9;
    int id = 9;
    struct Case {
        std::string call;
        std::function<int()> operation;
        int failed;  ///< The result when the call fails.
        std::string line;
        int closed = -2;  ///< The result without a connection.
    };
    std::vector<Case> const cases{
        {"AcquireResource",
         [&] { return client->acquireResource("video/avc", 1, 1, 1, false, false, false); }, 0,
         "acquireResource: crm-acquire: failed to acquire resource, ret=5, try=0"},
        {"AcquireResource", [&] { return client->acquireDisplayResource(false); }, 0,
         "acquireDisplayResource: crm-acquire: failed to acquire display resource, ret=5, try=0"},
        {"GetResource", [&] { return client->getResource(&value, &value, &value, &value); }, -1,
         "getResource: crm-resource: ret=5"},
        {"GetResource", [&] { return client->getDisplayResource(&value); }, -1,
         "getDisplayResource: crm-resource: ret=5"},
        {"ClearResource", [&] { return client->clearDisplayResource(TVHW_CRM_VIDEO_PORT_1); }, -1,
         "clearDisplayResource: clear crm-resource: ret=5"},
        {"GetUniqueId", [&] { return client->getUniqueId(&id); }, -1,
         "getUniqueId: crm-get-id: ret=5"},
        {"ReleaseResource", [&] { return client->releaseResource(); }, -1,
         "releaseResource: crm-release: ret=5"},
        {"Free", [&] { return client->UnInitialize(); }, 0,
         "UnInitialize: crm: failed to release client, ret=5", 0},
    };
    auto const registrations = ResourceClient::sReferenceHolder.size();
    for (auto const& test : cases) {
        SCOPED_TRACE(test.line);
        failCall("TVHW_CRM_Client" + test.call, 5);
        auto const log = recorded([&] { EXPECT_EQ(test.operation(), test.failed); });
        EXPECT_EQ(only(" VideoClient ", log), Lines{"0 VideoClient " + test.line});
        EXPECT_EQ(value, 9);
    }
    failCall("TVHW_CRM_ClientInit", 5);
    EXPECT_EQ(recorded([&] { EXPECT_EQ(initializeResource(owner), nullptr); }),
              (Lines{"TVHW_CRM_ClientInit(VDC, 0, COOKIE)",
                     "0 VideoClient initialize: crm: failed to init client, ret=5"}));
    EXPECT_EQ(std::exchange(id, 9), -1);
    EXPECT_EQ(gRegistrationsAtFree, registrations - 1) << "unregistered before it is closed";
    EXPECT_EQ(recorded([&] {
                  for (auto const& test : cases) {
                      EXPECT_EQ(test.operation(), test.closed) << test.line;
                  }
                  client.reset();
              }),
              Lines{});
    EXPECT_EQ(std::pair(value, id), std::pair(9, 9));
}

TEST_F(ResourceClientTest, AReclaimReachesOnlyALiveOwner) {
    EXPECT_EQ(onReclaim(cookie), 1);
    owner->onReclaim = [] { return false; };
    EXPECT_EQ(onReclaim(cookie), 0);
    EXPECT_EQ(owner->reclaims, 2);

    auto const above = static_cast<std::uintptr_t>(std::uint64_t{1} << 32U);
    EXPECT_EQ(recorded([&] {
                  EXPECT_EQ(onReclaim(cookie + 1), 1) << "never issued";
                  EXPECT_EQ(onReclaim(0), 1);
                  EXPECT_EQ(onReclaim(cookie + above), above == 0 ? 0 : 1) << "wider than an id";
              }),
              Lines{});
    EXPECT_EQ(owner->reclaims, above == 0 ? 3 : 2);
    owner.reset();
    EXPECT_EQ(onReclaim(cookie), 1) << "owner gone";
    client.reset();
    EXPECT_EQ(onReclaim(cookie), 1) << "expired";
}

TEST_F(ResourceClientTest, AReclaimKeepsTheOwnerAndThenTheClientAliveToItsEnd) {
    std::weak_ptr<Owner> const weakOwner = owner;
    std::weak_ptr<ResourceClient> const weakClient = client;
    owner->onReclaim = [&] {
        client.reset();
        owner.reset();
        return !weakOwner.expired() && !weakClient.expired();
    };
    EXPECT_EQ(recorded([&] { EXPECT_EQ(onReclaim(cookie), 1); }),
              (Lines{"~Owner", "TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_ClientFree(ID)"}));
}

TEST(ResourceClientDeathTest, AtTheVeryEndAReclaimFindsNothingAndWhatIsLeftMayGo) {
    using namespace kvo::media::hardware;
#ifndef __arm__  // There an emulator runs the tests, which cannot start itself anew.
    // A thread of an earlier test that has not quite ended would be cut off by a mere fork.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
#endif
    EXPECT_EXIT(
        {
            // Static objects of this program would be gone, too.
            static auto& owner = *new auto(std::make_shared<Owner>());
            static auto& client = *new auto(initializeResource(owner));
            static auto const cookie = kvo::host::crmClients().back().cookie;
            static auto* const sink = new ImageSinkTvhwImpl;
            static auto* const decoder =
                new VideoDecoderClientWrapperResource(std::make_shared<FakeDecoder>());
            decoder->configureTunnelMode(CodecType::AVC, {});
            gLast = [] {
                bool const found = onReclaim(cookie) != 1 || owner->reclaims != 0;
                client->UnInitialize();
                delete decoder;
                delete sink;
                bool const isLeft = gRegistrationsAtFree != 0 || !kvo::host::crmClients().empty() ||
                                    kvo::host::videoOutput().opens != 0;
                std::_Exit(found || isLeft ? 2 : 0);
            };
            std::exit(kvo::host::crmClients().size() == 2 ? 1 : 3);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
