#pragma once

#include <cstddef>

/// What the code that is compiled with the thread sanitizer's instrumentation reports.
namespace interleave {

/// Says whether a thread of a scenario runs code that is watched, not the scheduler's own.
bool isWatching();

/// Notes that the program, or the library, of which `code` is part is compiled so.
void noteInstrumented(void const* code);

/// Notes that the running thread touches memory, not atomically. `code` is where.
void noteAccess(void const* memory, std::size_t size, bool isWrite, void const* code);

/// A change of the number of references to an object, by 0 if it is read. Nobody acts on the number
/// but on the last reference.
struct References {
    int change;
    bool isPromoted;  ///< The thread has none before.
};

/// What is done atomically.
struct AtomicAccess {
    void const* memory;
    std::size_t size;
    bool isRead;
    bool isWrite;
    bool isAcquire;  ///< Its memory order, as isRelease.
    bool isRelease;
    void const* code;              ///< Where.
    References const* references;  ///< Null if it is no such number.
};

/// As the running thread comes to an atomic access: decides who goes on, if that is in a library,
/// and notes it.
void noteAtomic(AtomicAccess const& access);

/// While it lives, what the running thread does is not noted.
class Unseen {
public:
    Unseen();
    ~Unseen();
    Unseen(Unseen const&) = delete;
    Unseen& operator=(Unseen const&) = delete;

private:
    bool mWasWatching;
};

}  // namespace interleave
