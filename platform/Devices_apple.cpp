#include "platform/Devices.h"

#include <stdlib.h>
#include <sys/disk.h>
#include <sys/ioctl.h>
#include <sys/stat.h>

#include <cerrno>

namespace platform {

std::optional<DeviceGeometry> QueryDeviceGeometry(int fd) {
  uint32_t blockSize = 0, writable = 0;
  uint64_t blockCount = 0;
  if (::ioctl(fd, DKIOCGETBLOCKSIZE, &blockSize) != 0 || ::ioctl(fd, DKIOCGETBLOCKCOUNT, &blockCount) != 0 ||
      ::ioctl(fd, DKIOCISWRITABLE, &writable) != 0)
    return std::nullopt;
  if (blockSize == 0) {
    errno = EINVAL;
    return std::nullopt;
  }
  return DeviceGeometry{blockCount * blockSize, blockSize, writable == 0};
}

std::string RawDeviceName(dev_t blockDevice) {
  char name[1025] = {};
  if (devname_r(blockDevice, S_IFCHR, name, static_cast<int>(sizeof name)) == nullptr) return "";
  return name;
}

// macOS does not tell here how a disk and its slices nest, and a disk
// image's backing file is known only to hdiutil: neither is known.
std::optional<dev_t> DiskOfPartition(dev_t) { return std::nullopt; }

std::optional<std::pair<dev_t, ino_t>> BackingFileOf(dev_t) { return std::nullopt; }

}  // namespace platform
