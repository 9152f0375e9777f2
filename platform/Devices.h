// Disk devices: their size and block size, whether they take writes, the
// raw device that belongs to a block device, and where a device's bytes
// are stored.
#ifndef ZQ_PLATFORM_DEVICES_H_
#define ZQ_PLATFORM_DEVICES_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

namespace platform {

struct DeviceGeometry {
  uint64_t size = 0;        // bytes
  uint32_t blockSize = 512;  // the logical block size
  bool readOnly = false;     // set read-only, though it may open for writing
};

// The geometry of the disk device open on `fd`; nullopt with errno set when
// the descriptor is not a disk that answers, or answers a block size of 0.
std::optional<DeviceGeometry> QueryDeviceGeometry(int fd);

// The name, under /dev, of the raw (character) device that belongs to the
// block device with this device number; empty when there is none.  On Linux
// a disk has no separate raw device, so this is the block device's own name.
std::string RawDeviceName(dev_t blockDevice);

// The whole disk a partition lies on; nullopt for a device that is no
// partition, or when it cannot be known.
std::optional<dev_t> DiskOfPartition(dev_t blockDevice);

// The file a block device takes its bytes from (the backing file of a loop
// device or a disk image), as that file's device and inode; nullopt when
// it has none or it cannot be known.
std::optional<std::pair<dev_t, ino_t>> BackingFileOf(dev_t blockDevice);

}  // namespace platform

#endif  // ZQ_PLATFORM_DEVICES_H_
