// <sys/param.h> as on macOS, with the length of a command name the kernel
// keeps for each process.
#ifndef ZQ_MACOS_SDK_SYS_PARAM_H_
#define ZQ_MACOS_SDK_SYS_PARAM_H_

#include_next <sys/param.h>

#define MAXCOMLEN 16

#endif  // ZQ_MACOS_SDK_SYS_PARAM_H_
