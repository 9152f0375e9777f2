// One FUSE mount and its session, at the API level each platform's FUSE
// ships: libfuse 3 on Linux, macFUSE's libfuse 2 on macOS.  The request
// handlers are the same on both (mounter/CVolumeFuseServer.h).
#ifndef ZQ_PLATFORM_FUSE_H_
#define ZQ_PLATFORM_FUSE_H_

#include <string>

struct fuse_lowlevel_ops;

namespace platform {

struct FuseMount;

// Mounts at `mountPoint` with the comma-separated `options` and makes the
// session that answers with `operations`, passing them `userData`.  Null
// with the reason in *error; nothing is left mounted then.
FuseMount* MountFuse(const std::string& mountPoint, const std::string& options, const fuse_lowlevel_ops& operations,
                     void* userData, std::string* error);

// Serves requests on several threads until the mount goes away.  Returns 0,
// or an error number when serving failed.
int ServeFuse(FuseMount* mount);

// Unmounts if still mounted, and frees `mount`.
void UnmountFuse(FuseMount* mount);

// Makes the kernel read ahead `kilobytes` at a time on the mount at
// `mountPoint`; false where it cannot be told.
bool SetFuseReadAhead(const std::string& mountPoint, unsigned kilobytes);

}  // namespace platform

#endif  // ZQ_PLATFORM_FUSE_H_
