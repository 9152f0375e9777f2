// <unistd.h> as on macOS, which lacks Linux's descriptor calls that set
// flags in the same step.
#ifndef ZQ_MACOS_SDK_UNISTD_H_
#define ZQ_MACOS_SDK_UNISTD_H_

#include_next <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif
int pipe2(int fds[2], int flags) __attribute__((unavailable("Linux only")));
int dup3(int from, int to, int flags) __attribute__((unavailable("Linux only")));
pid_t gettid(void) __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_UNISTD_H_
