// The two wrapper bases, which hand each operation to their client.

#include <cerrno>
#include <cstring>
#include <memory>
#include <sstream>
#include <type_traits>
#include <utility>

#include "CodecOperations.h"
#include "host/CodecWrappers.h"
#include "host/LoggedCall.h"
#include "host/ReclaimAtCall.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

namespace {

/// The status of every operation of a wrapper that was constructed without a client.
constexpr Status kNoClient{-EINVAL};

/// Returns a call of a codec as the log names it: by the codec's kind, its address and `name`.
template <typename Client>
host::LoggedCall codecCall(Client const* client, char const* name) {
    bool const isEncoder = std::is_same_v<Client, IVideoEncoderClient>;
    std::ostringstream text;
    text << (isEncoder ? "encoder " : "decoder ") << client << ' ' << name << "()";
    return {host::kCodecTag, text.str()};
}

/// What the arguments of some operations tell, before they are handed on.
template <typename... Others>
void note(void const*, char const*, Others const&...) {}
void note(void const* wrapper, char const* name, CodecType, Configuration const& config) {
    if (std::strcmp(name, "reconfigureOutputBuffer") == 0) {
        host::noteReconfiguring(wrapper, config);
    }
}
void note(void const*, char const*, BufferInfo const& buffer) { host::noteReleasing(buffer); }

/// Returns what calls `operation`, whose name is `name`, on the `client` of `wrapper` and returns
/// its result; without a client it returns kNoClient. Where calls are logged, it logs that the
/// operation is entered and left.
template <typename Client, typename Result, typename... Parameters>
auto forward(void const* wrapper, std::shared_ptr<Client> const& client, char const* name,
             Result (Client::*operation)(Parameters...)) {
    return [=, &client](Parameters... arguments) -> Result {
        note(wrapper, name, arguments...);
        if (client == nullptr) {
            return kNoClient;
        }
        host::ReclaimAtCall const reclaim(name);
        host::WrapperCall const noted(wrapper, name);
        try {
            if (!host::mayLogCalls()) {
                return (client.get()->*operation)(std::forward<Parameters>(arguments)...);
            }
            host::LoggedCall const call = codecCall(client.get(), name);
            call.logEntry();
            Result result = (client.get()->*operation)(std::forward<Parameters>(arguments)...);
            call.logReturn(result.status().code());
            return result;
        } catch (...) {
            host::tellThrown(wrapper, name);
            throw;
        }
    };
}

}  // namespace

#define FORWARD(Client, Result, name, parameters, ...)                       \
    Return<Result> Client##Wrapper::name parameters {                        \
        return forward(this, mClient, #name, &I##Client::name)(__VA_ARGS__); \
    }

#define CONFIGURE(Client, Result, name, parameters, ...)                            \
    Return<Result> Client##Wrapper::name parameters {                               \
        host::tellOverlap(this, #name);                                             \
        auto result = forward(this, mClient, #name, &I##Client::name)(__VA_ARGS__); \
        host::noteConfigured(this, #name, config, result.status());                 \
        return result;                                                              \
    }

VideoDecoderClientWrapper::VideoDecoderClientWrapper(std::shared_ptr<IVideoDecoderClient> client)
    : mClient(std::move(client)) {
    host::noteWrapper(this, mClient != nullptr);
}

VideoDecoderClientWrapper::~VideoDecoderClientWrapper() { host::forgetWrapper(this); }

Return<void> VideoDecoderClientWrapper::release() {
    host::tellOverlap(this, __func__);
    auto result = forward(this, mClient, __func__, &IVideoDecoderClient::release)();
    host::noteReleased(this);
    return result;
}

#define FORWARD_TO_DECODER(...) FORWARD(VideoDecoderClient, __VA_ARGS__)
#define CONFIGURE_DECODER(...) CONFIGURE(VideoDecoderClient, __VA_ARGS__)
KVO_MEDIA_DECODER_OPERATIONS(FORWARD_TO_DECODER, CONFIGURE_DECODER)

VideoEncoderClientWrapper::VideoEncoderClientWrapper(std::shared_ptr<IVideoEncoderClient> client)
    : mClient(std::move(client)) {
    host::noteWrapper(this, mClient != nullptr);
}

VideoEncoderClientWrapper::~VideoEncoderClientWrapper() { host::forgetWrapper(this); }

Return<void> VideoEncoderClientWrapper::release() {
    host::tellOverlap(this, __func__);
    auto result = forward(this, mClient, __func__, &IVideoEncoderClient::release)();
    host::noteReleased(this);
    return result;
}

#define FORWARD_TO_ENCODER(...) FORWARD(VideoEncoderClient, __VA_ARGS__)
#define CONFIGURE_ENCODER(...) CONFIGURE(VideoEncoderClient, __VA_ARGS__)
KVO_MEDIA_ENCODER_OPERATIONS(FORWARD_TO_ENCODER, CONFIGURE_ENCODER)

}  // namespace kvo::media::hardware
