#pragma once

#include <memory>
#include <utility>

#include "kvo/media/hardware/Status.h"

namespace kvo::media::hardware {

/// The status of every operation of a wrapper that was constructed without a client.
inline constexpr Status kNoClient{-22};

/// Calls `operation` on `client` and returns its result; without a client returns kNoClient.
template <typename Client, typename Result, typename... Parameters, typename... Arguments>
Result forward(std::shared_ptr<Client> const& client, Result (Client::*operation)(Parameters...),
               Arguments&&... arguments) {
    if (client == nullptr) {
        return kNoClient;
    }
    return (client.get()->*operation)(std::forward<Arguments>(arguments)...);
}

}  // namespace kvo::media::hardware
