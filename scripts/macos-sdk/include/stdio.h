// <stdio.h> as on macOS: Darwin's rename that refuses to replace, without
// Linux's.
#ifndef ZQ_MACOS_SDK_STDIO_H_
#define ZQ_MACOS_SDK_STDIO_H_

#include_next <stdio.h>

#undef RENAME_NOREPLACE
#undef RENAME_EXCHANGE
#undef RENAME_WHITEOUT
#define RENAME_EXCL 0x00000004

#ifdef __cplusplus
extern "C" {
#endif
int renameatx_np(int fromfd, const char* from, int tofd, const char* to, unsigned int flags);
int renameat2(int fromfd, const char* from, int tofd, const char* to, unsigned int flags)
    __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_STDIO_H_
