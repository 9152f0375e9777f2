#include "DeviceSize.h"

#include <sys/disk.h>
#include <sys/ioctl.h>

namespace bitlocker {

std::optional<uint64_t> BlockDeviceSize(int fd) {
  uint32_t blockSize = 0;
  uint64_t blockCount = 0;
  if (::ioctl(fd, DKIOCGETBLOCKSIZE, &blockSize) != 0) return std::nullopt;
  if (::ioctl(fd, DKIOCGETBLOCKCOUNT, &blockCount) != 0) return std::nullopt;
  return blockCount * blockSize;
}

}  // namespace bitlocker
