// What a mount session asks of the operating system, apart from FUSE:
// where to stage, how to tell mounts apart, watch them and take them away.
// One implementation file per platform.
#ifndef ZQ_BITLOCKER_MOUNTER_MOUNTSYSTEM_H_
#define ZQ_BITLOCKER_MOUNTER_MOUNTSYSTEM_H_

#include <signal.h>

#include <string>

// The root-only folder that holds one private folder for each FUSE mount
// that a file-system driver reads the volume's file from.
extern const char kStagingRoot[];

// The id of the mount visible at `path`; -1 when `path` is no mount point.
int MountIdAt(const std::string& path);

// Takes the mount at `path` away without waiting for its users; a FUSE
// server ends once nothing holds its file open any more.
void DetachMount(const std::string& path);

// Blocks until the mount `mountId` is gone, `wakeFd` is readable, or one of
// `stopSignals` (blocked in every thread) arrives.
void WaitForUnmountOrStop(int mountId, int wakeFd, const sigset_t& stopSignals);

#endif  // ZQ_BITLOCKER_MOUNTER_MOUNTSYSTEM_H_
