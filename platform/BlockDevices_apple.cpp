#include "platform/BlockDevices.h"

#include <dirent.h>

#include <algorithm>
#include <cctype>

namespace platform {
namespace {

// "disk2" or "disk2s1": a whole disk, or a slice of one.
bool IsDiskName(const std::string& name) {
  if (name.rfind("disk", 0) != 0) return false;
  size_t at = 4;
  const auto digits = [&] {
    const size_t first = at;
    while (at < name.size() && std::isdigit(static_cast<unsigned char>(name[at]))) ++at;
    return at > first;
  };
  if (!digits()) return false;
  while (at < name.size()) {
    if (name[at++] != 's' || !digits()) return false;
  }
  return true;
}

}  // namespace

std::vector<BlockDevice> ListBlockDevices() {
  std::vector<std::string> names;
  if (DIR* dir = ::opendir("/dev")) {
    while (const dirent* entry = ::readdir(dir)) {
      if (IsDiskName(entry->d_name)) names.push_back(entry->d_name);
    }
    ::closedir(dir);
  }
  std::sort(names.begin(), names.end());
  std::vector<BlockDevice> devices;
  for (const std::string& name : names) {
    const bool partitioned = std::any_of(names.begin(), names.end(), [&](const std::string& other) {
      return other.size() > name.size() + 1 && other.compare(0, name.size() + 1, name + "s") == 0 &&
             other.find('s', name.size() + 1) == std::string::npos;
    });
    devices.push_back({"/dev/" + name, partitioned});
  }
  return devices;
}

}  // namespace platform
