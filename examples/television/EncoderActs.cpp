#include <algorithm>
#include <utility>

#include "Acts.h"
#include "Recorder.h"
#include "fmt/core.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

/// Pictures that a recorder records before another one comes.
constexpr unsigned int kPicturesBeforeContest = 10;

/// Pictures of a clip that are recorded at most, since encoding takes its time.
constexpr unsigned int kMostRecorded = 300;

unsigned int recorded(Demonstration const& demo) {
    return std::min(demo.clip.frames, kMostRecorded);
}

std::string coreOf(Recorder& recorder) {
    Configuration const config = recorder.encoder().getConfiguration().value();
    return "coreType " + std::to_string(config.getInt32(key::kCoreType, -1));
}

/// Reads a recording back as any clip is read.
void requireRecorded(std::string const& path, CodecType format, unsigned int pictures) {
    Clip clip;
    try {
        clip = inspectClip(path, {}, [](unsigned int) {});
    } catch (UnusableFile const& error) {
        throw Failure(error.what());
    }
    require(clip.codecType == format, path + " is of another codec than was asked for");
    require(clip.frames == pictures,
            fmt::format("{} holds {} pictures, not {}", path, clip.frames, pictures));
}

void recordAs(Demonstration& demo, CodecType format, std::string const& formatName,
              std::string const& file) {
    std::string const act = "6 recording " + formatName;
    demo.progress.begin(act);
    Recorder::Settings settings;
    settings.format = format;
    settings.limit = kMostRecorded;
    settings.path = demo.addFile(file, "the clip, encoded as " + formatName);
    {
        Recorder recorder(demo.clip, settings);
        expect("configure", recorder.configure());
        std::string const core = coreOf(recorder);
        expect("configuring the player", recorder.start());
        Player::Result const result = finish(demo, recorder.player(), recorded(demo));
        recorder.closeFile();
        expect("release", recorder.encoder().release().status());
        demo.addRow(act, result.frames, recorder.size(), core, "", demo.progress.seconds());
    }
    requireNothingHeld();
    requireRecorded(settings.path, format, recorded(demo));
    demo.progress.end("all " + std::to_string(recorded(demo)) + " pictures read back");
}

/// Requires that the calls of an encoder that lost its core are refused.
void requireRefusals(VideoEncoderClientWrapperResource& encoder) {
    constexpr int kRefused = status::kReclaimed.code();
    unsigned char data[1]{};
    unsigned long long timeUs = 0;
    unsigned int length = sizeof(data);
    PicType type = PicType::UNKNOWN;
    expect("write", encoder.writeInputFrame(0, data, length).status(), kRefused);
    expect("read", encoder.readOutputFrame(&timeUs, data, &length, &type).status(), kRefused);
    expect("pause", encoder.pause().status());
    expect("resume", encoder.resume().status());
    expect("flush", encoder.flush().status());
}

}  // namespace

void recordClip(Demonstration& demo) {
    recordAs(demo, CodecType::AVC, "AVC", "recording-avc.mp4");
    recordAs(demo, CodecType::VP8, "VP8", "recording-vp8.webm");
}

void contendForEncoder(Demonstration& demo) {
    demo.progress.begin("7 three recorders, one core");
    // Two players at a time, and one encoder.
    host::setPool({host::CodecCore{}, host::CodecCore{}, {2, true, 1920, 1088}});
    Recorder::Settings settings;
    settings.loop = true;
    std::string const file =
        demo.addFile("recording-live.mp4", "the clip, encoded by an encoder that kept its core");
    {
        Recorder first(demo.clip, settings);
        expect("configure", first.configure());
        std::string const firstCore = coreOf(first);
        expect("configuring the player", first.start());
        require(first.player().waitForFrames(kPicturesBeforeContest), "the first recorder stopped");

        Recorder live(demo.clip, {CodecType::AVC, file, kMostRecorded, false, true});
        expect("configure", live.configure());
        std::string const liveCore = coreOf(live);
        Player::Result const lost = first.player().finish([](unsigned int) {});
        double const firstSeconds = demo.progress.seconds();
        expect("draining", lost.drain, status::kReclaimed.code());
        requireRefusals(first.encoder());
        expect("release", first.encoder().release().status());

        expect("configuring the player", live.start());
        require(live.player().waitForFrames(1), "the live recorder stopped");
        Recorder third(demo.clip, settings);
        expect("configure", third.configure(), status::kResourceFailed.code());
        expect("release", third.encoder().release().status());
        Player::Result const result = finish(demo, live.player(), recorded(demo));
        live.closeFile();
        expect("release", live.encoder().release().status());

        double const liveSeconds = demo.progress.seconds() - firstSeconds;
        demo.addRow("7 first recorder", lost.frames, first.size(), firstCore, "", firstSeconds);
        demo.addRow("  live recorder", result.frames, live.size(), liveCore, "", liveSeconds);
        demo.addRow("  third recorder", 0, third.size(), "refused", "", 0);
    }
    requireNothingHeld();
    requireRecorded(file, CodecType::AVC, recorded(demo));
    demo.progress.end("the first lost it to a live one, which the third could not take it from");
}

}  // namespace kvo::media::hardware::example
