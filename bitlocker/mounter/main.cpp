// zq-mounter: unlocks a BitLocker volume and mounts it read-only through
// FUSE, then returns to its caller while a background process serves it.
//
//   zq-mounter RAW_DEVICE MOUNT_POINT OPTIONS CREDENTIAL
//
// The exit status is one of MounterStatus.h.  `umount MOUNT_POINT` ends
// everything the mount made, the background process included.
#include <sys/stat.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "CCallerReport.h"
#include "CMountSession.h"
#include "MountRequest.h"
#include "MounterStatus.h"
#include "PackageVolume.h"

namespace {

constexpr char kUsage[] =
    "usage: zq-mounter RAW_DEVICE MOUNT_POINT OPTIONS CREDENTIAL\n"
    "  OPTIONS: comma-separated; raw, uid=N, gid=N, umask=OOO\n";

// The mount point as the mount table will show it; made when missing.
bool ResolveMountPoint(std::string* mountPoint, std::string* error) {
  if (mkdir(mountPoint->c_str(), 0755) != 0 && errno != EEXIST) {
    *error = "cannot make the mount point " + *mountPoint + ": " + std::strerror(errno);
    return false;
  }
  char resolved[PATH_MAX];
  struct stat info;
  if (realpath(mountPoint->c_str(), resolved) == nullptr || stat(resolved, &info) != 0 || !S_ISDIR(info.st_mode)) {
    *error = "the mount point " + *mountPoint + " is not a folder";
    return false;
  }
  *mountPoint = resolved;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  MountRequest request;
  std::string error;
  if (!ParseMountRequest(std::vector<std::string>(argv + 1, argv + argc), &request, &error) ||
      !ResolveMountPoint(&request.mountPoint, &error)) {
    std::fprintf(stderr, "zq-mounter: %s\n%s", error.c_str(), kUsage);
    return kMounterUsage;
  }

  CCallerReport caller = CCallerReport::Detach();
  std::unique_ptr<IVolume> volume;
  const int opened = OpenPackageVolume(request.rawDevice, request.credential, &volume);
  std::fill(request.credential.begin(), request.credential.end(), '\0');
  if (opened != bitlocker::kOk) {
    caller.Send(opened, std::string(DescribeMounterStatus(opened)) + ": " + request.rawDevice);
    return opened;
  }

  CMountSession::BlockStopSignals();
  CMountSession session(std::move(volume), request);
  std::string message;
  const int status = session.Start(&message);
  caller.Send(status, message);
  if (status != bitlocker::kOk) return status;
  session.ServeUntilUnmounted();
  return bitlocker::kOk;
}
