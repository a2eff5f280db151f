#include "Recorder.h"

#include <algorithm>
#include <utility>

#include "LibavEncoder.h"
#include "fmt/core.h"
#include "kvo/media/hardware/ConfigurationKeys.h"

namespace kvo::media::hardware::example {

namespace {

/// Larger pictures are recorded in a smaller size.
constexpr Size kLargestSize{1920, 1080};

constexpr std::int64_t kSecondUs = 1'000'000;

/// No coded picture is larger than a raw one by more than this.
constexpr unsigned int kReserve = 65536;

Size sizeFor(Size picture) {
    return fitInto(picture, {std::max(2, std::min(picture.width, kLargestSize.width)),
                             std::max(2, std::min(picture.height, kLargestSize.height))});
}

}  // namespace

Recorder::Recorder(Clip const& clip, Settings settings)
    : mSettings(std::move(settings)),
      mSize(sizeFor(clip.shown)),
      mFrameRate(clip.frameRate),
      mEncoder(std::make_shared<LibavEncoder>()),
      mPlayer(clip, {Player::Mode::kPixel,
                     {},
                     mSettings.loop,
                     false,
                     false,
                     mSettings.limit,
                     nullptr,
                     [this](AVFrame const& picture) { return record(picture); }}) {}

Status Recorder::configure() {
    Configuration config;
    config.setInt32(key::kWidth, mSize.width);
    config.setInt32(key::kHeight, mSize.height);
    config.setInt32(key::kFrameRate, mFrameRate);
    config.setInt32(key::kOutFormat, static_cast<int>(mSettings.format));
    config.setInt32(key::kUseDmaBuffer, mSettings.isLive ? 1 : 0);
    return mEncoder.configure(config).status();
}

Status Recorder::start() {
    Status const configured = mPlayer.configure();
    if (!configured.isError()) {
        mPlayer.start();
    }
    return configured;
}

void Recorder::closeFile() {
    if (mFile) {
        mFile->finish();
    }
}

/// Gives the encoder a picture; one of another size than the recording's is scaled.
Status Recorder::record(AVFrame const& picture) {
    if (picture.width != mSize.width || picture.height != mSize.height) {
        FramePtr const scaled = filtered(
            {&picture}, fmt::format("[in0]scale={}:{},format=yuv420p", mSize.width, mSize.height));
        scaled->pts = picture.pts;
        return record(*scaled);
    }
    Status const begun = mLastUs ? status::kSuccess : begin(picture);
    if (begun.isError()) {
        return begun;
    }
    // Times must increase, but some streams carry none, and a clip in a loop begins again.
    bool const isLater = !mLastUs || picture.pts > *mLastUs;
    mLastUs = isLater ? picture.pts : *mLastUs + kSecondUs / mFrameRate;
    mRaw.resize(planarLayout(mSize).length);
    copyPlanes(picture, mRaw.data());
    Status const written = mEncoder
                               .writeInputFrame(static_cast<unsigned long long>(*mLastUs),
                                                mRaw.data(), static_cast<unsigned int>(mRaw.size()))
                               .status();
    return written.isError() ? written : readCoded();
}

Status Recorder::begin(AVFrame const& picture) {
    if (!mSettings.path.empty()) {
        bool const isAvc = mSettings.format == CodecType::AVC;
        mFile.emplace(mSettings.path, isAvc ? AV_CODEC_ID_H264 : AV_CODEC_ID_VP8, mFrameRate,
                      picture);
    }
    return mEncoder.writeColorAspect(colorsOf(picture)).status();
}

/// Moves all coded pictures from the encoder to the file.
Status Recorder::readCoded() {
    mCoded.resize(mRaw.size() + kReserve);
    for (;;) {
        unsigned long long timeUs = 0;
        auto length = static_cast<unsigned int>(mCoded.size());
        PicType type = PicType::UNKNOWN;
        Status const read =
            mEncoder.readOutputFrame(&timeUs, mCoded.data(), &length, &type).status();
        if (read.isError()) {
            return read.code() == codec_status::kTryAgain.code() ? status::kSuccess : read;
        }
        if (mFile) {
            mFile->write(timeUs, mCoded.data(), length, type == PicType::I);
        }
    }
}

}  // namespace kvo::media::hardware::example
