// Darwin's <sys/sysctl.h>, as far as this project uses it: a system value
// read by its name.
#ifndef ZQ_MACOS_SDK_SYS_SYSCTL_H_
#define ZQ_MACOS_SDK_SYS_SYSCTL_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif
int sysctlbyname(const char* name, void* value, size_t* size, void* newValue, size_t newSize);
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_SYS_SYSCTL_H_
