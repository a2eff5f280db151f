#pragma once

#include <cstddef>

/// What the code that is compiled with the thread sanitizer's instrumentation reports.
namespace interleave {

/// Says whether a thread of a scenario runs code that is watched, not the scheduler's own.
bool isWatching();

/// Notes that the program, or the library, of which `code` is part is compiled so.
void noteInstrumented(void const* code);

/// Notes that the running thread touches memory. `code` is where.
void noteAccess(void const* memory, std::size_t size, bool isWrite, bool isPlain, void const* code);

/// What is done atomically.
struct AtomicAccess {
    void const* memory;
    std::size_t size;
    bool isRead;
    bool isWrite;
    bool isAcquire;  ///< Its memory order, as isRelease.
    bool isRelease;
    void const* code;  ///< Where.
};

/// As the running thread comes to an atomic access: decides who goes on, if that is in a library,
/// and notes it.
void noteAtomic(AtomicAccess const& access);

/// As noteAtomic(), for the number of references to an object, which changes by `change`, and is
/// read if that is 0: nobody acts on the number but on the last reference. `isPromoted` says that
/// the thread has none before.
void noteReferences(int const volatile* number, int change, bool isPromoted, void const* code);

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
