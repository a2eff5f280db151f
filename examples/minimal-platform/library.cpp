// The map of settings and the wrapper bases, which hand each operation to the codec.

#include <cerrno>
#include <memory>
#include <utility>

#include "CodecOperations.h"
#include "kvo/media/hardware/KeyValueMap.h"
#include "kvo/media/hardware/VideoDecoderClientWrapper.h"
#include "kvo/media/hardware/VideoEncoderClientWrapper.h"

namespace kvo::media::hardware {

KeyValueMap::~KeyValueMap() = default;

void KeyValueMap::setInt32(char const* key, std::int32_t value) { mValues[key] = value; }

std::int32_t KeyValueMap::getInt32(char const* key, std::int32_t defaultValue) const {
    return static_cast<std::int32_t>(getInt64(key, defaultValue));
}

void KeyValueMap::setInt64(char const* key, std::int64_t value) { mValues[key] = value; }

std::int64_t KeyValueMap::getInt64(char const* key, std::int64_t defaultValue) const {
    auto const entry = mValues.find(key);
    return entry == mValues.end() ? defaultValue : entry->second;
}

/// Returns what calls an operation of the codec.
template <typename Client, typename Result, typename... Parameters>
static auto forward(std::shared_ptr<Client> const& client,
                    Result (Client::*operation)(Parameters...)) {
    return [&client, operation](Parameters... arguments) {
        return client == nullptr ? Result(Status(-EINVAL))
                                 : ((*client).*operation)(std::forward<Parameters>(arguments)...);
    };
}

#define DECODER_FORWARD(Result, name, parameters, ...)                    \
    Return<Result> VideoDecoderClientWrapper::name parameters {           \
        return forward(mClient, &IVideoDecoderClient::name)(__VA_ARGS__); \
    }

#define ENCODER_FORWARD(Result, name, parameters, ...)                    \
    Return<Result> VideoEncoderClientWrapper::name parameters {           \
        return forward(mClient, &IVideoEncoderClient::name)(__VA_ARGS__); \
    }

VideoDecoderClientWrapper::VideoDecoderClientWrapper(std::shared_ptr<IVideoDecoderClient> client)
    : mClient(std::move(client)) {}

VideoDecoderClientWrapper::~VideoDecoderClientWrapper() = default;

DECODER_FORWARD(void, release, (), )
KVO_MEDIA_DECODER_OPERATIONS(DECODER_FORWARD, DECODER_FORWARD)

VideoEncoderClientWrapper::VideoEncoderClientWrapper(std::shared_ptr<IVideoEncoderClient> client)
    : mClient(std::move(client)) {}

VideoEncoderClientWrapper::~VideoEncoderClientWrapper() = default;

ENCODER_FORWARD(void, release, (), )
KVO_MEDIA_ENCODER_OPERATIONS(ENCODER_FORWARD, ENCODER_FORWARD)

}  // namespace kvo::media::hardware
