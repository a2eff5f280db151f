#pragma once

/// The names by which the service of the resource manager and its client library meet on the bus.
/// `busctl --user introspect kvo.tvhw.ResourceManager /kvo/tvhw/ResourceManager` shows the rest.
namespace kvo::service {

inline constexpr char kServiceName[] = "kvo.tvhw.ResourceManager";
inline constexpr char kServicePath[] = "/kvo/tvhw/ResourceManager";
inline constexpr char kServiceInterface[] = "kvo.tvhw.ResourceManager1";

/// Of the object that each client process has for the service to call.
inline constexpr char kClientPath[] = "/kvo/tvhw/ResourceClient";
inline constexpr char kClientInterface[] = "kvo.tvhw.ResourceClient1";

/// For calls that are answered when a codec or another process is ready, in microseconds. Whether
/// that takes too long is for the service to say; the bus reports a process that has gone.
inline constexpr unsigned long long kNoTimeout = 3'600'000'000;

}  // namespace kvo::service
