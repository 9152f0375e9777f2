#include "DiskTarget.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>

std::optional<DiskTarget> ResolveDiskName(const std::string& name) {
  if (name.empty()) return std::nullopt;
  DiskTarget target;
  target.name = name;
  const std::string path = name.find('/') == std::string::npos ? "/dev/" + name : name;
  struct stat info;
  if (stat(path.c_str(), &info) != 0) return std::nullopt;
  if (S_ISBLK(info.st_mode)) {
    target.isDevice = true;
    target.devicePath = path;
    target.device = info.st_rdev;
    return target;
  }
  char resolved[PATH_MAX];
  if (!S_ISDIR(info.st_mode) || name.find('/') == std::string::npos || realpath(path.c_str(), resolved) == nullptr)
    return std::nullopt;
  target.folder = resolved;
  return target;
}

std::vector<MountEntry> MountsOf(const DiskTarget& target, const std::vector<MountEntry>& table) {
  std::vector<MountEntry> mounts;
  if (!target.isDevice) {
    if (std::optional<MountEntry> top = TopMountAt(table, target.folder)) mounts.push_back(*top);
    return mounts;
  }
  for (auto entry = table.rbegin(); entry != table.rend(); ++entry) {
    if (entry->device == target.device || entry->source == target.devicePath) mounts.push_back(*entry);
  }
  return mounts;
}
