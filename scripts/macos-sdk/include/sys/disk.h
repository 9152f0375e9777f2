// Darwin's <sys/disk.h>: the disk ioctls.
#ifndef ZQ_MACOS_SDK_SYS_DISK_H_
#define ZQ_MACOS_SDK_SYS_DISK_H_

#include <stdint.h>
#include <sys/ioctl.h>

#define DKIOCGETBLOCKSIZE _IOR('d', 24, uint32_t)
#define DKIOCGETBLOCKCOUNT _IOR('d', 25, uint64_t)
#define DKIOCISWRITABLE _IOR('d', 29, uint32_t)

#endif  // ZQ_MACOS_SDK_SYS_DISK_H_
