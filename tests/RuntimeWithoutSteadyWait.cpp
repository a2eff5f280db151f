// Must not compile: LLVM's runtime as it is where the C library lacks pthread_cond_clockwait.
#include <condition_variable>
#undef _LIBCPP_HAS_COND_CLOCKWAIT
#include "tvhw/ProcessingGuard.cpp"
