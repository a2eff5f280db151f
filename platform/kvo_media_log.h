#pragma once

// The platform's log, in libkvo_media_utils.

#ifdef __cplusplus
extern "C" {
#endif

/// Writes one log line; may be called from any thread, also with locks of the library held, and so
/// must not call the library, and must return soon. `level` is 0 for failures, 1 for refused
/// requests and soft failures, 2 for state changes and grants, 3 for details; `file` is the path
/// from the project's root; `format` and what follows are as for printf, without a line end.
__attribute__((format(printf, 6, 7))) void kvo_media_log_printf(int level, char const* tag,
                                                                char const* file,
                                                                char const* function, int line,
                                                                char const* format, ...);

#ifdef __cplusplus
}  // extern "C"
#endif
