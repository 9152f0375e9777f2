// The mount of an open file on Linux: its flags from fstatvfs, and its
// type and mount point from the entry of /proc/self/mountinfo whose id
// /proc/self/fdinfo gives for the descriptor.
#include "platform/SystemMount.h"

#include <sys/statvfs.h>

#include <fstream>
#include <optional>
#include <string>

#include "platform/Mounts.h"

namespace platform {
namespace {

// The id of the mount the descriptor was opened on.  The device number
// alone would not do: one file system may be mounted in several places
// with different flags, and btrfs gives files other numbers than its
// mounts.
std::optional<int> MountIdOf(int fd) {
  std::ifstream fdinfo("/proc/self/fdinfo/" + std::to_string(fd));
  for (std::string field; fdinfo >> field;) {
    int id = 0;
    if (field == "mnt_id:" && fdinfo >> id) return id;
  }
  return std::nullopt;
}

bool IsUnder(const std::string& path, const std::string& folder) {
  return path == folder || path.rfind(folder + "/", 0) == 0;
}

}  // namespace

bool IsOnSystemMount(int fd) {
  struct statvfs flags;
  if (fstatvfs(fd, &flags) != 0 || (flags.f_flag & (ST_NOSUID | ST_NODEV | ST_NOEXEC)) != 0) return false;
  const std::optional<int> mountId = MountIdOf(fd);
  if (!mountId) return false;
  for (const MountEntry& mount : ReadMountTable()) {
    if (mount.id != *mountId) continue;
    const bool fuse = mount.type == "fuse" || mount.type == "fuseblk" || mount.type.rfind("fuse.", 0) == 0;
    return !fuse && !IsUnder(mount.mountPoint, "/media") && !IsUnder(mount.mountPoint, "/run/media") &&
           !IsUnder(mount.mountPoint, "/mnt");
  }
  return false;
}

}  // namespace platform
