#pragma once

#include <array>
#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <string_view>
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
    /// What a thread does on its own, which depends on nobody.
    struct Thread {
        bool hasBegunReclaim = false;  ///< As it has logged.
        bool hasTimedOut = false;      ///< Its reclaim has, as it has logged.
        int callsInProgress = 0;       ///< That a reclaim may wait for.
        int reclaimsTold = 0;          ///< To the platform utility.
        int releasesTold = 0;          ///< To the platform utility.
    };
    Thread& self() { return threads.at(threadNumber()); }

    std::deque<TVHW_CRM_CLIENT> clients;  ///< All that were ever opened, in order.
    std::deque<int> ports;                ///< What the next grants name, from 1; then 0.
    std::string_view failing;             ///< The operation whose next call fails.
    std::array<Thread, 8> threads;
    int scalerInitialisations = 0;  ///< That succeeded.
    int outputsOpen = 0;
    int channelsOpen = 0;
    bool isOpening = false;  ///< A thread is in an operation that must not overlap.
};

/// Adds a scenario with a platform of its own, to which all must be given back, and a scaler that
/// was never initialised.
void add(std::vector<Scenario>& all, std::string name, std::vector<std::string> facts,
         std::function<void()> body);

/// Returns a program of locks, signals, deadlines, atomics and references at random.
Scenario madeUpProgram(unsigned int seed);

void addCodecScenarios(std::vector<Scenario>& all);
void addScalerAndSinkScenarios(std::vector<Scenario>& all);

/// The platform of the scenario that is running.
Platform& platform();

}  // namespace interleave
