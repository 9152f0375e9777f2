#include "tools/diskutil/DiskTarget.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <fstream>

namespace {

// Nothing lies inside "/" here: the root file system is never unmounted,
// so nothing mounted from files on it need go first.
bool LiesInside(const std::string& path, const std::string& folder) {
  return path.compare(0, folder.size() + 1, folder + "/") == 0;
}

// The file behind the loop device `source` ("/dev/loop3"), or empty when
// it is none.  Only that exact form is looked up, so that no source a user
// chose for a mount of their own can steer the look-up elsewhere.
std::string LoopBackingFile(const std::string& source) {
  const std::string name = source.compare(0, 5, "/dev/") == 0 ? source.substr(5) : "";
  if (name.size() <= 4 || name.compare(0, 4, "loop") != 0 ||
      name.find_first_not_of("0123456789", 4) != std::string::npos)
    return "";
  std::ifstream file("/sys/block/" + name + "/loop/backing_file");
  std::string path;
  std::getline(file, path);
  return path;
}

// Whether `entry` is mounted from a file in one of `mounts`: directly, as
// FUSE drivers name their image, or through a loop device.
bool StackedOn(const MountEntry& entry, const std::vector<MountEntry>& mounts) {
  const std::string loopFile = LoopBackingFile(entry.source);
  for (const MountEntry& mount : mounts)
    if (LiesInside(entry.source, mount.mountPoint) || LiesInside(loopFile, mount.mountPoint)) return true;
  return false;
}

}  // namespace

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
  const auto fromDevice = [&](const MountEntry& entry) {
    return entry.device == target.device || entry.source == target.devicePath;
  };
  std::vector<MountEntry> own;
  for (auto entry = table.rbegin(); entry != table.rend(); ++entry) {
    if (fromDevice(*entry)) own.push_back(*entry);
  }
  // What is mounted from files on the device holds them open: it goes first.
  for (auto entry = table.rbegin(); entry != table.rend(); ++entry) {
    if (!fromDevice(*entry) && StackedOn(*entry, own)) mounts.push_back(*entry);
  }
  mounts.insert(mounts.end(), own.begin(), own.end());
  return mounts;
}
