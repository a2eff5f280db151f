#pragma once

/// Lock rules that Clang's thread-safety analysis checks; other compilers see nothing.
#if defined(__clang__)
#define TVHW_THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define TVHW_THREAD_ANNOTATION(attribute)
#endif

/// The field is only touched with this mutex held.
#define TVHW_GUARDED_BY(mutex) TVHW_THREAD_ANNOTATION(guarded_by(mutex))

/// The operation is called, and returns, with this mutex held.
#define TVHW_REQUIRES(mutex) TVHW_THREAD_ANNOTATION(requires_capability(mutex))

/// The operation takes this mutex, or runs foreign code: it is not to be held by the caller.
#define TVHW_EXCLUDES(mutex) TVHW_THREAD_ANNOTATION(locks_excluded(mutex))
