#include "platform/FilesystemMount.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <vector>

#include "platform/Folders.h"

namespace platform {
namespace {

struct Driver {
  const char* program;        // started with its arguments below
  const char* type;           // for mount(8), or null for a FUSE program of its own
  const char* writeOption;    // what asks the driver to write; "ro" asks it not to
  const char* extraOptions;   // besides those, nosuid, nodev and the ownership
};

// A loop device that mount(8) makes is read-write unless "ro" is given.
std::vector<Driver> DriversFor(FilesystemType type, bool readOnly) {
  switch (type) {
    case FilesystemType::kNtfs: {
      // ntfs-3g has written NTFS the longest; the kernel's driver, where
      // there is one, reads it faster.
      const Driver kernel{"/bin/mount", "ntfs3", "rw", "loop"}, ntfs3g{"/bin/mount", "ntfs-3g", "rw", "allow_other"};
      return readOnly ? std::vector<Driver>{kernel, ntfs3g} : std::vector<Driver>{ntfs3g, kernel};
    }
    case FilesystemType::kExfat:
      return {{"/bin/mount", "exfat", "rw", "loop"}, {"/bin/mount", "exfat-fuse", "rw", "loop,allow_other"}};
    case FilesystemType::kFat:
      return {{"/bin/mount", "vfat", "rw", "loop"}, {"/usr/bin/fusefat", nullptr, "rw+", "allow_other"}};
    case FilesystemType::kUnknown: break;
  }
  return {};
}

std::string OwnershipOptions(const Ownership& ownership) {
  char umask[8];
  std::snprintf(umask, sizeof umask, "%03o", static_cast<unsigned>(ownership.umask));
  return "uid=" + std::to_string(ownership.uid) + ",gid=" + std::to_string(ownership.gid) + ",umask=" + umask;
}

std::vector<std::string> ArgumentsFor(const Driver& driver, const std::string& image, const std::string& mountPoint,
                                      const Ownership& ownership, bool readOnly) {
  // Set-uid bits and device nodes on the volume must grant nothing here.
  const std::string options = std::string(readOnly ? "ro" : driver.writeOption) + ",nosuid,nodev," +
                              driver.extraOptions + "," + OwnershipOptions(ownership);
  if (driver.type != nullptr) return {"-t", driver.type, "-o", options, image, mountPoint};
  return {"-o", options + ",fsname=" + image, image, mountPoint};
}

}  // namespace

// A mount can be moved only out of a mount that is not shared, and systemd
// makes every mount shared: the staging root becomes a private mount of
// its own, once.  A bind made later would hide the mounts already in it.
bool PrepareStagingRoot(std::string* error) {
  const bool ownMount = TopMountAt(ReadMountTable(), kStagingRoot).has_value();
  if ((ownMount || mount(kStagingRoot, kStagingRoot, nullptr, MS_BIND, nullptr) == 0) &&
      mount(nullptr, kStagingRoot, nullptr, MS_PRIVATE, nullptr) == 0)
    return true;
  *error = std::string("the staging root ") + kStagingRoot + " cannot be made a private mount: " + std::strerror(errno);
  return false;
}

// The drivers take a path, and exfat-fuse and fusefat (libfuse 2) turn even
// /proc/PID/fd/N back into a path by name before they mount, which the
// user who owns the mount point's folder could by then have pointed
// anywhere.  So each driver mounts in a fresh folder of the staging root,
// which root alone can change, and the mount is moved from there onto the
// held folder through its descriptor.
int MountFilesystem(const ProgramRunner& run, FilesystemType type, const std::string& image, const HeldFolder& mountPoint,
                    const Ownership& ownership, bool readOnly, std::string* error) {
  error->clear();
  std::string staged = std::string(kStagingRoot) + "/mount-XXXXXX";
  if (mkdtemp(staged.data()) == nullptr) {
    *error = "no folder to mount in under " + std::string(kStagingRoot) + ": " + std::strerror(errno) + "\n";
    return -1;
  }
  int mounted = -1;
  for (const Driver& driver : DriversFor(type, readOnly)) {
    const ProgramOutcome outcome = run(driver.program, ArgumentsFor(driver, image, staged, ownership, readOnly));
    // Judged by the mount table: some drivers say nothing and some exit 0
    // on failure.
    if (MountIdAt(staged) >= 0) {
      if (mount(staged.c_str(), MountTarget(mountPoint).c_str(), nullptr, MS_MOVE, nullptr) == 0) {
        mounted = MountIdOn(mountPoint);
        break;
      }
      *error += "the mount could not be moved onto " + mountPoint.path + ": " + std::strerror(errno) + "\n";
      DetachMount(staged);
      break;
    }
    *error += std::string(driver.type ? driver.type : driver.program) + ": " + outcome.errors + outcome.output;
    if (!error->empty() && error->back() != '\n') *error += '\n';
  }
  rmdir(staged.c_str());
  if (mounted < 0 && error->empty()) *error = std::string("no driver for ") + FilesystemName(type) + "\n";
  return mounted;
}

// The loop devices clear themselves when the file system is unmounted.
void ReleaseFilesystemImage(const ProgramRunner&, const std::string&) {}

}  // namespace platform
