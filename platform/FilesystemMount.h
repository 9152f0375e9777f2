// Mounts the file system held in an image file, read-only or read-write,
// with what the system provides.  On Linux: the kernel's driver through a
// loop device that clears itself when the file system is unmounted, or
// else the FUSE driver that reads the file (ntfs-3g and fusefat directly,
// exfat-fuse, which as root wants a block device, through a loop device of
// its own), each mounting in a folder of root's from which the mount is
// moved onto the mount point.  On macOS: the file attached as a raw disk image, mounted by
// macOS's own driver.
#ifndef ZQ_PLATFORM_FILESYSTEMMOUNT_H_
#define ZQ_PLATFORM_FILESYSTEMMOUNT_H_

#include <sys/types.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/Mounts.h"
#include "util/FilesystemType.h"

namespace platform {

// A program run to its end: its exit status and what it wrote on its
// standard output and standard error.
struct ProgramOutcome {
  int status = 0;
  std::string output;
  std::string errors;
};

// Runs `program` with `arguments` to its end.  The mounter passes the
// system's task runner, so that every child is started the one way.
using ProgramRunner = std::function<ProgramOutcome(const std::string& program, const std::vector<std::string>& arguments)>;

struct Ownership {
  uid_t uid = 0;
  gid_t gid = 0;
  mode_t umask = 0222;
};

// Readies the staging root (Folders.h), which the caller has made and
// checked to be root's alone, for MountFilesystem, before anything is
// mounted in it.  False with the reason in *error.
bool PrepareStagingRoot(std::string* error);

// Tries each driver for `type` in turn, each step a program `run` runs,
// until one has mounted `image` on the held folder `mountPoint`, read-only
// when `readOnly` says so and otherwise read-write.  Returns the mount's id
// in the mount table, or -1 with what each driver said in *error; a mount
// that did not land on the held folder is taken away again at once.
int MountFilesystem(const ProgramRunner& run, FilesystemType type, const std::string& image, const HeldFolder& mountPoint,
                    const Ownership& ownership, bool readOnly, std::string* error);

// Lets go of what MountFilesystem set up to read `image`, once the file
// system is unmounted.
void ReleaseFilesystemImage(const ProgramRunner& run, const std::string& image);

}  // namespace platform

#endif  // ZQ_PLATFORM_FILESYSTEMMOUNT_H_
