#include "DiskCommands.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "DiskTarget.h"
#include "TaskWrapper.h"

namespace {

constexpr char kMountProgram[] = "/bin/mount";

int UnknownDisk(const std::string& name) {
  std::fprintf(stderr, "Unable to find disk for %s\n", name.c_str());
  return 1;
}

// Runs mount(8) and passes on everything it says on standard error, so
// that nothing it says can pass for our verdict, which the mount table
// gives.
void RunMount(const std::string& device, const std::string& folder) {
  const TaskWrapper mount = TaskWrapper::runTaskAtLaunchPath(kMountProgram, {device, folder});
  std::fputs(mount.response().value_or("").c_str(), stderr);
  std::fputs(mount.errorMessage().value_or("").c_str(), stderr);
}

}  // namespace

int UnmountDisk(const std::string& name) {
  const std::optional<DiskTarget> target = ResolveDiskName(name);
  if (!target) return UnknownDisk(name);
  const std::vector<MountEntry> mounts = MountsOf(*target, ReadMountTable());
  if (mounts.empty()) {
    std::fprintf(stderr, "%s is already unmounted\n", name.c_str());
    return 0;
  }
  for (const MountEntry& mount : mounts) {
    if (umount2(mount.mountPoint.c_str(), 0) != 0 && errno != EINVAL) {
      std::fprintf(stderr, "Unmount of %s failed: %s: %s\n", name.c_str(), mount.mountPoint.c_str(),
                   std::strerror(errno));
      return 1;
    }
  }
  std::printf("Unmount of %s successful\n", name.c_str());
  return 0;
}

int MountDisk(const std::string& name, const std::string& mediaRoot) {
  const std::optional<DiskTarget> target = ResolveDiskName(name);
  if (!target || !target->isDevice) return UnknownDisk(name);
  const std::vector<MountEntry> mounts = MountsOf(*target, ReadMountTable());
  if (!mounts.empty()) {
    std::printf("Volume on %s mounted at %s\n", name.c_str(), mounts.back().mountPoint.c_str());
    return 0;
  }
  const std::string folder = mediaRoot + "/" + target->devicePath.substr(target->devicePath.rfind('/') + 1);
  mkdir(mediaRoot.c_str(), 0755);
  const bool madeFolder = mkdir(folder.c_str(), 0755) == 0;
  RunMount(target->devicePath, folder);
  if (MountsOf(*target, ReadMountTable()).empty()) {
    if (madeFolder) rmdir(folder.c_str());
    std::fprintf(stderr, "Volume on %s failed to mount\n", name.c_str());
    return 1;
  }
  std::printf("Volume on %s mounted at %s\n", name.c_str(), folder.c_str());
  return 0;
}
