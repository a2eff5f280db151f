#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <regex>
#include <set>
#include <utility>

#include "ScalerStart.h"
#include "WrapperTest.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw_vo.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::JournalEntry;

/// Platform calls that tell of their failure. What the others return is a value, or ignored.
std::regex const kTelling("TVHW_(CRM_Client|VSC_|VO_).*");
/// What is said besides the line of a call that failed.
std::regex const kOutcome(
    "[01] .* (acquireResources|acquireDisplayResources|clearDisplayResources): .*"
    "|.*(crm-acquire:  -> none|: device not opened)");
/// What an operation says that fails. An encoder goes on without a resource manager.
std::regex const kFailure(
    "[01] (?!VideoEncClient acquireResources: acquire resource not).* "
    "(acquireResources|acquireDisplayResources|clearDisplayResources|configure|displayPicture"
    "|close): .*");

/// The codes of the calls that are made to fail, by their number.
using Faults = std::map<std::size_t, int>;

/// Takes the steps of a life and checks that the library says and returns what it must.
class Verifier {
public:
    explicit Verifier(Faults const& faults) : mFaults(faults) {}

    /// Takes a step, named after the codec's operation. Only release and destruction tell nothing.
    template <typename Operation>
    void operator()(std::string const& step, Operation const& operation) {
        int status = 0;
        bool isCodecReached = false;
        std::string code;      // Of a failure that is to be told.
        std::string previous;  // What was said since the last call.
        kvo::host::startJournal();
        int const result = resultOf(operation);
        for (auto const& [kind, text, file, line] : kvo::host::stopJournal()) {
            if (kind == JournalEntry::Kind::kPlatformCall) {
                EXPECT_EQ(code, "") << "a call failed in silence before " << text;
                // A client's first release comes before its acquisition, and in silence.
                bool const isFirst = text.find("ReleaseResource") != std::string::npos &&
                                     mReleases.insert(text).second;
                bool const tells = !isFirst && std::regex_match(text, kTelling);
                auto const fault = mFaults.find(++mCalls);
                code = tells && fault != mFaults.end() ? std::to_string(fault->second) : "";
                previous.clear();
            } else if (kind == JournalEntry::Kind::kNote) {
                isCodecReached = isCodecReached || text.find("codec." + step + "(") == 0;
            } else if (text[0] < '2') {
                EXPECT_NE(std::exchange(previous, text), text) << "is said twice";
                if (!std::regex_match(text, kOutcome)) {
                    auto const at = std::min(text.find("ret="), text.find("err="));
                    bool const hasCode = at != std::string::npos;
                    EXPECT_TRUE(!hasCode || text.compare(at + 4, code.size(), code) == 0) << text;
                    code.clear();
                }
                status = std::regex_match(text, kFailure) ? -1 : status;
            }
        }
        EXPECT_EQ(code, "") << step << " failed in silence";
        if (step == "reclaim") {
            mReclaimed = result == 1;
            return;
        }
        bool const tells = step != "release" && step != "destroy";
        EXPECT_EQ(result, !tells ? 0 : status == 0 && mReclaimed ? -19 : status) << step;
        if (step.find("configure") != std::string::npos && step != "configure sink") {
            EXPECT_EQ(isCodecReached, result == 0) << step;
        }
    }

    std::size_t calls() const { return mCalls; }

private:
    template <typename Operation>
    static int resultOf(Operation const& operation) {
        if constexpr (std::is_void_v<decltype(operation())>) {
            operation();
            return 0;
        } else if constexpr (std::is_same_v<decltype(operation()), int>) {
            return operation();
        } else {
            return operation().status().code();
        }
    }

    Faults const mFaults;
    std::size_t mCalls = 0;
    std::set<std::string> mReleases;  ///< Made so far.
    bool mReclaimed = false;
};

// --- The lives.

int reclaimNewest() {
    auto const clients = kvo::host::crmClients();
    return clients.empty() ? -1 : kvo::host::reclaim(clients.back().uniqueId).get();
}

void liveDecoder(Verifier& step) {
    kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", 1);
    kvo::host::setForcedAcquirePolicy([](int) { return false; });
    auto decoder =
        std::make_unique<VideoDecoderClientWrapperResource>(std::make_shared<FakeDecoder>());
    auto const config = configuration({{key::kCallingPid, 42}});
    BufferInfo shown;
    shown.videoPort = 1;
    auto const type = CodecType::AVC;
    step("configureReferenceMode", [&] { return decoder->configureReferenceMode({}, config); });
    step("configureReferenceMode", [&] { return decoder->configureReferenceMode(type, config); });
    step("releaseOutputBuffer", [&] { return decoder->releaseOutputBuffer(shown); });
    step("release", [&] { return decoder->release(); });
    step("configureTunnelMode", [&] { return decoder->configureTunnelMode(type, {}); });
    for (auto const& guarded : guardedDecoderCalls()) {
        step(guarded.name.c_str(), [&] { return guarded.call(*decoder); });
    }
    step("reconfigureOutputBuffer", [&] { return decoder->reconfigureOutputBuffer(type, config); });
    step("configureTunnelMode", [&] { return decoder->configureTunnelMode(type, config); });
    step("configurePixelMode", [&] { return decoder->configurePixelMode(type, {}); });
    step("release", [&] { return decoder->release(); });
    step("configureNativeBufferMode",
         [&] { return decoder->configureNativeBufferMode(type, config); });
    step("reclaim", reclaimNewest);
    step("writeInputEndOfStream", [&] { return decoder->writeInputEndOfStream(); });
    step("configurePixelMode", [&] { return decoder->configurePixelMode(type, {}); });
    step("release", [&] { return decoder->release(); });
    step("destroy", [&] { decoder.reset(); });
}

void liveEncoder(Verifier& step) {
    auto encoder =
        std::make_unique<VideoEncoderClientWrapperResource>(std::make_shared<FakeEncoder>());
    auto const config = configuration({{key::kOutFormat, 1}});
    auto const configure = [&] { return encoder->configure(config); };
    step("configure", [&] { return encoder->configure({}); });
    step("configure", configure);
    for (auto const& guarded : guardedEncoderCalls()) {
        step(guarded.name.c_str(), [&] { return guarded.call(*encoder); });
    }
    step("configure", configure);
    step("release", [&] { return encoder->release(); });
    step("configure", configure);
    step("reclaim", reclaimNewest);
    step("setParameters", [&] { return encoder->setParameters({}); });
    step("configure", configure);
    step("release", [&] { return encoder->release(); });
    step("destroy", [&] { encoder.reset(); });
}

void liveScaler(Verifier& step) {
    IVideoScalerClient::LayerInfo info;
    info.type = 4;
    info.inputRegion = info.outputRegion = {0, 0, 640, 360, 1280, 720};
    forgetScalerInitialisation();
    std::unique_ptr<VideoScalerClientTvhwImpl> scaler;
    step("construct", [&] { scaler = std::make_unique<VideoScalerClientTvhwImpl>(0); });
    step("connect", [&] { scaler->connect(info); });
    step("updateRegion", [&] { scaler->updateRegion(info); });
    info.adaptive = info.port = 1;
    step("reconnect", [&] { scaler->connect(info); });
    step("updateRegion", [&] { scaler->updateRegion(info); });
    step("disconnect", [&] { scaler->disconnect(); });
    step("connect", [&] { scaler->connect(info); });
    step("destroy", [&] { scaler.reset(); });
}

void liveSink(Verifier& step) {
    auto const pixels = std::make_shared<std::vector<unsigned char>>(16);
    Image const image{0, 2, 2, 0, kvo::host::registerMemory(pixels), 16, 8};
    auto const config = configuration({{key::kWidth, 2}, {key::kHeight, 2}});
    std::unique_ptr<ImageSinkTvhwImpl> sink;
    step("construct", [&] { sink = std::make_unique<ImageSinkTvhwImpl>(); });
    for (int round = 0; round < 2; ++round) {
        step("open", [&] {
            bool const isOpen = sink->checkOpen();
            EXPECT_EQ(isOpen, kvo::host::videoOutput().opens == 1);
        });
        step("configure sink", [&] { return sink->configure(config); });
        step("displayPicture", [&] { return sink->displayPicture(image); });
        if (round == 0) {
            step("close", [&] { return sink->close(); });
        }
    }
    step("destroy", [&] { sink.reset(); });
}

/// Runs a life with faults, checks it and returns the number of its platform calls.
std::size_t run(void (*life)(Verifier&), Faults const& faults) {
    std::string trace = "failing:";
    for (auto const& [nth, code] : faults) {
        trace += " call " + std::to_string(nth) + " with " + std::to_string(code);
        kvo::host::failCall("*", code, nth);
    }
    SCOPED_TRACE(trace);
    auto const registrations = ResourceClient::sReferenceHolder.size();
    Verifier verifier(faults);
    life(verifier);
    EXPECT_TRUE(kvo::host::crmClients().empty());
    EXPECT_EQ(ResourceClient::sReferenceHolder.size(), registrations);
    EXPECT_FALSE(kvo::host::scalerChannel(0).opened);
    // Where a sink's last try fails, its output stays open.
    auto const leftOpen = static_cast<std::size_t>(kvo::host::videoOutput().opens);
    EXPECT_LE(leftOpen, faults.count(verifier.calls()));
    kvo::host::reset();
    if (leftOpen == 1) {
        TVHW_VO_Close(0);
    }
    return verifier.calls();
}

TEST(FaultSweep, EveryPlatformCallMayFailInEveryLife) {
    std::size_t runs = 0;
    std::size_t faults = 0;
    std::uint64_t const callsBefore = kvo::host::platformCallCount();
    std::map<std::string, void (*)(Verifier&)> const lives{{"decoder", liveDecoder},
                                                           {"encoder", liveEncoder},
                                                           {"scaler", liveScaler},
                                                           {"sink", liveSink}};
    for (auto const& [name, life] : lives) {
        SCOPED_TRACE(name);
        std::size_t const calls = run(life, {});
        ++runs;
        for (std::size_t nth = 1; nth <= calls && !HasFailure(); ++nth) {
            for (int const code : {-5, 5}) {
                run(life, {{nth, code}});
                bool const both = run(life, {{nth, code}, {nth + 1, code}}) > nth;
                faults += both ? 3U : 2U;
                runs += 2;
            }
        }
    }
    std::printf("fault sweep: %zu runs, %zu faults, %" PRIu64 " platform calls\n", runs, faults,
                kvo::host::platformCallCount() - callsBefore);
}

}  // namespace
