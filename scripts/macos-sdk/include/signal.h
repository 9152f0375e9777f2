// <signal.h> as on macOS, which has no way to wait for a signal with a
// timeout or to take one signal's details.
#ifndef ZQ_MACOS_SDK_SIGNAL_H_
#define ZQ_MACOS_SDK_SIGNAL_H_

#include_next <signal.h>

#ifdef __cplusplus
extern "C" {
#endif
int sigtimedwait(const sigset_t* __restrict set, siginfo_t* __restrict info,
                 const struct timespec* __restrict timeout) __attribute__((unavailable("Linux only")));
int sigwaitinfo(const sigset_t* __restrict set, siginfo_t* __restrict info)
    __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_SIGNAL_H_
