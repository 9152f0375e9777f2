// Darwin's <sys/mount.h>, in place of Linux's: BSD mount and unmount, and
// the mounted file systems' table through statfs.
#ifndef ZQ_MACOS_SDK_SYS_MOUNT_H_
#define ZQ_MACOS_SDK_SYS_MOUNT_H_

#include <stdint.h>
#include <sys/param.h>
#include <sys/types.h>

#define MFSTYPENAMELEN 16

#define MNT_RDONLY 0x00000001
#define MNT_NOEXEC 0x00000004
#define MNT_NOSUID 0x00000008
#define MNT_NODEV 0x00000010
#define MNT_REMOVABLE 0x00000200
#define MNT_LOCAL 0x00001000
#define MNT_IGNORE_OWNERSHIP 0x00200000
#define MNT_FORCE 0x00080000

#define MNT_WAIT 1
#define MNT_NOWAIT 2

typedef struct { int32_t val[2]; } fsid_t;

struct statfs {
  uint32_t f_bsize;
  int32_t f_iosize;
  uint64_t f_blocks;
  uint64_t f_bfree;
  uint64_t f_bavail;
  uint64_t f_files;
  uint64_t f_ffree;
  fsid_t f_fsid;
  uid_t f_owner;
  uint32_t f_type;
  uint32_t f_flags;
  uint32_t f_fssubtype;
  char f_fstypename[MFSTYPENAMELEN];
  char f_mntonname[MAXPATHLEN];
  char f_mntfromname[MAXPATHLEN];
  uint32_t f_flags_ext;
  uint32_t f_reserved[7];
};

#ifdef __cplusplus
extern "C" {
#endif
int statfs(const char* path, struct statfs* info);
int fstatfs(int fd, struct statfs* info);
int getmntinfo(struct statfs** table, int flags);
int mount(const char* type, const char* folder, int flags, void* data);
int unmount(const char* folder, int flags);
int umount(const char* target) __attribute__((unavailable("Linux only: macOS has unmount")));
int umount2(const char* target, int flags) __attribute__((unavailable("Linux only: macOS has unmount")));
#ifdef __cplusplus
}
int mount(const char* source, const char* target, const char* type, unsigned long flags, const void* data)
    __attribute__((unavailable("Linux only: macOS's mount takes four arguments")));
#endif

#endif  // ZQ_MACOS_SDK_SYS_MOUNT_H_
