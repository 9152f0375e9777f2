#include "tools/diskutil/DiskCommands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include "platform/Mounts.h"
#include "system/TaskWrapper.h"
#include "tools/diskutil/DiskTarget.h"

namespace {

constexpr char kMountProgram[] = "/bin/mount";
constexpr auto kLetGoTime = std::chrono::seconds(2);

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

// Unmounts `mount`; returns 0 once it is gone, or why not.  A mount that
// the program that made it takes away meanwhile is gone too.  With
// `mayBeLetGo` a busy mount gets a moment: the driver of a mount stacked on
// it, unmounted just before, may still hold its file.
int Unmount(const MountEntry& mount, bool mayBeLetGo) {
  const auto deadline = std::chrono::steady_clock::now() + kLetGoTime;
  while (const int error = platform::Unmount(mount.mountPoint)) {
    if (error == EINVAL || error == ENOENT || !HasMount(platform::ReadMountTable(), mount.id)) break;
    if (error != EBUSY || !mayBeLetGo || std::chrono::steady_clock::now() >= deadline) return error;
    usleep(50 * 1000);
  }
  return 0;
}

}  // namespace

int UnmountDisk(const std::string& name) {
  const std::optional<DiskTarget> target = ResolveDiskName(name);
  if (!target) return UnknownDisk(name);
  const std::vector<MountEntry> mounts = MountsOf(*target, platform::ReadMountTable());
  if (mounts.empty()) {
    std::fprintf(stderr, "%s is already unmounted\n", name.c_str());
    return 0;
  }
  bool unmountedAny = false;
  for (const MountEntry& mount : mounts) {
    if (const int error = Unmount(mount, unmountedAny)) {
      std::fprintf(stderr, "Unmount of %s failed: %s: %s\n", name.c_str(), mount.mountPoint.c_str(),
                   std::strerror(error));
      return 1;
    }
    unmountedAny = true;
  }
  std::printf("Unmount of %s successful\n", name.c_str());
  return 0;
}

int MountDisk(const std::string& name, const std::string& mediaRoot) {
  const std::optional<DiskTarget> target = ResolveDiskName(name);
  if (!target || !target->isDevice) return UnknownDisk(name);
  const std::vector<MountEntry> mounts = MountsOf(*target, platform::ReadMountTable());
  if (!mounts.empty()) {
    std::printf("Volume on %s mounted at %s\n", name.c_str(), mounts.back().mountPoint.c_str());
    return 0;
  }
  const std::string folder = mediaRoot + "/" + target->devicePath.substr(target->devicePath.rfind('/') + 1);
  mkdir(mediaRoot.c_str(), 0755);
  const bool madeFolder = mkdir(folder.c_str(), 0755) == 0;
  RunMount(target->devicePath, folder);
  if (MountsOf(*target, platform::ReadMountTable()).empty()) {
    if (madeFolder) rmdir(folder.c_str());
    std::fprintf(stderr, "Volume on %s failed to mount\n", name.c_str());
    return 1;
  }
  std::printf("Volume on %s mounted at %s\n", name.c_str(), folder.c_str());
  return 0;
}
