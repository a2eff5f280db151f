#pragma once

/// Marks a class, operation or object that is visible outside the shared library that defines it.
/// Everything else is hidden, since all libraries are built with -fvisibility=hidden.
#define KVO_MEDIA_EXPORT __attribute__((visibility("default")))

/// Keeps a class nested in an exported one out of the exported surface.
#define KVO_MEDIA_HIDDEN __attribute__((visibility("hidden")))
