#include <gtest/gtest.h>

#include "Journal.h"
#include "tvhw/ResourceClient.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"

namespace {

using kvo::host::failCall;

struct Owner : ResourceClient::Reclaimable {
    bool answer = true;
    int reclaims = 0;
    bool reclaim() override {
        ++reclaims;
        return answer;
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
};

TEST_F(ResourceClientTest, AcquiringGivesBackFirstAndReadsBackTheGrant) {
    EXPECT_EQ(recorded([&] {
                  EXPECT_EQ(client->acquireResource("video/hevc", 1, 2, 3, false, false, false), 0);
              }),
              (Lines{"TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_CodecTypeFromMIME(video/hevc)",
                     "TVHW_CRM_ClientAcquireResource(ID, 2, 1, 2, 3, 0, 0)",
                     "TVHW_CRM_ClientGetResource(ID)",
                     "2 VideoClient acquireResource: crm: acquired resource, core=0x1, port=0, "
                     "size=3840/2160"}));
    EXPECT_EQ(recorded([&] { client->acquireDisplayResource(true); }),
              (Lines{"TVHW_CRM_ClientTryAcquireResource(ID, 16385, 0, 0, 0, 0, 0)",
                     "TVHW_CRM_ClientGetResource(ID)",
                     "2 VideoClient acquireDisplayResource: crm: acquired display resource, "
                     "port=1"}));
    int values[4] = {};
    EXPECT_EQ(client->getResource(&values[0], &values[1], &values[2], &values[3]), 0);
    EXPECT_EQ(testing::PrintToString(values), "{ 1, 1, 3840, 2160 }");
}

TEST_F(ResourceClientTest, ARefusedRequestAnswersZeroAndLeavesNothingHeld) {
    client->acquireResource("video/avc", 1280, 720, 25, false, false, false);
    auto const log = recorded(
        [&] { EXPECT_EQ(client->acquireResource("video/none", 64, 64, 0, true, true, true), 0); });
    EXPECT_EQ(log,
              (Lines{"TVHW_CRM_ClientReleaseResource(ID)", "TVHW_CRM_CodecTypeFromMIME(video/none)",
                     "1 VideoClient acquireResource: crm-acquire: video/none -> none",
                     "TVHW_CRM_ClientTryAcquireResource(ID, 0, 64, 64, 0, 1, 1)",
                     "0 VideoClient acquireResource: crm-acquire: failed to acquire resource, "
                     "ret=-95, try=1"}));
    int values[4] = {9, 9, 9, 9};
    EXPECT_EQ(client->getResource(&values[0], &values[1], &values[2], &values[3]), -1);
    EXPECT_EQ(testing::PrintToString(values), "{ 9, 9, 9, 9 }");
}

TEST_F(ResourceClientTest, EachFailureIsLoggedOnceAndMapped) {
    int value = 9;
    struct Case {
        std::string call;
        std::function<int()> operation;
        int result;
        std::string line;
    };
    std::vector<Case> const cases{
        {"ClientGetResource", [&] { return client->getResource(&value, &value, &value, &value); },
         -1, "0 VideoClient getResource: crm-resource: ret=5"},
        {"ClientGetResource", [&] { return client->getDisplayResource(&value); }, -1,
         "0 VideoClient getDisplayResource: crm-resource: ret=5"},
        {"ClientClearResource", [&] { return client->clearDisplayResource(TVHW_CRM_VIDEO_PORT_1); },
         -1, "0 VideoClient clearDisplayResource: clear crm-resource: ret=5"},
        {"ClientReleaseResource", [&] { return client->releaseResource(); }, -1,
         "0 VideoClient releaseResource: crm-release: ret=5"},
        {"ClientFree", [&] { return client->UnInitialize(); }, 0,
         "0 VideoClient UnInitialize: crm: failed to release client, ret=5"},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.call + ": " + test.line);
        failCall("TVHW_CRM_" + test.call, 5);
        auto const log = recorded([&] { EXPECT_EQ(test.operation(), test.result); });
        EXPECT_EQ(only(" VideoClient ", log), Lines{test.line});
        EXPECT_EQ(value, 9);
    }
}

TEST_F(ResourceClientTest, AnUnreadableIdReadsMinusOne) {
    int id = 9;
    failCall("TVHW_CRM_ClientGetUniqueId", 5);
    EXPECT_EQ(only(" VideoClient ", recorded([&] { EXPECT_EQ(client->getUniqueId(&id), -1); })),
              (Lines{"0 VideoClient getUniqueId: crm-get-id: ret=5"}));
    EXPECT_EQ(id, -1);
    client->UnInitialize();
    id = 9;
    EXPECT_EQ(client->getUniqueId(&id), -2);
    EXPECT_EQ(id, 9);
}

TEST_F(ResourceClientTest, AClosedClientCallsNothing) {
    client->acquireResource("video/avc", 64, 64, 0, false, false, false);
    failCall("TVHW_CRM_ClientFree", 5);
    EXPECT_EQ(client->UnInitialize(), 0);
    int value = 9;
    auto const log = recorded([&] {
        EXPECT_EQ(client->acquireResource("video/avc", 1, 1, 1, false, false, false), -2);
        EXPECT_EQ(client->acquireDisplayResource(false), -2);
        EXPECT_EQ(client->getResource(&value, &value, &value, &value), -2);
        EXPECT_EQ(client->getDisplayResource(&value), -2);
        EXPECT_EQ(client->clearDisplayResource(TVHW_CRM_VIDEO_PORT_0), -2);
        EXPECT_EQ(client->releaseResource(), -2);
        EXPECT_EQ(client->UnInitialize(), 0);
        client.reset();
    });
    EXPECT_EQ(log, Lines{});
    EXPECT_EQ(value, 9);
}

TEST_F(ResourceClientTest, ARefusedConnectionLeavesNoRegistration) {
    auto const registrations = ResourceClient::sReferenceHolder.size();
    for (auto const& open : {initializeResource, initializeResourceClient}) {
        failCall("TVHW_CRM_ClientInit", -7);
        kvo::host::startJournal();
        EXPECT_EQ(open(owner), nullptr);
        EXPECT_EQ(ResourceClient::sReferenceHolder.size(), registrations);
        auto const journal = kvo::host::stopJournal();
        ASSERT_EQ(journal.size(), 2U);
        EXPECT_EQ(journal[1].text, "0 VideoClient initialize: crm: failed to init client, ret=-7");
        EXPECT_EQ(journal[1].file, "impl/tvhw/ResourceClient.cpp");
        auto const id = std::stoul(journal[0].text.substr(journal[0].text.rfind(' ') + 1));
        EXPECT_EQ(ResourceClient::sReferenceHolder.lock<ResourceClient>(static_cast<unsigned>(id)),
                  nullptr);
        EXPECT_EQ(onReclaim(id), 1);
    }
    EXPECT_EQ(owner->reclaims, 0);
}

TEST_F(ResourceClientTest, AReclaimReachesOnlyALiveOwner) {
    auto const cookie = kvo::host::crmClients().back().cookie;
    EXPECT_EQ(ResourceClient::sReferenceHolder.lock<ResourceClient>(static_cast<unsigned>(cookie)),
              client);
    EXPECT_EQ(onReclaim(cookie), 1);
    owner->answer = false;
    EXPECT_EQ(onReclaim(cookie), 0);
    EXPECT_EQ(owner->reclaims, 2);

    auto const other = initializeResourceClient(owner);
    auto const otherCookie = kvo::host::crmClients().back().cookie;
    EXPECT_EQ(otherCookie, cookie + 1);
    other->UnInitialize();
    auto const lines = recorded([&] {
        EXPECT_EQ(onReclaim(otherCookie), 1) << "released";
        EXPECT_EQ(onReclaim(otherCookie + 1), 1) << "never issued";
        EXPECT_EQ(onReclaim(0), 1);
        EXPECT_EQ(owner->reclaims, 2);
        owner.reset();
        EXPECT_EQ(onReclaim(cookie), 1) << "owner gone";
    });
    EXPECT_EQ(lines, Lines{});
    client.reset();
    EXPECT_EQ(onReclaim(cookie), 1) << "expired";
}

}  // namespace
