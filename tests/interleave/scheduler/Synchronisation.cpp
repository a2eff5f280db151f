// The functions of the system that libraries synchronise themselves with, and their clock. The
// loader takes those of the program first, so that they reach the scheduler.

#include <pthread.h>

#include <chrono>
#include <ctime>
#include <limits>

#include "scheduler/Scheduler.h"

namespace {

constexpr interleave::Nanoseconds kSecond = 1'000'000'000;

}  // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    if (interleave::isRunning()) {
        interleave::lock(mutex);
    }
    return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept {
    if (interleave::isRunning()) {
        interleave::unlock(mutex);
    }
    return 0;
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex) {
    interleave::waitForSignal(condition, mutex,
                              std::numeric_limits<interleave::Nanoseconds>::max());
    return 0;
}

/// The result tells nothing that the clock does not: the caller asks it.
int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           timespec const* deadline) {
    interleave::expect(clock == CLOCK_MONOTONIC, "a wait on a clock that may be set");
    interleave::waitForSignal(condition, mutex, deadline->tv_sec * kSecond + deadline->tv_nsec);
    return 0;
}

int pthread_cond_signal(pthread_cond_t* condition) noexcept {
    if (interleave::isRunning()) {
        interleave::signal(condition, false);
    }
    return 0;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept {
    if (interleave::isRunning()) {
        interleave::signal(condition, true);
    }
    return 0;
}

}  // extern "C"

std::chrono::steady_clock::time_point std::chrono::steady_clock::now() noexcept {
    return time_point(nanoseconds(interleave::now()));
}
