#include "DeviceSize.h"

#include <linux/fs.h>
#include <sys/ioctl.h>

namespace bitlocker {

std::optional<uint64_t> BlockDeviceSize(int fd) {
  uint64_t bytes = 0;
  if (::ioctl(fd, BLKGETSIZE64, &bytes) != 0) return std::nullopt;
  return bytes;
}

}  // namespace bitlocker
