#pragma once

#include <cstdint>
#include <memory>

#include "kvo/media/hardware/Region.h"

namespace kvo::media::hardware {

/// One channel of the hardware video scaler: shows a part of a video source in a window of the
/// panel. The order of the operations is the order of the virtual table, which other binaries rely
/// on. No operation reports a failure to its caller.
class IVideoScalerClient : public std::enable_shared_from_this<IVideoScalerClient> {
public:
    /// What to show and where. Copied as a whole; this library's client reads `type`, `port`,
    /// `adaptive` and the two regions.
    struct LayerInfo {
        /// Kind of video source, 1 to 7, in the media library's numbers, whose names are not here.
        /// The players of examples/ give a decoder's port as kind 1. This library's client tells
        /// the scaler 2 for kind 4, 0 for 5 and 7, and 3 for every other.
        std::uint32_t type = 0;
        std::uint8_t port = 0;            ///< Port of the source.
        std::uint32_t frameRate = 0;      ///< Frames per second, 0 if unknown.
        std::int32_t adaptive = 0;        ///< Not 0: the picture size changes while playing.
        std::uint32_t sourceMaxSize = 0;  ///< Largest number of pixels of a picture, 0 if unknown.
        Region inputRegion;               ///< The part of the source picture to show.
        Region outputRegion;              ///< Where on the screen to show it.
        std::int32_t zOrder = 0;          ///< Higher layers cover lower ones.
    };

    /// What a client learns of its channel. Held weakly.
    class Callback {
    public:
        Callback() = default;
        Callback(Callback const&) = delete;
        Callback& operator=(Callback const&) = delete;
        virtual ~Callback() = default;

        /// Learns a region reported for the connected source, on any thread, with the client
        /// locked. Must not set the client's callback nor report a region to it. Nor may the
        /// destructor: the client's reference, taken for this call, may be the last.
        virtual void onBbdRegion(Region const& region) = 0;
    };

    IVideoScalerClient() = default;
    IVideoScalerClient(IVideoScalerClient const&) = delete;
    IVideoScalerClient& operator=(IVideoScalerClient const&) = delete;
    virtual ~IVideoScalerClient() = default;

    /// Replaces the callback; null removes it.
    virtual void setCallback(std::shared_ptr<Callback> callback) = 0;

    /// Connects the source that `info` names and leaves the window blank.
    virtual void connect(LayerInfo info) = 0;

    /// Disconnects the source.
    virtual void disconnect() = 0;

    /// Places the source's picture as `info` says and shows the window.
    virtual void updateRegion(LayerInfo info) = 0;
};

}  // namespace kvo::media::hardware
