#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <fstream>

#include "platform/Fuse.h"

namespace platform {

std::vector<FuseBackend> FuseBackends(const std::string&) { return {{"FUSE", ""}}; }

std::string FuseMountAdvice() { return "is the fuse module loaded and /dev/fuse there?"; }

bool SetFuseReadAhead(const std::string& mountPoint, unsigned kilobytes) {
  struct stat info;
  if (stat(mountPoint.c_str(), &info) != 0) return false;
  std::ofstream setting("/sys/class/bdi/" + std::to_string(major(info.st_dev)) + ":" +
                        std::to_string(minor(info.st_dev)) + "/read_ahead_kb");
  setting << kilobytes;
  setting.flush();
  return static_cast<bool>(setting);
}

}  // namespace platform
