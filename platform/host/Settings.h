#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "host/HostPlatform.h"

namespace kvo::host {

/// Up to which level log lines are printed without a setting.
inline constexpr int kDefaultLogLevel = 1;

/// Up to which level log lines are printed; -1 prints none.
struct LogLevels {
    int ofOtherTags = kDefaultLogLevel;
    std::map<std::string, int, std::less<>> ofTag;
};

/// What the environment says about the first state of the platform. Environment variables, since
/// they reach a program that knows nothing of the host platform, and the processes that it starts.
struct Settings {
    struct Fault {
        std::string operation;
        int code;
        std::uint64_t call;
    };

    /// A reclaim of the core that the process holds, at a call of the platform or of a codec.
    struct Reclaim {
        enum class When { kBefore, kInside, kAfter };

        When when = When::kBefore;
        std::string operation;   ///< "*" for all.
        std::uint64_t call = 0;  ///< From 1; 0: there is none.
    };

    std::vector<CodecCore> pool;            ///< KVO_HOST_POOL
    Panel panel;                            ///< KVO_HOST_PANEL
    std::map<std::string, int> properties;  ///< KVO_HOST_PROPERTIES
    std::vector<Fault> faults;              ///< KVO_HOST_FAULTS
    std::map<std::string, int> priorities;  ///< KVO_HOST_POLICY, by process id or program name.
    Reclaim reclaim;                        ///< KVO_HOST_RECLAIM
    bool abortsOnMisuse;                    ///< KVO_HOST_MISUSE
    int leastHold;                          ///< KVO_HOST_LEAST_HOLD, in milliseconds.
    LogLevels logLevels;                    ///< KVO_MEDIA_LOG_LEVEL
    int logOutput;                          ///< KVO_MEDIA_LOG_FILE, opened for appending.

    /// Returns the priority of a process: that of its id, else of its program, else of "*", else 0.
    [[nodiscard]] KVO_MEDIA_EXPORT int priorityOf(int pid) const;
};

/// Returns the settings, which are read as this library is loaded. A mistake in them ends the
/// process there with status 2 and one line that names the variable, its value and what is allowed.
KVO_MEDIA_EXPORT Settings const& settings();

/// Returns settings() with those of pool, policy and least time of holding that a file sets in
/// lines of NAME=VALUE; empty lines and those with # are skipped. Throws std::invalid_argument,
/// which says where the mistake is and what is allowed there.
KVO_MEDIA_EXPORT Settings settingsWith(std::string const& file);

/// Returns the file name of the program that a process runs, "?" when it cannot be told.
KVO_MEDIA_EXPORT std::string programOf(int pid);

}  // namespace kvo::host
