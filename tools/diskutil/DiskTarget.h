// What a NAME given to diskutil stands for: a disk device ("loop3" or
// "/dev/loop3") or a mount point (any other path of a folder).
#ifndef ZQ_TOOLS_DISKUTIL_DISKTARGET_H_
#define ZQ_TOOLS_DISKUTIL_DISKTARGET_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "util/MountTable.h"

struct DiskTarget {
  std::string name;        // as given
  bool isDevice = false;
  std::string devicePath;  // "/dev/loop3", for a device
  dev_t device = 0;        // its device number
  std::string folder;      // the canonical path, for a mount point
};

// Resolves `name`; nullopt when it names neither a block device nor a
// folder.
std::optional<DiskTarget> ResolveDiskName(const std::string& name);

// The mounts that `target` stands for, in the order they can be unmounted:
// for a device every file system mounted from it (by device number, or
// naming it as its source, as FUSE mounts of it do), newest first, after
// those stacked on them, mounted from a file in one of them (naming its
// path as their source, or through a loop device); for a mount point the
// mount visible there.
std::vector<MountEntry> MountsOf(const DiskTarget& target, const std::vector<MountEntry>& table);

#endif  // ZQ_TOOLS_DISKUTIL_DISKTARGET_H_
