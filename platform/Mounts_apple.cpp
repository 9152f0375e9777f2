// Mounts on macOS: getmntinfo for the mount table, which is looked at once
// a second, DiskArbitration for a disk's volume, and forced unmounts.
#include "platform/Mounts.h"

#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

namespace platform {
namespace {

// Releases a CoreFoundation object at the end of a scope.
template <typename T>
class CFHolder {
 public:
  explicit CFHolder(T object) : object_(object) {}
  ~CFHolder() {
    if (object_ != nullptr) CFRelease(object_);
  }
  CFHolder(const CFHolder&) = delete;
  CFHolder& operator=(const CFHolder&) = delete;
  T get() const { return object_; }

 private:
  T object_;
};

// Apple documents f_fsid only as the file system's id, not whether two
// mounts may share one; its first word is taken as the mount's id, and a
// mount elsewhere with the same id counts as still mounted.
int IdOf(const struct statfs& info) { return info.f_fsid.val[0]; }

bool AnyStopSignalPending(const sigset_t& stopSignals) {
  sigset_t pending;
  sigpending(&pending);
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(&stopSignals, signal) == 1 && sigismember(&pending, signal) == 1) return true;
  }
  return false;
}

}  // namespace

// getmntinfo lists mounts in the order they were made, so a later mount at
// the same point lies over the earlier one.  The mounter names its macFUSE
// mounts by the raw device it was given.
std::vector<MountEntry> ReadMountTable() {
  struct statfs* table = nullptr;
  const int count = getmntinfo(&table, MNT_NOWAIT);
  std::vector<MountEntry> mounts;
  for (int i = 0; i < count; ++i) {
    MountEntry entry;
    entry.id = IdOf(table[i]);
    entry.mountPoint = table[i].f_mntonname;
    entry.type = table[i].f_fstypename;
    entry.source = table[i].f_mntfromname;
    entry.readOnly = (table[i].f_flags & MNT_RDONLY) != 0;
    const bool fuse = entry.type == "macfuse" || entry.type == "osxfuse";
    entry.mounterServes = fuse && entry.source.rfind("/dev/", 0) == 0;
    for (const MountEntry& below : mounts) {
      if (below.mountPoint == entry.mountPoint) entry.parentId = below.id;
    }
    mounts.push_back(entry);
  }
  return mounts;
}

int MountIdAt(const std::string& path) {
  struct statfs info;
  if (statfs(path.c_str(), &info) != 0 || path != info.f_mntonname) return -1;
  return IdOf(info);
}

std::string MountTarget(const HeldFolder& held) { return held.path; }

// macOS has no path that names an open folder, so the folder's name in the
// held parent is looked up again: what it finds counts only when it is the
// root of a mount made over the held folder's own path.
int MountIdOn(const HeldFolder& held) {
  const int top = openat(held.parent, held.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (top < 0) return -1;
  struct stat below, root;
  struct statfs mounted;
  char heldPath[MAXPATHLEN], rootPath[MAXPATHLEN];
  const bool onHeld = fstat(held.folder, &below) == 0 && fstat(top, &root) == 0 && fstatfs(top, &mounted) == 0 &&
                      fcntl(held.folder, F_GETPATH, heldPath) == 0 && fcntl(top, F_GETPATH, rootPath) == 0 &&
                      root.st_dev != below.st_dev && std::strcmp(rootPath, mounted.f_mntonname) == 0 &&
                      std::strcmp(heldPath, mounted.f_mntonname) == 0;
  close(top);
  return onHeld ? IdOf(mounted) : -1;
}

void DetachMountOn(const HeldFolder& held, int mountId) {
  if (mountId < 0 || MountIdOn(held) != mountId) return;
  char path[MAXPATHLEN];
  if (fcntl(held.folder, F_GETPATH, path) == 0) unmount(path, MNT_FORCE);
}

std::optional<std::string> VolumeMountPath(const std::string& bsdName) {
  CFHolder<DASessionRef> session(DASessionCreate(kCFAllocatorDefault));
  if (session.get() == nullptr) return std::nullopt;
  CFHolder<DADiskRef> disk(DADiskCreateFromBSDName(kCFAllocatorDefault, session.get(), bsdName.c_str()));
  if (disk.get() == nullptr) return std::nullopt;
  CFHolder<CFDictionaryRef> description(DADiskCopyDescription(disk.get()));
  if (description.get() == nullptr) return std::nullopt;
  const void* volumePath = CFDictionaryGetValue(description.get(), kDADiskDescriptionVolumePathKey);
  if (volumePath == nullptr || CFGetTypeID(volumePath) != CFURLGetTypeID()) return std::nullopt;
  char path[PATH_MAX];
  if (!CFURLGetFileSystemRepresentation(static_cast<CFURLRef>(volumePath), true, reinterpret_cast<UInt8*>(path),
                                        sizeof path))
    return std::nullopt;
  return std::string(path);
}

int Unmount(const std::string& path) { return unmount(path.c_str(), 0) == 0 ? 0 : errno; }

void DetachMount(const std::string& path) { unmount(path.c_str(), MNT_FORCE); }

void WaitForUnmountOrStop(int mountId, int wakeFd, const sigset_t& stopSignals) {
  pollfd woken = {wakeFd, POLLIN, 0};
  while (HasMount(ReadMountTable(), mountId) && !AnyStopSignalPending(stopSignals)) {
    if (poll(&woken, 1, 1000) < 0 && errno != EINTR) break;
    if (woken.revents != 0) break;
  }
}

}  // namespace platform
