// diskutil for Linux: unmounts and mounts disks by device name, device path
// or mount point, with the messages the service judges by.
//
//   diskutil unmount NAME
//   diskutil mount NAME      (mounts at /media/<device name>)
#include <cstdio>
#include <string>

#include "DiskCommands.h"

namespace {

constexpr char kMediaRoot[] = "/media";

}  // namespace

int main(int argc, char** argv) {
  const std::string verb = argc == 3 ? argv[1] : "";
  if (verb == "unmount") return UnmountDisk(argv[2]);
  if (verb == "mount") return MountDisk(argv[2], kMediaRoot);
  std::fprintf(stderr, "usage: diskutil unmount NAME\n       diskutil mount NAME\n");
  return 2;
}
