#include <sys/sysmacros.h>

#include <fstream>

#include "platform/Fuse.h"
#include "platform/Mounts.h"

namespace platform {

std::vector<FuseBackend> FuseBackends(const std::string&) { return {{"FUSE", ""}}; }

std::string FuseMountAdvice() { return "is the fuse module loaded and /dev/fuse there?"; }

bool SetFuseReadAhead(int mountId, unsigned kilobytes) {
  for (const MountEntry& mount : ReadMountTable()) {
    if (mount.id != mountId) continue;
    std::ofstream setting("/sys/class/bdi/" + std::to_string(major(mount.device)) + ":" +
                          std::to_string(minor(mount.device)) + "/read_ahead_kb");
    setting << kilobytes;
    setting.flush();
    return static_cast<bool>(setting);
  }
  return false;
}

}  // namespace platform
