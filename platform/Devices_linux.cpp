#include "platform/Devices.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/sysmacros.h>

#include <cerrno>
#include <fstream>

namespace platform {

std::optional<DeviceGeometry> QueryDeviceGeometry(int fd) {
  uint64_t size = 0;
  int blockSize = 0, readOnly = 0;
  if (::ioctl(fd, BLKGETSIZE64, &size) != 0 || ::ioctl(fd, BLKSSZGET, &blockSize) != 0 ||
      ::ioctl(fd, BLKROGET, &readOnly) != 0)
    return std::nullopt;
  if (blockSize <= 0) {
    errno = EINVAL;
    return std::nullopt;
  }
  return DeviceGeometry{size, static_cast<uint32_t>(blockSize), readOnly != 0};
}

std::string RawDeviceName(dev_t blockDevice) {
  std::ifstream uevent("/sys/dev/block/" + std::to_string(major(blockDevice)) + ":" +
                       std::to_string(minor(blockDevice)) + "/uevent");
  for (std::string line; std::getline(uevent, line);) {
    if (line.rfind("DEVNAME=", 0) == 0) return line.substr(8);
  }
  return "";
}

}  // namespace platform
