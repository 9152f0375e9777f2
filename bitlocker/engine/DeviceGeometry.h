// The size and block size of a disk device, whether it takes writes, and
// how its data is made durable: the questions about devices whose answers
// differ between operating systems.  One implementation file
// per platform.
#ifndef ZQ_BITLOCKER_ENGINE_DEVICEGEOMETRY_H_
#define ZQ_BITLOCKER_ENGINE_DEVICEGEOMETRY_H_

#include <cstdint>
#include <optional>

namespace bitlocker {

struct DeviceGeometry {
  uint64_t size = 0;        // bytes
  uint32_t blockSize = 512;  // the logical block size
  bool readOnly = false;     // set read-only, though it may open for writing
};

// The geometry of the disk device open on `fd`; nullopt with errno set when
// the descriptor is not a disk that answers.
std::optional<DeviceGeometry> QueryDeviceGeometry(int fd);

// Makes what was written through `fd` durable: fdatasync on Linux,
// F_FULLFSYNC on macOS, whose fsync stops at the drive's cache.  False with
// errno set.
bool SyncDeviceData(int fd);

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_DEVICEGEOMETRY_H_
