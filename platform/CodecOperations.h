#pragma once

/// The operations of IVideoDecoderClient and IVideoEncoderClient in their order, without release(),
/// for what does the same with each of them. Every one becomes
///     OPERATION(the result's type, name, (parameters), their names)
/// and a configure operation CONFIGURE with the same arguments.
#define KVO_MEDIA_DECODER_OPERATIONS(OPERATION, CONFIGURE)                                        \
    CONFIGURE(void, configureTunnelMode, (CodecType type, Configuration const& config), type,     \
              config)                                                                             \
    CONFIGURE(void, configureReferenceMode, (CodecType type, Configuration const& config), type,  \
              config)                                                                             \
    CONFIGURE(void, configurePixelMode, (CodecType type, Configuration const& config), type,      \
              config)                                                                             \
    CONFIGURE(void, configureNativeBufferMode, (CodecType type, Configuration const& config),     \
              type, config)                                                                       \
    OPERATION(void, writeInputData,                                                               \
              (unsigned char const* data, unsigned int length, unsigned int flags), data, length, \
              flags)                                                                              \
    OPERATION(void, writeInputFrame,                                                              \
              (unsigned int flags, unsigned long long timestampUs, unsigned char const* data,     \
               unsigned int length),                                                              \
              flags, timestampUs, data, length)                                                   \
    OPERATION(void, writeInputEndOfStream, (), )                                                  \
    OPERATION(void, writeHdrInfo, (ColorAspect const& aspect, HdrInfo const& info), aspect, info) \
    OPERATION(void, pause, (), )                                                                  \
    OPERATION(void, resume, (), )                                                                 \
    OPERATION(void, step, (), )                                                                   \
    OPERATION(void, setTunnelPeek, (bool enable), enable)                                         \
    OPERATION(void, setSpeed, (double speed), speed)                                              \
    OPERATION(FrameInfo, getFrameInfo, (), )                                                      \
    OPERATION(ColorAspect, getColorAspect, (), )                                                  \
    OPERATION(HdrInfo, getHdrInfo, (), )                                                          \
    OPERATION(BufferInfo, dequeueOutputBuffer, (), )                                              \
    OPERATION(void, releaseOutputBuffer, (BufferInfo const& buffer), buffer)                      \
    OPERATION(PixelInfo, dequeuePixelBuffer, (), )                                                \
    OPERATION(void, copyFromPixelBuffer,                                                          \
              (unsigned char* destination, unsigned int length, PixelInfo& pixel), destination,   \
              length, pixel)                                                                      \
    OPERATION(void, releasePixelBuffer, (PixelInfo const& pixel), pixel)                          \
    OPERATION(void, queueNativeBuffer, (std::shared_ptr<NativeBuffer> buffer), buffer)            \
    OPERATION(std::shared_ptr<NativeBuffer>, dequeueNativeBuffer, (), )                           \
    OPERATION(RenderEvent, dequeueRenderEvent, (), )                                              \
    OPERATION(void, reconfigureOutputBuffer, (CodecType type, Configuration const& config), type, \
              config)                                                                             \
    OPERATION(void, flush, (), )                                                                  \
    OPERATION(void, getInputBufferStatus,                                                         \
              (unsigned int* freeBytes, unsigned int* totalBytes, bool* ready), freeBytes,        \
              totalBytes, ready)                                                                  \
    OPERATION(Configuration, getConfiguration, (), )                                              \
    OPERATION(std::int64_t, currentSTCTime, (), )                                                 \
    OPERATION(void, testConnection, (), )                                                         \
    OPERATION(void, testInvalidConnection, (), )                                                  \
    OPERATION(void, testWriteInputData,                                                           \
              (unsigned char const* data, unsigned int length, unsigned int flags), data, length, \
              flags)

#define KVO_MEDIA_ENCODER_OPERATIONS(OPERATION, CONFIGURE)                                      \
    CONFIGURE(void, configure, (Configuration const& config), config)                           \
    OPERATION(void, writeColorAspect, (ColorAspect const& aspect), aspect)                      \
    OPERATION(void, writeInputFrame,                                                            \
              (unsigned long long timestampUs, unsigned char const* data, unsigned int length), \
              timestampUs, data, length)                                                        \
    OPERATION(void, writeInputImage, (unsigned long long timestampUs, Image const& image),      \
              timestampUs, image)                                                               \
    OPERATION(int, readOutputFrame,                                                             \
              (unsigned long long* timestampUs, unsigned char* data, unsigned int* length,      \
               PicType* type),                                                                  \
              timestampUs, data, length, type)                                                  \
    OPERATION(void, pause, (), )                                                                \
    OPERATION(void, resume, (), )                                                               \
    OPERATION(void, flush, (), )                                                                \
    OPERATION(void, setParameters, (Configuration const& config), config)                       \
    OPERATION(void, getInputBufferStatus,                                                       \
              (unsigned int* freeBuffers, unsigned int* totalBuffers, int* width, int* height,  \
               int* stride),                                                                    \
              freeBuffers, totalBuffers, width, height, stride)                                 \
    OPERATION(Configuration, getConfiguration, (), )
