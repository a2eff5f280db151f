// The log: a line to standard error, at once.

#include <stdarg.h>
#include <stdio.h>
#include <unistd.h>

#include "kvo_media_log.h"

void kvo_media_log_printf(int level, char const* tag, char const* file, char const* function,
                          int line, char const* format, ...) {
    char message[512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    dprintf(STDERR_FILENO, "%c %s: %s:%d %s: %s\n", "EWID"[level & 3], tag, file, line, function,
            message);
}
