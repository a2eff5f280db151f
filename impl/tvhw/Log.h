#pragma once

#include <cstddef>
#include <string_view>
#include <type_traits>

#include "kvo_media_log.h"

/// What the platform's log levels mean in this library.
enum LogLevel : int {
    kLogFailure = 0,
    kLogRefused = 1,  ///< A refused request or a soft failure.
    kLogState = 2,    ///< A state change or a granted resource.
    kLogDetail = 3,
};

/// Where a log line comes from: for code that logs on behalf of several classes.
struct LogSite {
    char const* tag;
    char const* file;
    char const* function;
    int line;
};

/// Returns how much of a source file's path leads to the project's root, wherever that lies.
constexpr std::size_t rootLength(std::string_view path) {
    auto const root = path.rfind("impl/tvhw/");
    return root == std::string_view::npos ? 0 : root;
}

/// The current line as a LogSite. The file that uses it defines kLogTag. The length is a constant
/// also where the compiler saves space, which else has every log call search the path.
#define TVHW_LOG_SITE                                                                              \
    (LogSite{kLogTag, &__FILE__[std::integral_constant<std::size_t, rootLength(__FILE__)>::value], \
             __func__, __LINE__})

/// Logs a printf-style message on behalf of `site`.
#define TVHW_LOG_AT(site, level, ...) \
    kvo_media_log_printf(level, (site).tag, (site).file, (site).function, (site).line, __VA_ARGS__)

/// Logs a printf-style message of the current function.
#define TVHW_LOG(level, ...) TVHW_LOG_AT(TVHW_LOG_SITE, level, __VA_ARGS__)
