// The mount table, and watching, finding and taking away mounts.
#ifndef ZQ_PLATFORM_MOUNTS_H_
#define ZQ_PLATFORM_MOUNTS_H_

#include <signal.h>

#include <optional>
#include <string>
#include <vector>

#include "util/MountTable.h"

namespace platform {

// Every mount, in the order of the table: of this process's mount
// namespace on Linux (/proc/self/mountinfo), of the machine on macOS
// (getmntinfo).
std::vector<MountEntry> ReadMountTable();

// The id of the mount visible at `path`; -1 when `path` is no mount point.
// Only for paths that root alone can change.
int MountIdAt(const std::string& path);

// A folder to mount on, held open since its path was checked, so that what
// is done to it reaches that folder whatever its path has come to name
// since.  The descriptors stay the caller's.
struct HeldFolder {
  int parent = -1;   // the folder that holds it
  std::string name;  // its name there
  int folder = -1;   // the folder itself
  std::string path;  // where it was checked, for messages
};

// What names the held folder to mount(2) and to libfuse in this process:
// on Linux /proc/self/fd/N, which the kernel follows to the open folder
// itself; on macOS, which has no such path, the path it was checked at.
std::string MountTarget(const HeldFolder& held);

// The id of the mount visible on the held folder itself (not on another
// folder since put at its name); -1 when none is.
int MountIdOn(const HeldFolder& held);

// Takes the mount visible on the held folder away, as DetachMount does, if
// it is the mount `mountId`.
void DetachMountOn(const HeldFolder& held, int mountId);

// Where the volume on /dev/<bsdName> is mounted; nullopt when it is not.
// Only a mount of the volume's own root counts.
std::optional<std::string> VolumeMountPath(const std::string& bsdName);

// Unmounts the mount at `path` if nothing uses it.  Returns 0 or an errno
// value: EBUSY while something does.
int Unmount(const std::string& path);

// Takes the mount at `path` away without waiting for its users; a FUSE
// server ends once nothing holds its file open any more.
void DetachMount(const std::string& path);

// Blocks until the mount `mountId` is gone, `wakeFd` is readable, or one of
// `stopSignals` (blocked in every thread) arrives.
void WaitForUnmountOrStop(int mountId, int wakeFd, const sigset_t& stopSignals);

}  // namespace platform

#endif  // ZQ_PLATFORM_MOUNTS_H_
