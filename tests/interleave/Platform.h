#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "scheduler/Scheduler.h"
#include "tvhw_crm.h"

/// A client of the resource manager.
struct TVHW_CRM_CLIENT {
    int uniqueId;
    TVHW_CRM_RECLAIM_CALLBACK reclaim;
    void* cookie;
    bool isOpen;
    bool holdsCore;
    int port;             ///< From 1; 0 for none.
    std::size_t freedBy;  ///< Number of the thread.
};

/// A small platform under the library that keeps books: each call is a point of the scheduler, and
/// breaks the run when it uses what is not open or holds locks that it should not.
namespace interleave {

struct Platform {
    std::deque<TVHW_CRM_CLIENT> clients;  ///< All that were ever opened, in order.
    std::deque<int> ports;                ///< What the next grants name, from 1; then 0.
    std::set<std::string> failing;        ///< Operations whose next call fails.
    /// By thread, so that what they do on their own depends on nobody.
    template <typename Type>
    using ByThread = std::array<Type, 8>;
    ByThread<std::vector<std::string>> log;  ///< The formats.
    ByThread<int> callsInProgress{};         ///< That a reclaim may wait for.
    ByThread<std::size_t> reclaimsTold{};    ///< To the platform utility.
    ByThread<std::size_t> releasesTold{};    ///< To the platform utility.
    int scalerInitialisations = 0;           ///< That succeeded.
    int outputsOpen = 0;
    int channelsOpen = 0;
    std::set<std::string> inside;  ///< Operations that must not overlap.
};

/// Returns a scenario with a platform of its own, to which all must be given back, and a scaler
/// that was never initialised.
Scenario scenario(std::string name, std::vector<std::string> facts, std::function<void()> body);

/// Returns a program of locks, signals, deadlines, atomics and references at random.
Scenario madeUpProgram(unsigned int seed);

std::vector<Scenario> codecScenarios();
std::vector<Scenario> scalerAndSinkScenarios();

/// The platform of the scenario that is running.
Platform& platform();

/// Says whether a thread, if given, has logged a line that begins with `text`: one of those in the
/// table of Platform.cpp.
bool hasLogged(std::string const& text, std::optional<std::size_t> thread = {});

}  // namespace interleave
