// The volume's file becomes a disk through hdiutil, without a mount, and
// mount(8) mounts that disk at the mount point, so that macOS's own drivers
// read NTFS, exFAT and FAT; a read-only mount is read-only at both steps.
#include <sys/mount.h>

#include <map>
#include <mutex>
#include <vector>

#include "platform/FilesystemMount.h"
#include "platform/Mounts.h"
#include "util/HdiutilAttach.h"

namespace platform {
namespace {

std::mutex attachedMutex;
std::map<std::string, std::string> attachedDisks;  // image -> /dev/diskN

std::string Said(const ProgramOutcome& outcome) { return outcome.errors + outcome.output; }

void Detach(const ProgramRunner& run, const std::string& disk) { run("/usr/bin/hdiutil", {"detach", disk}); }

// mount(8)'s names for the drivers macOS ships.
const char* MountType(FilesystemType type) {
  switch (type) {
    case FilesystemType::kNtfs: return "ntfs";
    case FilesystemType::kExfat: return "exfat";
    case FilesystemType::kFat: return "msdos";
    case FilesystemType::kUnknown: break;
  }
  return "";
}

}  // namespace

// mount(8) takes no owner or permission bits of its own, so `ownership` is
// what the file system driver gives.
bool PrepareStagingRoot(std::string*) { return true; }

int MountFilesystem(const ProgramRunner& run, FilesystemType type, const std::string& image, const HeldFolder& mountPoint,
                    const Ownership&, bool readOnly, std::string* error) {
  std::vector<std::string> attachArguments = {"attach", "-plist", "-imagekey", "diskimage-class=CRawDiskImage", "-nomount"};
  if (readOnly) attachArguments.push_back("-readonly");
  attachArguments.push_back(image);
  const ProgramOutcome attach = run("/usr/bin/hdiutil", attachArguments);
  std::string unreadable;
  // The image has no partition map, so its whole disk holds the file system.
  const std::string disk = AttachedWholeDisk(attach.output, &unreadable);
  if (attach.status != 0 || disk.empty()) {
    *error = "hdiutil attach: " + (attach.status != 0 ? Said(attach) : unreadable);
    return -1;
  }
  // nosuid and nodev are given with the mount itself, as mount(8) documents
  // them, so no later step can fail and leave a mount without them.
  // diskutil, which takes no mount flags, is not used.  Whether mount(8)
  // reaches the user-space exFAT and FAT drivers of macOS 14 and later
  // without -F is not documented.
  const ProgramOutcome mount = run("/sbin/mount", {"-t", MountType(type), "-o", readOnly ? "nosuid,nodev,rdonly" : "nosuid,nodev",
                                                   disk, MountTarget(mountPoint)});
  // mount(8) takes only a path, which the user who owns the mount point's
  // folder may have pointed elsewhere since it was checked, and macOS has
  // no path that names an open folder.  So the mount counts only if it lies
  // on the held folder; any mount of the disk elsewhere goes at once.
  const int mountId = MountIdOn(mountPoint);
  if (mount.status != 0 || mountId < 0) {
    *error = "mount of the " + std::string(FilesystemName(type)) + " file system: " + Said(mount);
    for (const MountEntry& stray : ReadMountTable()) {
      if (stray.source != disk) continue;
      unmount(stray.mountPoint.c_str(), MNT_FORCE);
      *error += "it landed on " + stray.mountPoint + " and not on the folder " + mountPoint.path +
                " that was checked, and was unmounted again\n";
    }
    Detach(run, disk);
    return -1;
  }
  std::lock_guard<std::mutex> lock(attachedMutex);
  attachedDisks[image] = disk;
  return mountId;
}

void ReleaseFilesystemImage(const ProgramRunner& run, const std::string& image) {
  std::string disk;
  {
    std::lock_guard<std::mutex> lock(attachedMutex);
    auto found = attachedDisks.find(image);
    if (found == attachedDisks.end()) return;
    disk = found->second;
    attachedDisks.erase(found);
  }
  Detach(run, disk);
}

}  // namespace platform
