// <fcntl.h> as on macOS: Darwin's own commands added, Linux's own flags
// taken away.
#ifndef ZQ_MACOS_SDK_FCNTL_H_
#define ZQ_MACOS_SDK_FCNTL_H_

#include_next <fcntl.h>

#define F_GETPATH 50
#define F_FULLFSYNC 51
#define F_SETNOSIGPIPE 73
#define F_GETNOSIGPIPE 74

#undef O_DIRECT
#undef O_LARGEFILE
#undef O_NOATIME
#undef O_PATH
#undef O_TMPFILE

#ifdef __cplusplus
extern "C" {
#endif
int posix_fallocate(int fd, off_t offset, off_t length) __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_FCNTL_H_
