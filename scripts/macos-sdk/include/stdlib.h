// <stdlib.h> as on macOS, which names devices by number with devname_r.
#ifndef ZQ_MACOS_SDK_STDLIB_H_
#define ZQ_MACOS_SDK_STDLIB_H_

#include_next <stdlib.h>

#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif
char* devname_r(dev_t device, mode_t type, char* buffer, int length);
char* secure_getenv(const char* name) __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_STDLIB_H_
