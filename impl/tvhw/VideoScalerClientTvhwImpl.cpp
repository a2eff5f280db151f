#include "VideoScalerClientTvhwImpl.h"

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>

#include "Log.h"
#include "tvhw_vbe.h"
#include "tvhw_vsc.h"

namespace kvo::media::hardware {

namespace {

using LayerInfo = IVideoScalerClient::LayerInfo;

constexpr char kLogTag[] = "VideoScalerTvhw";

// --- Scaling.

// Edges depend on the last bit of the results: see also the options of this file's compilation.
static_assert(FLT_EVAL_METHOD == 0, "float arithmetic must round each result to single precision");

constexpr double kSnapDistance = 0.1;  ///< Pixels.
constexpr double kLastEdge = 4294967295.0;

double scaledEdge(std::uint32_t edge, std::uint32_t refSize, std::uint32_t size) {
    float const ratio = static_cast<float>(edge) / static_cast<float>(refSize);
    float const scaled = ratio * static_cast<float>(size);
    return scaled;
}

std::uint32_t startEdge(double scaled) {
    return static_cast<std::uint32_t>(std::min(std::floor(scaled + kSnapDistance), kLastEdge));
}

std::uint32_t endEdge(double scaled) {
    return static_cast<std::uint32_t>(std::min(std::ceil(scaled - kSnapDistance), kLastEdge));
}

// --- What the scaler library takes.

constexpr std::int32_t kDefaultVscType = 3;

/// Indexed by the type of a LayerInfo less 1.
constexpr std::array<std::int32_t, 7> kVscTypes{3, 3, 3, 2, 0, 3, 0};

TVHW_VSC_SOURCE sourceOf(LayerInfo const& info) {
    bool const known = info.type >= 1 && info.type <= kVscTypes.size();
    return {known ? kVscTypes[info.type - 1] : kDefaultVscType, 0, info.port, {}};
}

/// Cuts each value to the 16 bits that the scaler takes.
TVHW_VSC_WINDOW windowOf(Region const& region) {
    return {static_cast<std::uint16_t>(region.left), static_cast<std::uint16_t>(region.top),
            static_cast<std::uint16_t>(region.right - region.left),
            static_cast<std::uint16_t>(region.bottom - region.top)};
}

TVHW_VSC_WINDOW scaledWindow(Region region, std::uint32_t width, std::uint32_t height) {
    region.scale(width, height);
    return windowOf(region);
}

// --- The reference size of a stored record's input region is read by other threads.

/// Replaces `stored`, the reference size of its input region atomically.
void storeLayerInfo(LayerInfo& stored, LayerInfo const& info) {
    static_assert(sizeof(LayerInfo) == 72 && sizeof(Region) == 24, "a member is not copied here");
    stored.type = info.type;
    stored.port = info.port;
    stored.frameRate = info.frameRate;
    stored.adaptive = info.adaptive;
    stored.sourceMaxSize = info.sourceMaxSize;
    stored.inputRegion.left = info.inputRegion.left;
    stored.inputRegion.top = info.inputRegion.top;
    stored.inputRegion.right = info.inputRegion.right;
    stored.inputRegion.bottom = info.inputRegion.bottom;
    __atomic_store_n(&stored.inputRegion.refWidth, info.inputRegion.refWidth, __ATOMIC_RELAXED);
    __atomic_store_n(&stored.inputRegion.refHeight, info.inputRegion.refHeight, __ATOMIC_RELAXED);
    stored.outputRegion = info.outputRegion;
    stored.zOrder = info.zOrder;
}

}  // namespace

void Region::scale(unsigned int width, unsigned int height) {
    if (width == 0 || height == 0 || refWidth == 0 || refHeight == 0) {
        return;
    }
    left = startEdge(scaledEdge(left, refWidth, width));
    top = startEdge(scaledEdge(top, refHeight, height));
    right = endEdge(scaledEdge(right, refWidth, width));
    bottom = endEdge(scaledEdge(bottom, refHeight, height));
    refWidth = width;
    refHeight = height;
}

std::mutex VideoScalerClientTvhwImpl::sMutex;
bool VideoScalerClientTvhwImpl::sInit = false;

VideoScalerClientTvhwImpl::VideoScalerClientTvhwImpl(unsigned int index) : mIndex(index) {
    checkOpen();
    setDisplayPanelSize();
}

VideoScalerClientTvhwImpl::~VideoScalerClientTvhwImpl() {
    if (mOpened) {
        if (int const ret = TVHW_VSC_Close(mIndex); ret != 0) {
            TVHW_LOG(kLogFailure, "failed to close vsc, ret=%d, idx=%u", ret, mIndex);
        }
    }
}

bool VideoScalerClientTvhwImpl::init() {
    std::lock_guard<std::mutex> const lock(sMutex);
    if (!sInit) {
        int const ret = TVHW_VSC_Initialize();
        sInit = ret == 0;
        if (!sInit) {
            TVHW_LOG(kLogFailure, "failed to init vsc: ret=%d", ret);
        }
    }
    return sInit;
}

bool VideoScalerClientTvhwImpl::checkOpen() {
    if (!init()) {
        return false;
    }
    if (mOpened) {
        return true;
    }
    if (int const ret = TVHW_VSC_Open(mIndex); ret != 0) {
        TVHW_LOG(kLogFailure, "failed to open vsc, ret=%d, idx=%u", ret, mIndex);
        return false;
    }
    mOpened = true;
    return true;
}

void VideoScalerClientTvhwImpl::setDisplayPanelSize() {
    TVHW_VBE_PANEL_SIZE size{};
    if (TVHW_VBE_DISP_GetPanelSize(&size) == 0) {
        TVHW_LOG(kLogState, "panel size =%d/%d", size.width, size.height);
        mPanelWidth = static_cast<std::uint32_t>(size.width);
        mPanelHeight = static_cast<std::uint32_t>(size.height);
    }
}

void VideoScalerClientTvhwImpl::setCallback(std::shared_ptr<Callback> callback) {
    std::lock_guard<std::mutex> const lock(mMutex);
    mCallback = callback;
}

void VideoScalerClientTvhwImpl::setWinBlank(bool enable) {
    int const blank = enable ? 1 : 0;
    TVHW_LOG(kLogDetail, "+++ win-blank [%u]: enable=%d", mIndex, blank);
    int const ret = TVHW_VSC_SetWinBlank(mIndex, blank, 0);
    TVHW_LOG(kLogDetail, "--- win-blank [%u]", mIndex);
    if (ret != 0) {
        TVHW_LOG(kLogFailure, "winblank vsc %d (%d) fail", mIndex, blank);
    }
}

void VideoScalerClientTvhwImpl::connect(LayerInfo info) {
    if (!checkOpen()) {
        TVHW_LOG(kLogFailure, "vsc-connect: device not opened");
        return;
    }
    setWinBlank(true);

    TVHW_VSC_SOURCE const source = sourceOf(info);
    TVHW_LOG(kLogDetail, "+++ vsc-connect [%d]: type=%d, idx=%d", mIndex, source.type, source.port);
    int ret = TVHW_VSC_Connect(mIndex, source, 0);
    TVHW_LOG(kLogDetail, "--- vsc-connect [%d]", mIndex);
    if (ret != 0) {
        TVHW_LOG(kLogFailure, "connect vsc %d(vscType %d, port %d)fail", mIndex, source.type,
                 source.port);
        return;
    }

    int const adaptive = info.adaptive != 0 ? 1 : 0;
    TVHW_LOG(kLogDetail, "+++ vsc-adaptive [%d]: adaptive=%d", mIndex, adaptive);
    ret = TVHW_VSC_SetAdaptiveStreamEx(mIndex, adaptive);
    TVHW_LOG(kLogDetail, "--- vsc-adaptive [%d]", mIndex);
    if (ret != 0) {
        TVHW_LOG(kLogFailure, "setAdaptive vsc %d(%d)fail", mIndex, adaptive);
        return;
    }
    storeLayerInfo(mLayerInfo, info);
    mConnected.store(true, std::memory_order_relaxed);
}

void VideoScalerClientTvhwImpl::disconnect() {
    if (!checkOpen()) {
        TVHW_LOG(kLogFailure, "vsc-disconnect: device not opened");
        return;
    }
    setWinBlank(true);

    TVHW_VSC_SOURCE const source = sourceOf(mLayerInfo);
    TVHW_LOG(kLogDetail, "+++ vsc-disconnect [%d]: type=%d", mIndex, source.type);
    int const ret = TVHW_VSC_Disconnect(mIndex, source, 0);
    TVHW_LOG(kLogDetail, "--- vsc-disconnect [%d]", mIndex);
    if (ret != 0) {
        TVHW_LOG(kLogFailure, "disconnect vsc %d(vscType %d, port %d)fail", mIndex, source.type,
                 source.port);
    }
    mConnected.store(false, std::memory_order_relaxed);
    setWinBlank(false);
}

void VideoScalerClientTvhwImpl::updateRegion(LayerInfo info) {
    if (!checkOpen()) {
        TVHW_LOG(kLogFailure, "vsc-updateRegion: device not opened");
        return;
    }
    TVHW_VSC_WINDOW const output = scaledWindow(info.outputRegion, mPanelWidth, mPanelHeight);

    if (mLayerInfo.adaptive != 0) {
        TVHW_VSC_WINDOW const input = scaledWindow(info.inputRegion, mPanelWidth, mPanelHeight);
        TVHW_LOG(kLogDetail, "+++ set-input-adaptive [%u]: input=%u/%u/%u/%u", mIndex, input.x,
                 input.y, input.w, input.h);
        int const ret = TVHW_VSC_SetInputRegion_ForAdaptive(mIndex, input);
        TVHW_LOG(kLogDetail, "--- set-input-adaptive [%u]", mIndex);
        if (ret != 0) {
            TVHW_LOG(kLogFailure, "set-input-adaptive [%u]: err=%d, input=%u/%u/%u/%u", mIndex, ret,
                     input.x, input.y, input.w, input.h);
        }
    } else {
        TVHW_VSC_WINDOW const input = windowOf(info.inputRegion);
        TVHW_LOG(kLogDetail, "+++ set-input [%u]: input=%u/%u/%u/%u", mIndex, input.x, input.y,
                 input.w, input.h);
        int const ret = TVHW_VSC_SetInputRegion(mIndex, input);
        TVHW_LOG(kLogDetail, "--- set-input [%u]", mIndex);
        if (ret != 0) {
            TVHW_LOG(kLogFailure, "set-input [%u]: err=%d, input=%u/%u/%u/%u", mIndex, ret, input.x,
                     input.y, input.w, input.h);
        }
    }

    TVHW_LOG(kLogDetail, "+++ set-output [%u]: output=%u/%u/%u/%u displayRegion=%d/%d", mIndex,
             output.x, output.y, output.w, output.h, mPanelWidth, mPanelHeight);
    int const ret = TVHW_VSC_SetOutputRegion(mIndex, output);
    TVHW_LOG(kLogDetail, "--- set-output [%u]", mIndex);
    if (ret != 0) {
        TVHW_LOG(kLogFailure, "set-output [%u]: err=%d, output=%u/%u/%u/%u", mIndex, ret, output.x,
                 output.y, output.w, output.h);
    }
    setWinBlank(false);
    storeLayerInfo(mLayerInfo, info);
}

void VideoScalerClientTvhwImpl::bbdCallbackRegion(Region const& region) {
    auto const& inputSize = mLayerInfo.inputRegion;
    TVHW_LOG(kLogDetail, "bbdCallbackRegion Rect [%u] %d,%d - %d,%d,%d,%d - %d,%d", mIndex,
             region.refWidth, region.refHeight, region.left, region.top, region.right,
             region.bottom, __atomic_load_n(&inputSize.refWidth, __ATOMIC_RELAXED),
             __atomic_load_n(&inputSize.refHeight, __ATOMIC_RELAXED));
    std::lock_guard<std::mutex> const lock(mMutex);
    if (mConnected.load(std::memory_order_relaxed)) {
        if (auto const callback = mCallback.lock()) {
            callback->onBbdRegion(region);
        }
    }
}

}  // namespace kvo::media::hardware
