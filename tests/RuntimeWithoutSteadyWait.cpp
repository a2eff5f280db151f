// Must not compile: the last Android API level whose C library lacks pthread_cond_clockwait.
#define __ANDROID_API__ 29
#include "tvhw/ProcessingGuard.cpp"
