#pragma once

/// Every Configuration key that this library reads or writes. A key is read with getInt32 and the
/// default named here; a key without a default is only written.
namespace kvo::media::hardware::key {

// Read: the picture and stream.
inline constexpr char kWidth[] = "width";          ///< Pixels; default 0.
inline constexpr char kHeight[] = "height";        ///< Pixels; default 0.
inline constexpr char kFrameRate[] = "framerate";  ///< Frames per second; default 0.

/// Decoder: default 4; 5 to 12 keep small picture sizes, unless adaptive. Image sink: default 14,
/// which is also the only format it accepts.
inline constexpr char kColorFormat[] = "color-format";

// Read by the decoder.
inline constexpr char kAdaptiveEnable[] = "adaptive-enable";       ///< Not 0: adaptive; default 0.
inline constexpr char kAdaptiveMaxWidth[] = "adaptive-max-width";  ///< Pixels; default 0.
inline constexpr char kAdaptiveMaxHeight[] = "adaptive-max-height";  ///< Pixels; default 0.

/// Process that uses the decoder; default 0. Only from 1 on is the platform asked whether the
/// acquisition may be forced, and told when the decoder is reclaimed and then released.
inline constexpr char kCallingPid[] = "calling-pid";

// Read by the encoder.
inline constexpr char kOutFormat[] = "outFormat";  ///< CodecType of the output; default 0.

/// Not 0: refuses reclaims, from the end of the acquisition that reads it to the end of the next
/// one; default 0.
inline constexpr char kUseDmaBuffer[] = "useDmaBuffer";

// Written by the decoder. After a core of known type whose id could not be read, the id is -1 and
// the port is as the resource manager numbers it.
inline constexpr char kResourceCoreType[] = "resource-core-type";  ///< 801 to 804, 0 if unknown.
inline constexpr char kResourceId[] = "resource-id";  ///< The resource client's unique id.
inline constexpr char kVideoPort[] = "video-port";    ///< Display port from 0, -1 for none.
inline constexpr char kMaxWidth[] = "max-width";      ///< Largest width of the core, in pixels.
inline constexpr char kMaxHeight[] = "max-height";    ///< Largest height of the core, in pixels.

// Written by the encoder.
inline constexpr char kCoreType[] = "coreType";  ///< 1 for a core of type 802, else 0.

}  // namespace kvo::media::hardware::key
