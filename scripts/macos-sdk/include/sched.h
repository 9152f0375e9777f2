// <sched.h> as on macOS, which has no namespaces.
#ifndef ZQ_MACOS_SDK_SCHED_H_
#define ZQ_MACOS_SDK_SCHED_H_

#include_next <sched.h>

#ifdef __cplusplus
extern "C" {
#endif
int unshare(int flags) __attribute__((unavailable("Linux only")));
int setns(int fd, int type) __attribute__((unavailable("Linux only")));
int clone(int (*function)(void*), void* stack, int flags, void* argument, ...)
    __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_SCHED_H_
