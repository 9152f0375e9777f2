// The folders the system gives to volumes, logs and the mounter's own
// mounts.
#ifndef ZQ_PLATFORM_FOLDERS_H_
#define ZQ_PLATFORM_FOLDERS_H_

#include <string>
#include <vector>

namespace platform {

// The folders below which volumes are mounted: /Volumes on macOS; /media,
// /run/media and /mnt on Linux.
std::vector<std::string> VolumesFolders();

// The activity log of the mounter and the explorer, in a folder of root's
// outside /tmp: /var/log/zq-norvane/activity.log on Linux,
// "/Library/Logs/Zq Norvane/activity.log" on macOS.
std::string ActivityLogPath();

// The root-only folder that holds one private folder for each FUSE mount
// that a file-system driver reads the volume's file from: /run/zq-mounter
// on Linux, /var/run/zq-mounter on macOS, where hier(7) gives /var/run to
// files that describe the running system.
extern const char kStagingRoot[];

}  // namespace platform

#endif  // ZQ_PLATFORM_FOLDERS_H_
