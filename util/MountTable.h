// A mount table, as platform::ReadMountTable reads it, and the questions
// asked of it.
#ifndef ZQ_UTIL_MOUNTTABLE_H_
#define ZQ_UTIL_MOUNTTABLE_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

// `device`, `root` and `options` are known on Linux only; macOS's table
// leaves them empty.
struct MountEntry {
  int id = 0;
  int parentId = 0;         // the mount this one lies on
  dev_t device = 0;         // the mounted file system's device number
  std::string root;         // the folder of the file system that is mounted
  std::string mountPoint;
  std::string options;      // of the mount itself: "ro,nosuid,nodev,relatime"
  std::string type;         // "fuse.zq-mounter", "ntfs3", ...
  std::string source;       // "/dev/loop3", or whatever the mounter named
  bool readOnly = false;
  bool mounterServes = false;  // a FUSE mount of zq-mounter, whose source is the device it was given
};

// The mount that is visible at `mountPoint`: the one no other mount
// there lies over.
std::optional<MountEntry> TopMountAt(const std::vector<MountEntry>& table, const std::string& mountPoint);

bool HasMount(const std::vector<MountEntry>& table, int id);

// Whether the mount `id` is in the table and read-only.
bool IsReadOnlyMount(const std::vector<MountEntry>& table, int id);

#endif  // ZQ_UTIL_MOUNTTABLE_H_
