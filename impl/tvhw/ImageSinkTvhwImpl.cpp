#include "ImageSinkTvhwImpl.h"

#include <cstdint>

#include "Log.h"
#include "kvo/media/hardware/ConfigurationKeys.h"
#include "tvhw_vo.h"

namespace kvo::media::hardware {

namespace {

constexpr char kLogTag[] = "ImageSink";

constexpr std::int32_t kOutput = 0;
constexpr std::int32_t kColorFormat = 14;  ///< The media format of the output's still pictures.

}  // namespace

std::mutex ImageSinkTvhwImpl::sMutex;

ImageSinkTvhwImpl::ImageSinkTvhwImpl() { checkOpen(); }

ImageSinkTvhwImpl::~ImageSinkTvhwImpl() {
    if (mOpened) {
        mOpened = false;
        ImageSinkTvhwImpl::close();
    }
}

int ImageSinkTvhwImpl::openOutput() { return TVHW_VO_Open(kOutput, TVHW_VO_MODE_STILL); }

bool ImageSinkTvhwImpl::checkOpen() {
    std::lock_guard<std::mutex> const lock(sMutex);
    if (!mOpened) {
        int const ret = openOutput();
        mOpened = ret == 0;
        if (!mOpened) {
            TVHW_LOG(kLogFailure, "failed to open vo: ret=%d", ret);
        }
    }
    return mOpened;
}

Return<void> ImageSinkTvhwImpl::configure(Configuration const& config) {
    TVHW_LOG(kLogDetail, "+++ImageSink configure+++");
    std::int32_t const width = config.getInt32(key::kWidth, 0);
    std::int32_t const height = config.getInt32(key::kHeight, 0);
    std::int32_t const colorFormat = config.getInt32(key::kColorFormat, kColorFormat);
    if (width == 0 || height == 0 || colorFormat != kColorFormat) {
        TVHW_LOG(kLogFailure, "unsupported configuration");
        return status::kUnsupported;
    }

    TVHW_VO_CONFIG_PARAM param{};
    param.mode = TVHW_VO_MODE_STILL;
    param.width = width;
    param.height = height;
    param.pixelFormat = TVHW_VO_PIXEL_FORMAT_STILL;
    if (TVHW_VO_Config(kOutput, &param) != 0) {
        TVHW_LOG(kLogFailure, "TVHW_VO_Config fail");
        return status::kResourceFailed;
    }
    TVHW_LOG(kLogDetail, "---ImageSink configure---");
    return status::kSuccess;
}

Return<void> ImageSinkTvhwImpl::displayPicture(Image const& image) {
    TVHW_LOG(kLogDetail, "+++ImageSink displayPicture+++");
    TVHW_VO_PICTURE_PARAM param{};
    param.buffer = image.buffer;
    param.bufferLength = image.bufferLength;
    param.stride = image.stride;
    param.width = image.width;
    param.height = image.height;
    param.pixelFormat = TVHW_VO_PIXEL_FORMAT_STILL;
    TVHW_LOG(kLogDetail, "displayPicture: x=%d y=%d width=%d height=%d len_buf=%d stride=%d",
             param.x, param.y, param.width, param.height, param.bufferLength, param.stride);
    if (TVHW_VO_DisplayPicture(kOutput, &param) != 0) {
        TVHW_LOG(kLogFailure, "TVHW_VO_DisplayPicture fail");
        return status::kResourceFailed;
    }
    TVHW_LOG(kLogDetail, "---ImageSink displayPicture---");
    return status::kSuccess;
}

Return<void> ImageSinkTvhwImpl::close() {
    TVHW_LOG(kLogDetail, "+++ImageSink close+++");
    if (TVHW_VO_Close(kOutput) != 0) {
        TVHW_LOG(kLogFailure, "TVHW_VO_Close fail");
        return status::kResourceFailed;
    }
    mOpened = false;
    TVHW_LOG(kLogDetail, "---ImageSink close---");
    return status::kSuccess;
}

}  // namespace kvo::media::hardware
