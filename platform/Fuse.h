// What differs between the systems' FUSE: how a mount is asked of it, and
// how the kernel is tuned for one.  Both speak libfuse 3 (Linux's own,
// macFUSE's from 5.2 on), so the session that serves a mount is the same
// code on both (mounter/CFuseSession.h).
#ifndef ZQ_PLATFORM_FUSE_H_
#define ZQ_PLATFORM_FUSE_H_

#include <string>
#include <vector>

namespace platform {

// One way the system's FUSE can mount: the mount options that choose it,
// added to the mount's own, and its name for messages.
struct FuseBackend {
  std::string name;
  std::string options;
};

// The ways to try for a mount at `mountPoint`, best first.  Linux: the
// kernel's FUSE.  macOS: macFUSE's FSKit backend where the system has
// FSKit and the mount point lies in /Volumes, then its kernel extension.
std::vector<FuseBackend> FuseBackends(const std::string& mountPoint);

// What the person at the machine can do when no backend could mount.
std::string FuseMountAdvice();

// Makes the kernel read ahead `kilobytes` at a time on the mount
// `mountId`; false where it cannot be told.
bool SetFuseReadAhead(int mountId, unsigned kilobytes);

}  // namespace platform

#endif  // ZQ_PLATFORM_FUSE_H_
