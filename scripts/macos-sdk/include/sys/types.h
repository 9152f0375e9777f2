// <sys/types.h> as on macOS, where fsid_t comes from <sys/mount.h> with
// Darwin's members rather than glibc's.
#ifndef ZQ_MACOS_SDK_SYS_TYPES_H_
#define ZQ_MACOS_SDK_SYS_TYPES_H_

#define fsid_t zq_glibc_fsid_t
#include_next <sys/types.h>
#undef fsid_t

#endif  // ZQ_MACOS_SDK_SYS_TYPES_H_
