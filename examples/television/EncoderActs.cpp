#include "EncoderActs.h"

#include <utility>

#include "Recorder.h"
#include "host/HostPlatform.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::demo {

using namespace media::hardware;

namespace {

/// Pictures that a recorder records before another one comes.
constexpr unsigned int kPicturesBeforeContest = 10;

SummaryRow makeRow(std::string act, unsigned int pictures, Recorder const& recorder, int coreType,
                   Answers const& answers, double seconds) {
    return {std::move(act),
            std::to_string(pictures),
            sizeText(recorder.size().width, recorder.size().height),
            "coreType " + std::to_string(coreType),
            "",
            answers.text(),
            secondsText(seconds)};
}

int coreTypeOf(Recorder& recorder) {
    return recorder.encoder().getConfiguration().value().getInt32(key::kCoreType, -1);
}

/// Reads a recording back as the demo reads any clip.
void requireRecorded(std::string const& path, CodecType format, unsigned int pictures) {
    Clip clip;
    try {
        clip = inspectClip(path, [](unsigned int) {});
    } catch (UnusableFile const& error) {
        throw DemoFailure(error.what());
    }
    require(clip.codecType == format, path + " is of another codec than was asked for");
    require(clip.frames == pictures, path + " holds " + std::to_string(clip.frames) +
                                         " pictures, not " + std::to_string(pictures));
}

void recordAs(Show& show, CodecType format, std::string const& formatName,
              std::string const& file) {
    std::string const act = "6 recording " + formatName;
    show.progress.begin(act);
    Recorder::Settings settings;
    settings.format = format;
    settings.path = show.addFile(file, "the clip, encoded as " + formatName);
    {
        Recorder recorder(show.clip, settings);
        Answers answers;
        answers.require("configure", recorder.configure());
        int const coreType = coreTypeOf(recorder);
        recorder.start();
        Player::Result const result = finishClip(show, recorder.player(), answers);
        recorder.closeFile();
        answers.require("release", recorder.encoder().release().status());
        show.rows.push_back(
            makeRow(act, result.frames, recorder, coreType, answers, show.progress.seconds()));
    }
    requireNothingHeld();
    requireRecorded(settings.path, format, show.clip.frames);
    show.progress.end("all " + std::to_string(show.clip.frames) + " pictures read back");
}

/// Requires that the calls of an encoder that lost its core are refused.
void requireRefusals(VideoEncoderClientWrapperResource& encoder, Answers& answers) {
    constexpr int kRefused = status::kReclaimed.code();
    unsigned char data[1]{};
    unsigned long long timeUs = 0;
    unsigned int length = sizeof(data);
    PicType type = PicType::UNKNOWN;
    answers.require("write", encoder.writeInputFrame(0, data, length).status(), kRefused);
    answers.require("read", encoder.readOutputFrame(&timeUs, data, &length, &type).status(),
                    kRefused);
    answers.require("pause", encoder.pause().status());
    answers.require("resume", encoder.resume().status());
    answers.require("flush", encoder.flush().status());
}

}  // namespace

void recordClip(Show& show) {
    recordAs(show, CodecType::AVC, "AVC", "recording-avc.mp4");
    recordAs(show, CodecType::VP8, "VP8", "recording-vp8.webm");
}

void contendForEncoder(Show& show) {
    show.progress.begin("7 three recorders, one core");
    // Two players at a time, and one encoder.
    host::setPool({host::CodecCore{}, host::CodecCore{}, {2, true, 1920, 1088}});
    Recorder::Settings settings;
    settings.loop = true;
    std::string const file =
        show.addFile("recording-live.mp4", "the clip, encoded by an encoder that kept its core");
    {
        Recorder first(show.clip, settings);
        Answers firstAnswers;
        firstAnswers.require("configure", first.configure());
        int const firstCore = coreTypeOf(first);
        first.start();
        require(first.player().waitForFrames(kPicturesBeforeContest), "the first recorder stopped");

        Recorder live(show.clip, {CodecType::AVC, file, false, true});
        Answers liveAnswers;
        liveAnswers.require("configure", live.configure());
        int const liveCore = coreTypeOf(live);
        Player::Result const lost = first.player().finish([](unsigned int) {});
        double const firstSeconds = show.progress.seconds();
        firstAnswers.require("drain", lost.drain, status::kReclaimed.code());
        requireRefusals(first.encoder(), firstAnswers);
        firstAnswers.require("release", first.encoder().release().status());

        live.start();
        require(live.player().waitForFrames(1), "the live recorder stopped");
        Recorder third(show.clip, settings);
        Answers thirdAnswers;
        thirdAnswers.require("configure", third.configure(), status::kResourceFailed.code());
        thirdAnswers.require("release", third.encoder().release().status());
        Player::Result const result = finishClip(show, live.player(), liveAnswers);
        live.closeFile();
        liveAnswers.require("release", live.encoder().release().status());

        show.rows.push_back(
            makeRow("7 first recorder", lost.frames, first, firstCore, firstAnswers, firstSeconds));
        show.rows.push_back(makeRow("  live recorder", result.frames, live, liveCore, liveAnswers,
                                    show.progress.seconds() - firstSeconds));
        show.rows.push_back({"  third recorder", "0", "", "refused", "", thirdAnswers.text(), ""});
    }
    requireNothingHeld();
    requireRecorded(file, CodecType::AVC, show.clip.frames);
    show.progress.end("the first lost it to a live one, which the third could not take it from");
}

}  // namespace kvo::demo
