#include <errno.h>
#include <fcntl.h>
#include <sys/disk.h>
#include <sys/ioctl.h>
#include <unistd.h>

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

// fsync leaves data in the drive's cache; F_FULLFSYNC asks the drive to
// write it out, and is refused by the few that cannot.
bool SyncDeviceData(int fd) { return ::fcntl(fd, F_FULLFSYNC) == 0 || ::fsync(fd) == 0; }

}  // namespace bitlocker
