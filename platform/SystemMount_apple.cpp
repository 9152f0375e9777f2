// The mount of an open file on macOS, from fstatfs alone.
#include "platform/SystemMount.h"

#include <sys/mount.h>
#include <sys/param.h>

#include <string>

namespace platform {

// Apple's statfs page describes f_flags only as the mount's flags and
// lists neither MNT_REMOVABLE nor MNT_IGNORE_OWNERSHIP; <sys/mount.h>
// describes the first as storage the user can remove from the system and
// the second as owners being ignored.  Whether a disk that can be ejected
// but is not called removable (an external drive on some buses) carries
// MNT_REMOVABLE is left open, so a volume in /Volumes, where the system
// mounts every disk but the startup disk, is refused whatever its flags,
// and so is any file system that is not local or whose owners are made up.
bool IsOnSystemMount(int fd) {
  struct statfs info;
  if (fstatfs(fd, &info) != 0) return false;
  const uint32_t refused = MNT_NOSUID | MNT_NODEV | MNT_NOEXEC | MNT_REMOVABLE | MNT_IGNORE_OWNERSHIP;
  const std::string type = info.f_fstypename;
  const std::string mountPoint = info.f_mntonname;
  const bool fuse = type == "macfuse" || type == "osxfuse" || type.rfind("fuse", 0) == 0;
  return (info.f_flags & refused) == 0 && (info.f_flags & MNT_LOCAL) != 0 && !fuse && mountPoint != "/Volumes" &&
         mountPoint.rfind("/Volumes/", 0) != 0;
}

}  // namespace platform
