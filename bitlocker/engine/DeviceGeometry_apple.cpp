#include <errno.h>
#include <sys/disk.h>
#include <sys/ioctl.h>

#include "DeviceGeometry.h"

namespace bitlocker {

std::optional<DeviceGeometry> QueryDeviceGeometry(int fd) {
  DeviceGeometry geometry;
  uint64_t blockCount = 0;
  uint32_t writable = 0;
  if (::ioctl(fd, DKIOCGETBLOCKSIZE, &geometry.blockSize) != 0) return std::nullopt;
  if (geometry.blockSize == 0) {
    errno = EINVAL;
    return std::nullopt;
  }
  if (::ioctl(fd, DKIOCGETBLOCKCOUNT, &blockCount) != 0) return std::nullopt;
  if (::ioctl(fd, DKIOCISWRITABLE, &writable) != 0) return std::nullopt;
  geometry.size = blockCount * geometry.blockSize;
  geometry.readOnly = writable == 0;
  return geometry;
}

}  // namespace bitlocker
