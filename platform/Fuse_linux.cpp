// FUSE mounts through libfuse 3.
#include <fuse_lowlevel.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <fstream>

#include "platform/Fuse.h"

namespace platform {
namespace {

constexpr unsigned kMostThreads = 16;

}  // namespace

struct FuseMount {
  fuse_session* session = nullptr;
  bool mounted = false;
};

FuseMount* MountFuse(const std::string& mountPoint, const std::string& options, const fuse_lowlevel_ops& operations,
                     void* userData, std::string* error) {
  const char* argv[] = {"zq-mounter", "-o", options.c_str()};
  fuse_args arguments = FUSE_ARGS_INIT(3, const_cast<char**>(argv));
  auto* mount = new FuseMount;
  mount->session = fuse_session_new(&arguments, &operations, sizeof operations, userData);
  // Reading the options replaced them with copies of the library's own.
  fuse_opt_free_args(&arguments);
  if (mount->session == nullptr) {
    *error = "the FUSE session could not be made";
  } else if (fuse_session_mount(mount->session, mountPoint.c_str()) != 0) {
    *error = "FUSE could not mount " + mountPoint + " (is /dev/fuse there?)";
  } else {
    mount->mounted = true;
    return mount;
  }
  UnmountFuse(mount);
  return nullptr;
}

int ServeFuse(FuseMount* mount) {
  fuse_loop_config* config = fuse_loop_cfg_create();
  fuse_loop_cfg_set_max_threads(config, kMostThreads);
  const int result = fuse_session_loop_mt(mount->session, config);
  fuse_loop_cfg_destroy(config);
  return result < 0 ? -result : 0;
}

void UnmountFuse(FuseMount* mount) {
  if (mount->session != nullptr) {
    if (mount->mounted) fuse_session_unmount(mount->session);
    fuse_session_destroy(mount->session);
  }
  delete mount;
}

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
