// Making what was written to a device durable.
#ifndef ZQ_PLATFORM_DATASYNC_H_
#define ZQ_PLATFORM_DATASYNC_H_

namespace platform {

// Makes what was written through `fd` durable: fdatasync on Linux,
// F_FULLFSYNC on macOS, whose fsync stops at the drive's cache.  False with
// errno set.
bool SyncDeviceData(int fd);

}  // namespace platform

#endif  // ZQ_PLATFORM_DATASYNC_H_
