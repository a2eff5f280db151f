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

/// Of the bus itself, and its interface.
inline constexpr char kBusDaemon[] = "org.freedesktop.DBus";
inline constexpr char kBusDaemonPath[] = "/org/freedesktop/DBus";

}  // namespace kvo::service
