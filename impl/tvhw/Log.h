#pragma once

#include <string_view>

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

/// Returns a source file's path from the project's root on, wherever the build has found the file.
constexpr char const* pathFromRoot(char const* path) {
    auto const root = std::string_view(path).rfind("impl/tvhw/");
    return root == std::string_view::npos ? path : path + root;
}

/// The current line as a LogSite. The file that uses it defines kLogTag.
#define TVHW_LOG_SITE (LogSite{kLogTag, pathFromRoot(__FILE__), __func__, __LINE__})

/// Logs a printf-style message on behalf of `site`.
#define TVHW_LOG_AT(site, level, ...) \
    kvo_media_log_printf(level, (site).tag, (site).file, (site).function, (site).line, __VA_ARGS__)

/// Logs a printf-style message of the current function.
#define TVHW_LOG(level, ...) TVHW_LOG_AT(TVHW_LOG_SITE, level, __VA_ARGS__)
