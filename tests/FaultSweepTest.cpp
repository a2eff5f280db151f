#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <regex>
#include <set>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "ScalerStart.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"
#include "tvhw_vo.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::JournalEntry;
using kvo::host::note;

/// Platform calls that tell of their failure. What the others return is a value, or ignored.
std::regex const kTelling("TVHW_(CRM_Client|VSC_|VO_).*");
/// What an operation says of its own failure, after the line of the call that failed.
std::regex const kFailure(
    "[01] (.* (acquireResources|acquireDisplayResources|clearDisplayResources)"
    "|ImageSink (configure|displayPicture|close)): .*");
/// What may be said besides that.
std::regex const kRemark(".*(crm-acquire:  -> none|: device not opened)");

bool beginsWith(std::string const& text, std::string const& start) {
    return text.compare(0, start.size(), start) == 0;
}

/// The codes of the calls that are made to fail, by their number.
using Faults = std::map<std::size_t, int>;

/// Reads the journal of a life and checks that the library said and returned what it must.
class Verifier {
public:
    explicit Verifier(Faults const& faults) : mFaults(faults) {}

    void read(std::vector<JournalEntry> const& journal) {
        for (auto const& entry : journal) {
            if (entry.kind == JournalEntry::Kind::kPlatformCall) {
                beginCall(entry.text);
            } else if (entry.kind == JournalEntry::Kind::kLogLine) {
                readLine(entry.text);
            } else if (beginsWith(entry.text, "step ")) {
                endCall();
                mStep = entry.text.substr(5);
                mStatus = 0;
                mReached = false;
            } else if (beginsWith(entry.text, "result ")) {
                endStep(std::stoi(entry.text.substr(7)));
            } else {
                mReached = mReached || beginsWith(entry.text, "codec." + mStep + "(");
            }
        }
        endCall();
    }

    std::size_t calls() const { return mCalls; }

private:
    void beginCall(std::string const& text) {
        endCall();
        mName = text.substr(0, text.find('('));
        // A client's first release comes before its acquisition, and in silence.
        bool const isFirst =
            mName == "TVHW_CRM_ClientReleaseResource" && mReleases.insert(text).second;
        mTells = !isFirst && std::regex_match(mName, kTelling);
        mSaid = false;
        auto const fault = mFaults.find(++mCalls);
        mCode = fault == mFaults.end() ? "" : std::to_string(fault->second);
    }

    void endCall() {
        EXPECT_TRUE(mCode.empty() || !mTells || mSaid) << mName << " failed in silence";
        mCode.clear();
        mOutcomes.clear();
    }

    void readLine(std::string const& text) {
        if (text[0] >= '2') {
            return;
        }
        bool const isFailure = std::regex_match(text, kFailure);
        if (isFailure && text.find("VideoEncClient acquireResources: acquire resource not") != 2) {
            mStatus = -1;
        }
        bool const isOutcome = isFailure || std::regex_match(text, kRemark);
        if (mTells && !mSaid && (!isOutcome || beginsWith(mName, "TVHW_VO_"))) {
            mSaid = true;
            auto const code = std::min(text.find("ret="), text.find("err="));
            EXPECT_TRUE(code == std::string::npos || text.find(mCode, code + 4) == code + 4)
                << text;
        } else {
            EXPECT_TRUE(isOutcome) << "after " << mName << ": " << text;
            EXPECT_TRUE(mOutcomes.insert(text).second) << "logged twice: " << text;
        }
    }

    /// A step is named after the codec's operation. Only release and destruction tell nothing.
    void endStep(int result) {
        if (mStep == "reclaim") {
            mReclaimed = result == 1;
            return;
        }
        bool const tells = mStep != "release" && mStep != "destroy";
        EXPECT_EQ(result, !tells ? 0 : mStatus == 0 && mReclaimed ? -19 : mStatus) << mStep;
        if (mStep.find("configure") != std::string::npos && mStep != "configure sink") {
            EXPECT_EQ(mReached, result == 0) << mStep;
        }
    }

    Faults const mFaults;
    std::size_t mCalls = 0;
    std::string mName;                ///< Of the last call.
    bool mTells = false;              ///< A failure of the last call is logged.
    std::string mCode;                ///< That it was made to return; empty if none.
    bool mSaid = false;               ///< The line of its failure was logged.
    std::set<std::string> mReleases;  ///< Made so far.
    std::set<std::string> mOutcomes;  ///< Logged since the call.
    std::string mStep;
    int mStatus = 0;        ///< That the step must return, as far as is known.
    bool mReached = false;  ///< The step has reached the codec.
    bool mReclaimed = false;
};

// --- The lives.

template <typename Operation>
void step(char const* name, Operation const& operation) {
    note(std::string("step ") + name);
    int result = 0;
    if constexpr (std::is_void_v<decltype(operation())>) {
        operation();
    } else if constexpr (std::is_same_v<decltype(operation()), int>) {
        result = operation();
    } else {
        result = operation().status().code();
    }
    note("result " + std::to_string(result));
}

int reclaimNewest() {
    auto const clients = kvo::host::crmClients();
    return clients.empty() ? -1 : kvo::host::reclaim(clients.back().uniqueId).get();
}

void liveDecoder() {
    kvo::host::setProperty("ro.vendor.kvo.omx.clear_display", 1);
    kvo::host::setForcedAcquirePolicy([](int) { return false; });
    auto decoder =
        std::make_unique<VideoDecoderClientWrapperResource>(std::make_shared<FakeDecoder>());
    Configuration config;
    config.setInt32(key::kCallingPid, 42);
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

void liveEncoder() {
    auto encoder =
        std::make_unique<VideoEncoderClientWrapperResource>(std::make_shared<FakeEncoder>());
    Configuration config;
    config.setInt32(key::kOutFormat, 1);
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

void liveScaler() {
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

void liveSink() {
    auto const pixels = std::make_shared<std::vector<unsigned char>>(16);
    Image const image{0, 2, 2, 0, kvo::host::registerMemory(pixels), 16, 8};
    Configuration config;
    config.setInt32(key::kWidth, 2);
    config.setInt32(key::kHeight, 2);
    std::unique_ptr<ImageSinkTvhwImpl> sink;
    step("construct", [&] { sink = std::make_unique<ImageSinkTvhwImpl>(); });
    for (int round = 0; round < 2; ++round) {
        step("open", [&] { sink->checkOpen(); });
        step("configure sink", [&] { return sink->configure(config); });
        step("displayPicture", [&] { return sink->displayPicture(image); });
        if (round == 0) {
            step("close", [&] { return sink->close(); });
        }
    }
    step("destroy", [&] { sink.reset(); });
}

/// Runs a life with faults, checks it and returns the number of its platform calls.
std::size_t run(void (*life)(), Faults const& faults) {
    std::string trace = "failing:";
    for (auto const& [nth, code] : faults) {
        trace += " call " + std::to_string(nth) + " with " + std::to_string(code);
        kvo::host::failCall("*", code, nth);
    }
    SCOPED_TRACE(trace);
    auto const registrations = ResourceClient::sReferenceHolder.size();
    kvo::host::startJournal();
    life();
    Verifier verifier(faults);
    verifier.read(kvo::host::stopJournal());
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
    std::map<std::string, void (*)()> const lives{{"decoder", liveDecoder},
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
