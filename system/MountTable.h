// The mount table of this process's mount namespace, from
// /proc/self/mountinfo.
#ifndef ZQ_SYSTEM_MOUNTTABLE_H_
#define ZQ_SYSTEM_MOUNTTABLE_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

struct MountEntry {
  int id = 0;
  int parentId = 0;
  dev_t device = 0;         // the mounted file system's device number
  std::string root;         // the folder of the file system that is mounted
  std::string mountPoint;
  std::string options;      // of the mount itself: "ro,nosuid,nodev,relatime"
  std::string type;         // "fuse.zq-mounter", "ntfs3", ...
  std::string source;       // "/dev/loop3", or whatever the mounter named
};

// Every mount, in the order of the table.
std::vector<MountEntry> ReadMountTable();

// The mount that is visible at `mountPoint`: the one no other mount
// there lies over.
std::optional<MountEntry> TopMountAt(const std::vector<MountEntry>& table, const std::string& mountPoint);

bool HasMount(const std::vector<MountEntry>& table, int id);

// Undoes the octal escapes of a mountinfo field ("\040" for a blank).
std::string UnescapeMountField(const std::string& field);

#endif  // ZQ_SYSTEM_MOUNTTABLE_H_
