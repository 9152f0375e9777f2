#include "platform/Devices.h"

#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
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

namespace {

// The sysfs folder of a block device: /sys/dev/block/MAJOR:MINOR, a link
// into the device tree where a partition's folder lies inside its disk's
// and holds a file "partition".
std::string SysfsFolder(dev_t device) {
  return "/sys/dev/block/" + std::to_string(major(device)) + ":" + std::to_string(minor(device));
}

// The device number written in a sysfs "dev" file ("7:0").
std::optional<dev_t> DeviceNumberIn(const std::string& folder) {
  std::ifstream file(folder + "/dev");
  unsigned majorNumber = 0, minorNumber = 0;
  char colon = 0;
  if (!(file >> majorNumber >> colon >> minorNumber) || colon != ':') return std::nullopt;
  return makedev(majorNumber, minorNumber);
}

}  // namespace

std::optional<dev_t> DiskOfPartition(dev_t blockDevice) {
  char resolved[PATH_MAX];
  if (::realpath(SysfsFolder(blockDevice).c_str(), resolved) == nullptr) return std::nullopt;
  std::string folder = resolved;
  if (::access((folder + "/partition").c_str(), F_OK) != 0) return std::nullopt;
  return DeviceNumberIn(folder.erase(folder.rfind('/')));
}

std::optional<std::pair<dev_t, ino_t>> BackingFileOf(dev_t blockDevice) {
  // The kernel writes the path the file had when it was attached; a file
  // renamed or removed since then is not known.
  std::ifstream named(SysfsFolder(blockDevice) + "/loop/backing_file");
  std::string path;
  struct stat file;
  if (!std::getline(named, path) || ::stat(path.c_str(), &file) != 0) return std::nullopt;
  return std::make_pair(file.st_dev, file.st_ino);
}

}  // namespace platform
