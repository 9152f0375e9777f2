#include "platform/BlockDevices.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>

namespace platform {
namespace {

const std::string kClassBlock = "/sys/class/block/";

bool Exists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

std::vector<std::string> FolderNames(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir(folder.c_str())) {
    while (const dirent* entry = ::readdir(dir)) {
      if (entry->d_name[0] != '.') names.push_back(entry->d_name);
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  return names;
}

// The device's node under /dev, from the kernel's uevent: "mapper/…" names
// are links, so DEVNAME (dm-0) is the one that surely exists.
std::string DevicePath(const std::string& name) {
  std::ifstream uevent(kClassBlock + name + "/uevent");
  for (std::string line; std::getline(uevent, line);) {
    if (line.rfind("DEVNAME=", 0) == 0) return "/dev/" + line.substr(8);
  }
  return "/dev/" + name;
}

bool HasSize(const std::string& name) {
  std::ifstream sectors(kClassBlock + name + "/size");
  unsigned long long count = 0;
  return sectors >> count && count > 0;
}

// A whole disk's partitions are folders of its own sysfs folder.
bool IsPartitioned(const std::string& name) {
  if (Exists(kClassBlock + name + "/partition")) return false;
  for (const std::string& child : FolderNames(kClassBlock + name + "/")) {
    if (Exists(kClassBlock + name + "/" + child + "/partition")) return true;
  }
  return false;
}

}  // namespace

std::vector<BlockDevice> ListBlockDevices() {
  std::vector<BlockDevice> devices;
  for (const std::string& name : FolderNames(kClassBlock)) {
    if (HasSize(name)) devices.push_back({DevicePath(name), IsPartitioned(name)});
  }
  return devices;
}

}  // namespace platform
