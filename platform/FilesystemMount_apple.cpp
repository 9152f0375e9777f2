// The volume's file becomes a disk through hdiutil, without a mount, and
// diskutil mounts that disk at the mount point, so that macOS's own drivers
// read NTFS, exFAT and FAT; a read-only mount is read-only at both steps.
#include <map>
#include <mutex>
#include <sstream>
#include <vector>

#include "platform/FilesystemMount.h"
#include "platform/Mounts.h"

namespace platform {
namespace {

std::mutex attachedMutex;
std::map<std::string, std::string> attachedDisks;  // image -> /dev/diskN

// hdiutil's manual says attach prints the device nodes it made and gives
// no more of a format; the first /dev/disk word is taken as the whole disk,
// which holds the file system since the image has no partition map.
std::string WholeDisk(const std::string& output) {
  std::istringstream words(output);
  for (std::string word; words >> word;) {
    if (word.rfind("/dev/disk", 0) == 0) return word;
  }
  return "";
}

std::string Said(const ProgramOutcome& outcome) { return outcome.errors + outcome.output; }

void Detach(const ProgramRunner& run, const std::string& disk) { run("/usr/bin/hdiutil", {"detach", disk}); }

}  // namespace

// diskutil's mount takes no owner or permission bits, so `ownership` is
// what the file system driver gives; Apple documents no option for it.
int MountFilesystem(const ProgramRunner& run, FilesystemType type, const std::string& image, const std::string& mountPoint,
                    const Ownership&, bool readOnly, std::string* error) {
  std::vector<std::string> attachArguments = {"attach", "-imagekey", "diskimage-class=CRawDiskImage", "-nomount"};
  if (readOnly) attachArguments.push_back("-readonly");
  attachArguments.push_back(image);
  const ProgramOutcome attach = run("/usr/bin/hdiutil", attachArguments);
  const std::string disk = WholeDisk(attach.output);
  if (attach.status != 0 || disk.empty()) {
    *error = "hdiutil attach: " + Said(attach);
    return -1;
  }
  std::vector<std::string> mountArguments = {"mount"};
  if (readOnly) mountArguments.push_back("readOnly");
  mountArguments.insert(mountArguments.end(), {"-mountPoint", mountPoint, disk});
  const ProgramOutcome mount = run("/usr/sbin/diskutil", mountArguments);
  const int mountId = MountIdAt(mountPoint);
  if (mount.status != 0 || mountId < 0) {
    *error = "diskutil mount of the " + std::string(FilesystemName(type)) + " file system: " + Said(mount);
    Detach(run, disk);
    return -1;
  }
  // diskutil takes no mount flags; mount(8)'s -u changes those of a mount
  // in place, so set-uid bits and device nodes on the volume grant nothing.
  const ProgramOutcome restrict = run(
      "/sbin/mount", {"-u", "-o", readOnly ? "nosuid,nodev,rdonly" : "nosuid,nodev", mountPoint});
  if (restrict.status != 0) {
    *error = "mount -u -o nosuid,nodev: " + Said(restrict);
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
