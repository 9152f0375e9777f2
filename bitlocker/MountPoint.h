// Where a volume may be mounted.  The service checks a mount command's
// mount point with this before it touches anything, and the mounter checks
// it again, so that calling the mounter directly gains nothing.
//
// A mount point is an absolute path below one of the platform's volumes
// folders (platform::VolumesFolders()), with no component "." or "..",
// whose existing components are folders and none of them a symbolic link
// (walked from the root without following links).  Its last component
// either does not exist yet (the mounter makes it) or is an empty folder
// owned by root or the user at the machine.
#ifndef ZQ_BITLOCKER_MOUNTPOINT_H_
#define ZQ_BITLOCKER_MOUNTPOINT_H_

#include <sys/types.h>

#include <string>

enum class MountedFolder {
  kRefused,  // a folder something is mounted on is not empty
  // A folder that is itself the root of a mount counts as empty: the
  // caller unmounts the device first, and the mounter checks again.
  kReleasedFirst,
};

// Why `path` may not be a mount point for `consoleUser`, or the empty string
// when it may.  The reason names the path.  With `parent`, an accepted
// path's last folder but one is left open there (close-on-exec), the very
// folder that was walked, so that the mount point is never looked up by
// path again; -1 there otherwise.
std::string MountPointRefusal(const std::string& path, uid_t consoleUser, MountedFolder mounted, int* parent = nullptr);

// Whether the open folder `folder` holds nothing; `folder` is left as it is.
bool IsEmptyFolder(int folder);

#endif  // ZQ_BITLOCKER_MOUNTPOINT_H_
