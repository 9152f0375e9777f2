#include "DiskCommands.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "DiskTarget.h"

namespace {

constexpr char kMountProgram[] = "/bin/mount";

int UnknownDisk(const std::string& name) {
  std::fprintf(stderr, "Unable to find disk for %s\n", name.c_str());
  return 1;
}

// Runs mount(8) with its standard output on our standard error, so that
// nothing it says can pass for our verdict.
bool RunMount(const std::string& device, const std::string& folder) {
  const pid_t child = fork();
  if (child == 0) {
    dup2(STDERR_FILENO, STDOUT_FILENO);
    execl(kMountProgram, kMountProgram, device.c_str(), folder.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
  if (!RunMount(target->devicePath, folder) || MountsOf(*target, ReadMountTable()).empty()) {
    if (madeFolder) rmdir(folder.c_str());
    std::fprintf(stderr, "Volume on %s failed to mount\n", name.c_str());
    return 1;
  }
  std::printf("Volume on %s mounted at %s\n", name.c_str(), folder.c_str());
  return 0;
}
