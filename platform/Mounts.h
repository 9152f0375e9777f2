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
int MountIdAt(const std::string& path);

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
