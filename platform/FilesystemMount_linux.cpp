#include "platform/FilesystemMount.h"

#include <cstdio>
#include <optional>
#include <vector>

#include "platform/Mounts.h"

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

int MountFilesystem(const ProgramRunner& run, FilesystemType type, const std::string& image, const std::string& mountPoint,
                    const Ownership& ownership, bool readOnly, std::string* error) {
  error->clear();
  const int before = MountIdAt(mountPoint);
  for (const Driver& driver : DriversFor(type, readOnly)) {
    const ProgramOutcome outcome = run(driver.program, ArgumentsFor(driver, image, mountPoint, ownership, readOnly));
    // Judged by the mount table: some drivers say nothing and some exit 0
    // on failure.
    const int after = MountIdAt(mountPoint);
    if (after >= 0 && after != before) return after;
    *error += std::string(driver.type ? driver.type : driver.program) + ": " +
              outcome.errors + outcome.output;
    if (!error->empty() && error->back() != '\n') *error += '\n';
  }
  if (error->empty()) *error = std::string("no driver for ") + FilesystemName(type) + "\n";
  return -1;
}

// The loop devices clear themselves when the file system is unmounted.
void ReleaseFilesystemImage(const ProgramRunner&, const std::string&) {}

}  // namespace platform
