// <limits.h> with Darwin's values where they differ from the C library's
// here: PATH_MAX is 1024 in Darwin's <sys/syslimits.h>, not Linux's 4096.
#ifndef ZQ_MACOS_SDK_LIMITS_H_
#define ZQ_MACOS_SDK_LIMITS_H_

#include_next <limits.h>

#undef PATH_MAX
#define PATH_MAX 1024
#undef PIPE_BUF
#define PIPE_BUF 512
#undef NGROUPS_MAX
#define NGROUPS_MAX 16

#endif  // ZQ_MACOS_SDK_LIMITS_H_
