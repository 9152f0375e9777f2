#include "mounter/CMountPoint.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bitlocker/MountPoint.h"

namespace {

// The last component of a checked path, which may end in slashes.
std::string LastName(const std::string& path) {
  const size_t end = path.find_last_not_of('/');
  if (end == std::string::npos) return std::string();
  const size_t start = path.rfind('/', end);
  return path.substr(start + 1, end - start);
}

}  // namespace

std::unique_ptr<CMountPoint> CMountPoint::Open(int parent, const std::string& path, uid_t consoleUser, std::string* error) {
  std::unique_ptr<CMountPoint> mountPoint(new CMountPoint);
  platform::HeldFolder& held = mountPoint->held_;
  held.parent = parent;
  held.name = LastName(path);
  held.path = path;
  const std::string named = "the mount point " + path;
  const bool made = mkdirat(parent, held.name.c_str(), 0700) == 0;
  if (!made && errno != EEXIST) {
    *error = "cannot make " + named + ": " + std::strerror(errno);
    return nullptr;
  }
  held.folder = openat(parent, held.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  struct stat info;
  if (held.folder < 0 || fstat(held.folder, &info) != 0) {
    *error = named + " was changed after it was checked: " + std::strerror(errno);
    return nullptr;
  }
  // A folder just made is root's until it is given away below; any other
  // owner means another folder took its place, one the user may keep.
  const bool ownerAllowed = made ? info.st_uid == 0 : info.st_uid == 0 || info.st_uid == consoleUser;
  if (!ownerAllowed || !IsEmptyFolder(held.folder)) {
    *error = named + " was changed after it was checked";
    return nullptr;
  }
  mountPoint->made_ = made;
  mountPoint->device_ = info.st_dev;
  mountPoint->inode_ = info.st_ino;
  if (made && fchown(held.folder, consoleUser, static_cast<gid_t>(-1)) != 0) {
    *error = "cannot give " + named + " to the user at the machine: " + std::strerror(errno);
    mountPoint->RemoveIfMade();
    return nullptr;
  }
  return mountPoint;
}

CMountPoint::~CMountPoint() {
  for (int fd : {held_.folder, held_.parent})
    if (fd >= 0) close(fd);
}

void CMountPoint::RemoveIfMade() {
  struct stat info;
  if (made_ && fstatat(held_.parent, held_.name.c_str(), &info, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(info.st_mode) &&
      info.st_dev == device_ && info.st_ino == inode_)
    unlinkat(held_.parent, held_.name.c_str(), AT_REMOVEDIR);
  made_ = false;
}
