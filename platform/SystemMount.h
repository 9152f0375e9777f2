// Whether an open file lies on a file system that root mounted for the
// machine itself, rather than one a user brought or had mounted.  Owners
// and modes on a user's disk say nothing: a FUSE server or a disk made
// elsewhere shows whatever owner it likes, root included.
#ifndef ZQ_PLATFORM_SYSTEMMOUNT_H_
#define ZQ_PLATFORM_SYSTEMMOUNT_H_

namespace platform {

// True when the file or folder open as `fd` lies on a mount that is not
// nosuid, nodev or noexec, not FUSE, and not in a folder where removable
// disks and users' volumes go: /media, /run/media and /mnt on Linux,
// /Volumes on macOS, where it must also be local, not removable and keep
// its owners.  Every mount the mounter makes is FUSE or nosuid and nodev.
// Asked of the descriptor itself, so no path is looked up again.
bool IsOnSystemMount(int fd);

}  // namespace platform

#endif  // ZQ_PLATFORM_SYSTEMMOUNT_H_
