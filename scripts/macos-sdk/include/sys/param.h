// <sys/param.h> as on macOS, with the length of a command name the kernel
// keeps for each process, and Darwin's longest path (1024, where the C
// library here says 4096).
#ifndef ZQ_MACOS_SDK_SYS_PARAM_H_
#define ZQ_MACOS_SDK_SYS_PARAM_H_

#include_next <sys/param.h>

#define MAXCOMLEN 16
#undef MAXPATHLEN
#define MAXPATHLEN 1024

#endif  // ZQ_MACOS_SDK_SYS_PARAM_H_
