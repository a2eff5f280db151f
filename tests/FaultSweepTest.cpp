#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>

#include "FakeCodecs.h"
#include "GuardedCalls.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw/ImageSinkTvhwImpl.h"
#include "tvhw/VideoDecoderClientWrapperResource.h"
#include "tvhw/VideoEncoderClientWrapperResource.h"
#include "tvhw/VideoScalerClientTvhwImpl.h"
#include "tvhw_vo.h"

namespace {

using namespace kvo::media::hardware;
using kvo::host::JournalEntry;
using kvo::host::note;

/// Platform calls with the line that their failure causes, or one of them: how it begins and, where
/// that ends in '=', the code after it. What other calls return is a value, or ignored.
std::vector<std::pair<std::string, std::string>> const kLines{
    {"CRM_ClientInit", "0 VideoClient initialize: crm: failed to init client, ret="},
    {"CRM_ClientFree", "0 VideoClient UnInitialize: crm: failed to release client, ret="},
    {"CRM_ClientReleaseResource", "0 VideoClient releaseResource: crm-release: ret="},
    {"CRM_ClientAcquireResource",
     "0 VideoClient acquireResource: crm-acquire: failed to acquire resource, ret="},
    {"CRM_ClientAcquireResource",
     "0 VideoClient acquireDisplayResource: crm-acquire: failed to acquire display resource, ret="},
    {"CRM_ClientTryAcquireResource",
     "0 VideoClient acquireResource: crm-acquire: failed to acquire resource, ret="},
    {"CRM_ClientGetResource",
     "1 VideoClient acquireResource: crm-acquire: failed to get resource, ret="},
    {"CRM_ClientGetResource",
     "1 VideoClient acquireDisplayResource: crm-acquire: failed to get display resource, ret="},
    {"CRM_ClientGetResource", "0 VideoClient getResource: crm-resource: ret="},
    {"CRM_ClientGetResource", "0 VideoClient getDisplayResource: crm-resource: ret="},
    {"CRM_ClientClearResource", "0 VideoClient clearDisplayResource: clear crm-resource: ret="},
    {"CRM_ClientGetUniqueId", "0 VideoClient getUniqueId: crm-get-id: ret="},
    {"VSC_Initialize", "0 VideoScalerTvhw init: failed to init vsc: ret="},
    {"VSC_Open", "0 VideoScalerTvhw checkOpen: failed to open vsc, ret="},
    {"VSC_Close", "0 VideoScalerTvhw ~VideoScalerClientTvhwImpl: failed to close vsc, ret="},
    {"VSC_Connect", "0 VideoScalerTvhw connect: connect vsc 0(vscType "},
    {"VSC_Disconnect", "0 VideoScalerTvhw disconnect: disconnect vsc 0(vscType "},
    {"VSC_SetAdaptiveStreamEx", "0 VideoScalerTvhw connect: setAdaptive vsc 0("},
    {"VSC_SetWinBlank", "0 VideoScalerTvhw setWinBlank: winblank vsc 0 ("},
    {"VSC_SetInputRegion", "0 VideoScalerTvhw updateRegion: set-input [0]: err="},
    {"VSC_SetInputRegion_ForAdaptive",
     "0 VideoScalerTvhw updateRegion: set-input-adaptive [0]: err="},
    {"VSC_SetOutputRegion", "0 VideoScalerTvhw updateRegion: set-output [0]: err="},
    {"VO_Open", "0 ImageSink checkOpen: failed to open vo: ret="},
    {"VO_Config", "0 ImageSink configure: TVHW_VO_Config fail"},
    {"VO_DisplayPicture", "0 ImageSink displayPicture: TVHW_VO_DisplayPicture fail"},
    {"VO_Close", "0 ImageSink close: TVHW_VO_Close fail"},
};

/// What else an operation may say of its failures; with the status that it then returns.
std::map<std::string, int> const kOutcomes{
    {"1 VideoClient acquireResource: crm-acquire:  -> none", 0},
    {"1 VideoClient acquireResources: acquire resource not implement", -1},
    {"1 VideoClient acquireResources: get resource fail", -1},
    {"0 VideoClient acquireResources: get resource id fail", -1},
    {"0 VideoClient acquireDisplayResources: vdoPort=TVHW_CRM_VIDEO_PORT_NONE", -1},
    {"1 VideoClient clearDisplayResources: clear display resource fail", -1},
    {"1 VideoEncClient acquireResources: acquire resource not implement", 0},
    {"1 VideoEncClient acquireResources: get resource fail", -1},
    {"0 VideoEncClient acquireResources: get resource id fail", -1},
    {"0 VideoScalerTvhw connect: vsc-connect: device not opened", 0},
    {"0 VideoScalerTvhw updateRegion: vsc-updateRegion: device not opened", 0},
    {"0 VideoScalerTvhw disconnect: vsc-disconnect: device not opened", 0},
    {"0 ImageSink configure: TVHW_VO_Config fail", -1},
    {"0 ImageSink displayPicture: TVHW_VO_DisplayPicture fail", -1},
    {"0 ImageSink close: TVHW_VO_Close fail", -1},
};

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
                mReached = mReached || entry.text == "codec." + mStep;
            }
        }
        endCall();
    }

    std::size_t calls() const { return mCalls; }

    /// Says whether the last call was the last try to close the video output, and failed.
    bool outputStaysOpen() const { return mName == "VO_Close" && mFaults.count(mCalls) != 0; }

private:
    void beginCall(std::string const& text) {
        endCall();
        mName = text.substr(0, text.find('('));
        mName.erase(0, mName.rfind("TVHW_", 0) == 0 ? 5 : 0);
        mSaid = false;
        // A client's first release comes before its acquisition, and in silence.
        if (mName == "CRM_ClientReleaseResource" && mReleases.insert(text).second) {
            mName += " before an acquisition";
        }
        auto const fault = mFaults.find(++mCalls);
        mCode = fault == mFaults.end() ? "" : std::to_string(fault->second);
    }

    void endCall() {
        bool const isSilent = std::none_of(kLines.begin(), kLines.end(),
                                           [&](auto const& line) { return line.first == mName; });
        EXPECT_TRUE(mCode.empty() || isSilent || mSaid) << mName << " failed in silence";
        mCode.clear();
        mOutcomes.clear();
    }

    void readLine(std::string const& text) {
        auto const outcome = kOutcomes.find(text);
        if (outcome != kOutcomes.end()) {
            mStatus = std::min(mStatus, outcome->second);
        }
        auto const line = std::find_if(kLines.begin(), kLines.end(), [&](auto const& entry) {
            return entry.first == mName && beginsWith(text, entry.second);
        });
        if (line != kLines.end() && !mSaid) {
            mSaid = true;
            EXPECT_TRUE(line->second.back() != '=' || beginsWith(text, line->second + mCode));
        } else if (text[0] < '2') {
            EXPECT_NE(outcome, kOutcomes.end()) << "after " << mName << ": " << text;
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
    int const leftOpen = kvo::host::videoOutput().opens;
    EXPECT_EQ(leftOpen, verifier.outputStaysOpen() ? 1 : 0);
    kvo::host::reset();
    if (leftOpen == 1) {
        TVHW_VO_Close(0);
    }
    return verifier.calls();
}

TEST(FaultSweep, EveryPlatformCallMayFailInEveryLife) {
    ASSERT_TRUE(VideoScalerClientTvhwImpl::init());
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

TEST(FaultSweepDeathTest, TheFirstScalerOfAProcessMayFailToInitialise) {
    for (Faults const& faults : {Faults{{1, -5}}, Faults{{1, 5}}, Faults{{1, -5}, {2, -5}},
                                 Faults{{1, 5}, {2, 5}, {3, 5}, {4, 5}}, Faults{{2, -5}}}) {
        EXPECT_EXIT(
            {
                run(liveScaler, faults);
                std::exit(HasFailure() ? 1 : 0);
            },
            testing::ExitedWithCode(0), "");
    }
}

}  // namespace
