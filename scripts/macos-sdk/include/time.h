// <time.h> as on macOS, which has no per-clock sleep and no POSIX timers.
#ifndef ZQ_MACOS_SDK_TIME_H_
#define ZQ_MACOS_SDK_TIME_H_

#include_next <time.h>

#ifdef __cplusplus
extern "C" {
#endif
int clock_nanosleep(clockid_t clock, int flags, const struct timespec* request, struct timespec* remain)
    __attribute__((unavailable("Linux only")));
int timer_create(clockid_t clock, struct sigevent* __restrict event, timer_t* __restrict timer)
    __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_TIME_H_
