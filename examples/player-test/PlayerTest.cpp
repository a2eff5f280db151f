// A player's tests: what it does when nothing is granted, and when its core is taken.

#include "Player.h"

#include <gtest/gtest.h>
#include <host/HostPlatform.h>

namespace {

using namespace kvo::media::hardware;
namespace host = kvo::host;

/// Stands for the codec hardware, and counts how often it is stopped.
class Codec final : public VideoDecoderClientWrapper {
public:
    Codec() : VideoDecoderClientWrapper(nullptr) {}
    Return<void> configureTunnelMode(CodecType, Configuration const&) override { return {}; }
    Return<void> writeInputFrame(unsigned int, unsigned long long, unsigned char const*,
                                 unsigned int) override {
        return {};
    }
    Return<void> release() override {
        ++stopped;
        return {};
    }

    int stopped = 0;
};

class PlayerTest : public testing::Test {
protected:
    void SetUp() override { host::reset(); }
    void TearDown() override { EXPECT_TRUE(host::crmClients().empty()) << host::describe(); }

    std::shared_ptr<Codec> const codec = std::make_shared<Codec>();
};

TEST_F(PlayerTest, DoesNotStartWithoutACore) {
    host::setPool({});
    EXPECT_FALSE(Player(codec).start());
}

TEST_F(PlayerTest, StartsOnceThePlatformAnswersAgain) {
    host::failCall("TVHW_CRM_ClientInit", -5);
    Player player(codec);
    EXPECT_FALSE(player.start());
    EXPECT_TRUE(player.start());
}

TEST_F(PlayerTest, GivesUpWhenItsCoreIsTaken) {
    Player player(codec);
    ASSERT_TRUE(player.start());
    EXPECT_TRUE(player.play());
    EXPECT_EQ(host::reclaim(host::crmClients().front().uniqueId).get(), 1);
    EXPECT_EQ(codec->stopped, 1);
    EXPECT_FALSE(player.play());
}

}  // namespace
