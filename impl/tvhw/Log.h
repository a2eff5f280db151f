#pragma once

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

/// The current line as a LogSite. The file that uses it defines kLogTag.
#define TVHW_LOG_SITE (LogSite{kLogTag, __FILE__, __func__, __LINE__})

/// Logs a printf-style message on behalf of `site`.
#define TVHW_LOG_AT(site, level, ...) \
    kvo_media_log_printf(level, (site).tag, (site).file, (site).function, (site).line, __VA_ARGS__)

/// Logs a printf-style message of the current function.
#define TVHW_LOG(level, ...) TVHW_LOG_AT(TVHW_LOG_SITE, level, __VA_ARGS__)
