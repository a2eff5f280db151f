#pragma once

#include <cerrno>
#include <memory>
#include <sstream>
#include <type_traits>
#include <utility>

#include "host/CodecWrappers.h"
#include "host/LoggedCall.h"
#include "host/ReclaimAtCall.h"
#include "kvo/media/hardware/Status.h"

namespace kvo::media::hardware {

class IVideoEncoderClient;

/// The status of every operation of a wrapper that was constructed without a client.
inline constexpr Status kNoClient{-EINVAL};

/// Returns a call of a codec as the log names it: by the codec's kind, its address and `name`.
template <typename Client>
host::LoggedCall codecCall(Client const* client, char const* name) {
    bool const isEncoder = std::is_same_v<Client, IVideoEncoderClient>;
    std::ostringstream text;
    text << (isEncoder ? "encoder " : "decoder ") << client << ' ' << name << "()";
    return {host::kCodecTag, text.str()};
}

/// Calls `operation`, whose name is `name`, on the `client` of `wrapper` and returns its result;
/// without a client returns kNoClient. Where calls are logged, logs that it is entered and left.
template <typename Client, typename Result, typename... Parameters, typename... Arguments>
Result forward(void const* wrapper, std::shared_ptr<Client> const& client, char const* name,
               Result (Client::*operation)(Parameters...), Arguments&&... arguments) {
    if (client == nullptr) {
        return kNoClient;
    }
    host::ReclaimAtCall const reclaim(name);
    host::WrapperCall const noted(wrapper, name);
    if (!host::mayLogCalls()) {
        return (client.get()->*operation)(std::forward<Arguments>(arguments)...);
    }
    host::LoggedCall const call = codecCall(client.get(), name);
    call.logEntry();
    Result result = (client.get()->*operation)(std::forward<Arguments>(arguments)...);
    call.logReturn(result.status().code());
    return result;
}

}  // namespace kvo::media::hardware
