#pragma once

/// Gives the types of Android's C library to a build against another one, so that the compiler lays
/// out the device's classes. Not for running: the functions remain the other library's.
///
/// Source: bionic, libc/include/bits/pthread_types.h. Without __LP64__ (32-bit pointers) each of
/// the two is one int32_t; with it they are 10 and 12 of them.
#define pthread_mutex_t other_pthread_mutex_t
#define pthread_cond_t other_pthread_cond_t
#include <sys/types.h>
#undef pthread_mutex_t
#undef pthread_cond_t

#ifdef __LP64__
#error "The device has 32-bit pointers."
#endif
typedef struct {
    int __private[1];
} pthread_mutex_t;
typedef struct {
    int __private[1];
} pthread_cond_t;

#include <pthread.h>
#undef PTHREAD_MUTEX_INITIALIZER
#undef PTHREAD_COND_INITIALIZER
#define PTHREAD_MUTEX_INITIALIZER \
    {                             \
        { 0 }                     \
    }
#define PTHREAD_COND_INITIALIZER \
    {                            \
        { 0 }                    \
    }
