#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "DeviceGeometry.h"

namespace bitlocker {

std::optional<DeviceGeometry> QueryDeviceGeometry(int fd) {
  DeviceGeometry geometry;
  int blockSize = 0;
  int readOnly = 0;
  if (::ioctl(fd, BLKGETSIZE64, &geometry.size) != 0) return std::nullopt;
  if (::ioctl(fd, BLKSSZGET, &blockSize) != 0) return std::nullopt;
  if (::ioctl(fd, BLKROGET, &readOnly) != 0) return std::nullopt;
  geometry.blockSize = static_cast<uint32_t>(blockSize);
  geometry.readOnly = readOnly != 0;
  return geometry;
}

bool SyncDeviceData(int fd) { return ::fdatasync(fd) == 0; }

}  // namespace bitlocker
