#include "Recorder.h"

#include <algorithm>
#include <utility>

#include "LibavEncoder.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::demo {

using namespace media::hardware;

namespace {

/// Larger pictures are recorded in a smaller size.
constexpr Size kLargestSize{1920, 1080};

constexpr int kUsualFrameRate = 25;
constexpr unsigned long long kSecondUs = 1'000'000;

}  // namespace

Recorder::Recorder(Clip const& clip, Settings settings)
    : mClip(clip),
      mSettings(std::move(settings)),
      mSize(fitInto({clip.width, clip.height}, kLargestSize)),
      mFrameRate(clip.frameRate > 0 ? clip.frameRate : kUsualFrameRate),
      mEncoder(std::make_shared<LibavEncoder>()),
      mPlayer(clip, {Player::Mode::kPixel, mSettings.loop, false, nullptr,
                     [this](Picture const& picture) { return record(picture); }}) {}

Status Recorder::configure() {
    Configuration config;
    config.setInt32(key::kWidth, mSize.width);
    config.setInt32(key::kHeight, mSize.height);
    config.setInt32(key::kFrameRate, mFrameRate);
    config.setInt32(key::kOutFormat, static_cast<int>(mSettings.format));
    config.setInt32(key::kUseDmaBuffer, mSettings.isLive ? 1 : 0);
    return mEncoder.configure(config).status();
}

void Recorder::start() {
    require(!mPlayer.configure().isError(), "the recorder's player cannot be configured");
    mPlayer.start();
}

void Recorder::closeFile() {
    require(mFile.has_value(), "nothing was recorded to " + mSettings.path);
    mFile->finish();
}

Status Recorder::record(Picture const& picture) {
    Status const written = writePicture(picture);
    return written.isError() ? written : readCoded();
}

/// Gives the encoder a picture; one of another size than the recording's is converted.
Status Recorder::writePicture(Picture const& picture) {
    if (!mLastUs) {
        Status const colored = mEncoder.writeColorAspect(picture.colors).status();
        if (colored.isError()) {
            return colored;
        }
        if (!mSettings.path.empty()) {
            mFile.emplace(mSettings.path,
                          mSettings.format == CodecType::AVC ? AV_CODEC_ID_H264 : AV_CODEC_ID_VP8,
                          mSize, mFrameRate, picture.colors);
        }
    }
    // Times must increase, but some streams carry none, and a clip in a loop begins again.
    unsigned long long timeUs = picture.info.timestampUs;
    if (mLastUs && timeUs <= *mLastUs) {
        timeUs = *mLastUs + kSecondUs / static_cast<unsigned int>(mFrameRate);
    }
    mLastUs = timeUs;
    if (picture.info.width == mSize.width && picture.info.height == mSize.height) {
        return mEncoder.writeInputFrame(timeUs, picture.bytes.data(), picture.info.length).status();
    }
    FramePtr const scaled =
        convertFrame(*toFrame(picture), AV_PIX_FMT_YUV420P, mSize.width, mSize.height);
    Picture const converted = toPicture(*scaled, picture.colors);
    return mEncoder.writeInputFrame(timeUs, converted.bytes.data(), converted.info.length).status();
}

/// Moves all coded pictures from the encoder to the file.
Status Recorder::readCoded() {
    // No coded picture is larger than a raw one by more than this.
    constexpr unsigned int kReserve = 65536;
    mCoded.resize(planarLayout(mSize.width, mSize.height).length + kReserve);
    for (;;) {
        unsigned long long timeUs = 0;
        auto length = static_cast<unsigned int>(mCoded.size());
        PicType type = PicType::UNKNOWN;
        Status const read =
            mEncoder.readOutputFrame(&timeUs, mCoded.data(), &length, &type).status();
        if (read.code() == codec_status::kTryAgain.code()) {
            return status::kSuccess;
        }
        if (read.isError()) {
            return read;
        }
        if (mFile) {
            mFile->write(timeUs, mCoded.data(), length, type == PicType::I);
        }
    }
}

}  // namespace kvo::demo
