#include <gtest/gtest.h>

#include "Journal.h"
#include "WrapperTest.h"

namespace {

/// What an acquisition said, but for its request.
Lines acquisition(Lines const& log) {
    Lines lines = saidBy("acquireResources", log);
    bool const hasRequest = !lines.empty() && lines[0].find("acquire-r") == 2;
    return {lines.begin() + (hasRequest ? 1 : 0), lines.end()};
}

template <typename Codec>
using BothWrappersTest = WrapperTest<Codec>;
TYPED_TEST_SUITE(BothWrappersTest, Codecs, );

TYPED_TEST(BothWrappersTest, CallsPassEverythingOnUntilAReclaimThenReachNothing) {
    EXPECT_EQ(TypeParam::calls().size(), TypeParam::kGuardedCalls);
    this->codec->answer = kvo::media::hardware::Status(-7);
    for (auto const& guarded : TypeParam::calls()) {
        Lines const direct = recorded([&] { guarded.call(*this->codec); });
        EXPECT_EQ(direct.size(), 1U);
        EXPECT_EQ(recorded([&] { EXPECT_EQ(guarded.call(*this->wrapper), -7); }), direct);
    }
    this->configure();
    this->reclaimNewest().wait();
    for (auto const& guarded : TypeParam::calls()) {
        bool const hidesRefusal =
            guarded.name == "flush" || guarded.name == "pause" || guarded.name == "resume";
        auto const log = recorded([&] {
            EXPECT_EQ(guarded.call(*this->wrapper), hidesRefusal ? 0 : -19) << guarded.name;
        });
        EXPECT_EQ(log, Lines{}) << guarded.name;
    }
    EXPECT_EQ(this->wrapper->getConfiguration().value().size(), 0U);
}

TYPED_TEST(BothWrappersTest, CoreTypesAndPortsAreRenumbered) {
    struct Case {
        int core;
        int port;
        int coreType;
        int videoPort;
    };
    for (auto const& test : {Case{1, 0, 801, -1}, Case{2, -1, 802, -1}, Case{3, 1, 804, 0},
                             Case{4, 2, 803, 1}, Case{5, 0, 0, -1}, Case{-1, 3, 0, 2},
                             Case{kMin, kMin, 0, -1}, Case{kMax, kMax, 0, kMax - 1}}) {
        SCOPED_TRACE(test.core);
        kvo::host::forceGrant({test.core, test.port, test.core, 222});
        Lines expected{"2 core_type: " + std::to_string(test.coreType), "2 resource id ID",
                       test.videoPort < 0 ? "2 acquireResource vdoPort=TVHW_CRM_VIDEO_PORT_NONE"
                                          : "2 vdoPort=" + std::to_string(test.videoPort)};
        if (test.coreType == 0) {
            expected.insert(
                expected.begin(),
                "3 get unknown core_type: " + std::to_string(static_cast<unsigned int>(test.core)));
        }
        EXPECT_EQ(acquisition(recorded([&] { EXPECT_EQ(this->configure(), 0); })), expected);
        Entries written{{"coreType", test.coreType == 802 ? 1 : 0}, {"outFormat", 1}};
        if (std::is_same_v<TypeParam, Decoder>) {
            written = {{"resource-core-type", test.coreType},
                       {"resource-id", kvo::host::crmClients().back().uniqueId},
                       {"video-port", test.videoPort},
                       {"max-width", test.core},
                       {"max-height", 222}};
        }
        EXPECT_EQ(this->codec->configured.size(), written.size());
        for (auto const& [name, value] : written) {
            EXPECT_EQ(this->codec->configured.getInt32(name.c_str(), -9), value) << name;
        }
        this->wrapper->release();
    }
}

TYPED_TEST(BothWrappersTest, AFailedAcquisitionKeepsWhatItMustAndSaysSo) {
    struct Case {
        std::string failing;
        std::uint64_t nth;
        int code;
        Lines log;
        int core;  ///< Held by the client after the failure.
        std::size_t nextRequests;
    };
    std::vector<Case> const cases{
        {"ClientInit", 1, -5, {"1 acquire resource not implement"}, 0, 1},
        {"ClientInit", 1, 0, {"1 acquire resource fail"}, 0, 1},  // Without a handle.
        {"ClientAcquireResource", 1, -5, {"1 get resource fail"}, 0, 1},
        {"ClientGetResource", 2, -5, {"1 get resource fail"}, 1, 1},
        {"ClientGetUniqueId", 1, -5, {"2 core_type: 801", "0 get resource id fail"}, 1, 0},
    };
    for (auto const& test : cases) {
        SCOPED_TRACE(test.failing);
        kvo::host::failCall("TVHW_CRM_" + test.failing, test.code, test.nth);
        bool const noManager = test.failing == "ClientInit" && test.code != 0;
        int const status = noManager ? TypeParam::kStatusWithoutManager : -1;
        auto const log = recorded([&] {
            EXPECT_EQ(this->configure({{"calling-pid", 42}, {"useDmaBuffer", 1}}), status);
        });
        EXPECT_EQ(only("codec.", log).size(), status == 0 ? 1U : 0U);
        EXPECT_EQ(acquisition(log), test.log);
        auto const clients = kvo::host::crmClients();
        EXPECT_EQ(clients.empty() ? 0 : clients[0].core, test.core);

        auto const next = recorded([&] { EXPECT_EQ(this->configure(), 0); });
        EXPECT_EQ(only("ClientAcquireResource", next).size(), test.nextRequests);
        EXPECT_EQ(kvo::host::crmClients().size(), 1U) << "the earlier client is closed";
        auto const reclaim = recorded([&] { EXPECT_EQ(this->reclaimNewest().get(), 1); });
        EXPECT_EQ(only("pid=42", reclaim), Lines{}) << "a failure leaves no process behind";
        this->start();
    }
}

}  // namespace
