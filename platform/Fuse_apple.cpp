// FUSE mounts through macFUSE's libfuse 2: a channel from fuse_mount, a
// session that reads it.
#include <fuse_lowlevel.h>

#include <cerrno>

#include "platform/Fuse.h"

namespace platform {

struct FuseMount {
  std::string mountPoint;
  fuse_chan* channel = nullptr;
  fuse_session* session = nullptr;
};

FuseMount* MountFuse(const std::string& mountPoint, const std::string& options, const fuse_lowlevel_ops& operations,
                     void* userData, std::string* error) {
  const char* argv[] = {"zq-mounter", "-o", options.c_str()};
  fuse_args arguments = FUSE_ARGS_INIT(3, const_cast<char**>(argv));
  auto* mount = new FuseMount{mountPoint};
  mount->channel = fuse_mount(mountPoint.c_str(), &arguments);
  if (mount->channel != nullptr)
    mount->session = fuse_lowlevel_new(&arguments, &operations, sizeof operations, userData);
  // Reading the options replaced them with copies of the library's own.
  fuse_opt_free_args(&arguments);
  if (mount->channel == nullptr) {
    *error = "macFUSE could not mount " + mountPoint + " (is macFUSE installed?)";
  } else if (mount->session == nullptr) {
    *error = "the FUSE session could not be made";
  } else {
    fuse_session_add_chan(mount->session, mount->channel);
    return mount;
  }
  UnmountFuse(mount);
  return nullptr;
}

int ServeFuse(FuseMount* mount) { return fuse_session_loop_mt(mount->session) < 0 ? EIO : 0; }

void UnmountFuse(FuseMount* mount) {
  if (mount->session != nullptr) {
    fuse_session_remove_chan(mount->channel);
    fuse_session_destroy(mount->session);
  }
  if (mount->channel != nullptr) fuse_unmount(mount->mountPoint.c_str(), mount->channel);
  delete mount;
}

// Apple documents no per-mount read-ahead setting, and macFUSE names none in
// its headers, so the kernel keeps its own.
bool SetFuseReadAhead(const std::string&, unsigned) { return false; }

}  // namespace platform
