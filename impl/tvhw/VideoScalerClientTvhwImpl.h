#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "ThreadAnnotations.h"
#include "kvo/media/hardware/Export.h"
#include "kvo/media/hardware/IVideoScalerClient.h"

namespace kvo::media::hardware {

/// One channel of this platform's video scaler. Opens the channel when it is made, or else before
/// each operation that needs it, and closes it as it stands when it is destroyed.
///
/// No failure reaches the caller: it is logged, and the operation goes on as far as it makes sense.
///
/// Threads: bbdCallbackRegion(), setCallback() and init() may be called from any thread; all others
/// are the owner's, one at a time.
class KVO_MEDIA_EXPORT VideoScalerClientTvhwImpl : public IVideoScalerClient {
public:
    /// Opens channel `index` and reads the size of the panel. While the size is unknown, regions
    /// are not converted; nothing in here reads it again.
    explicit VideoScalerClientTvhwImpl(unsigned int index);

    /// Closes the channel; neither disconnects nor blanks it first.
    ~VideoScalerClientTvhwImpl() override;

    /// Keeps a weak reference to `callback` in place of the one before; null removes it.
    void setCallback(std::shared_ptr<Callback> callback) override TVHW_EXCLUDES(mMutex);

    /// Blanks the window and connects the source that `info` names, also over one that is
    /// connected. The window stays blank until updateRegion() or disconnect(). On failure the
    /// record and state of the connection before stay in force, whatever the scaler has connected.
    void connect(LayerInfo info) override;

    /// Blanks the window, disconnects the source of the last record, connected or not, and shows
    /// the window. Counts as disconnected also when the scaler fails.
    void disconnect() override;

    /// Places the picture: converts both regions to panel pixels, the input region only for an
    /// adaptive stream, programs them, cut to 16 bits, shows the window and keeps `info` for
    /// disconnect() and the next call. Whether the stream is adaptive is what the record before
    /// said.
    void updateRegion(LayerInfo info) override;

    /// Hands `region` on to the callback, as it is, if the source is connected and the callback
    /// alive. The callback runs, and may be destroyed, on this thread with its lock held.
    void bbdCallbackRegion(Region const& region) TVHW_EXCLUDES(mMutex);

    /// Initialises the scaler for the process, once. Returns false when it cannot be initialised;
    /// the next call tries again.
    static bool init() TVHW_EXCLUDES(sMutex);

    /// Initialises the scaler and opens the channel, unless done already. Returns false on failure;
    /// the next call tries again.
    bool checkOpen() TVHW_EXCLUDES(sMutex);

    /// Reads the size of the panel; when that fails, leaves it as it was and says nothing.
    void setDisplayPanelSize();

    /// Blanks or shows the window of the channel, which must be open.
    void setWinBlank(bool enable);

private:
    static std::mutex sMutex;
    static bool sInit TVHW_GUARDED_BY(sMutex);  ///< The scaler is initialised.

    std::uint32_t const mIndex;
    bool mOpened = false;
    std::atomic<bool> mConnected{false};  ///< Also read by bbdCallbackRegion().
    LayerInfo mLayerInfo;                 ///< The last record accepted; see storeLayerInfo().
    std::uint32_t mPanelWidth = 0;        ///< Pixels; 0 if unknown.
    std::uint32_t mPanelHeight = 0;       ///< Pixels; 0 if unknown.
    std::mutex mMutex;
    std::weak_ptr<Callback> mCallback TVHW_GUARDED_BY(mMutex);
};

static_assert(sizeof(std::atomic<bool>) == sizeof(bool));

}  // namespace kvo::media::hardware
