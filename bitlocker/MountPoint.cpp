#include "bitlocker/MountPoint.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/Folders.h"

namespace {

std::vector<std::string> Components(const std::string& path) {
  std::vector<std::string> parts;
  size_t start = 1;
  while (start <= path.size()) {
    size_t end = path.find('/', start);
    if (end == std::string::npos) end = path.size();
    if (end > start) parts.push_back(path.substr(start, end - start));
    start = end + 1;
  }
  return parts;
}

bool IsBelowAVolumesFolder(const std::vector<std::string>& parts) {
  for (const std::string& folder : platform::VolumesFolders()) {
    const std::vector<std::string> prefix = Components(folder);
    if (parts.size() > prefix.size() && std::equal(prefix.begin(), prefix.end(), parts.begin())) return true;
  }
  return false;
}

class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  void Reset(int fd) {
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
  }
  int get() const { return fd_; }
  int Release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// Whether the folder `name` in `parent` holds nothing.
bool IsEmptyFolderIn(int parent, const std::string& name) {
  const Descriptor folder(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  return folder.get() >= 0 && IsEmptyFolder(folder.get());
}

}  // namespace

bool IsEmptyFolder(int folder) {
  const int copy = dup(folder);
  DIR* entries = copy < 0 ? nullptr : fdopendir(copy);
  if (entries == nullptr) {
    if (copy >= 0) close(copy);
    return false;
  }
  rewinddir(entries);  // the copy shares its place in the folder with `folder`
  bool empty = true;
  while (const dirent* entry = readdir(entries)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      empty = false;
      break;
    }
  }
  closedir(entries);
  return empty;
}

std::string MountPointRefusal(const std::string& path, uid_t consoleUser, MountedFolder mounted, int* parent) {
  if (parent != nullptr) *parent = -1;
  const std::string named = "the mount point " + path;
  if (path.empty() || path[0] != '/') return named + " is not an absolute path";
  const std::vector<std::string> parts = Components(path);
  for (const std::string& part : parts)
    if (part == "." || part == "..") return named + " holds \".\" or \"..\"";
  if (!IsBelowAVolumesFolder(parts)) {
    std::string folders;
    for (const std::string& folder : platform::VolumesFolders()) folders += (folders.empty() ? "" : ", ") + folder;
    return named + " is not below " + folders;
  }

  Descriptor folder(open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct stat above;
  if (folder.get() < 0 || fstat(folder.get(), &above) != 0) return named + ": the root cannot be opened";
  for (size_t i = 0; i + 1 < parts.size(); ++i) {
    const int next = openat(folder.get(), parts[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      return named + ": " + parts[i] +
             (errno == ENOENT ? " does not exist" : " is a symbolic link or no folder");
    }
    folder.Reset(next);
    fstat(folder.get(), &above);
  }

  struct stat info;
  if (fstatat(folder.get(), parts.back().c_str(), &info, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno != ENOENT) return named + ": " + std::strerror(errno);
    if (parent != nullptr) *parent = folder.Release();
    return std::string();
  }
  if (S_ISLNK(info.st_mode)) return named + " is a symbolic link";
  if (!S_ISDIR(info.st_mode)) return named + " is not a folder";
  if (info.st_uid != 0 && info.st_uid != consoleUser) return named + " belongs to another user";
  const bool isMountRoot = info.st_dev != above.st_dev;
  if (!(isMountRoot && mounted == MountedFolder::kReleasedFirst) && !IsEmptyFolderIn(folder.get(), parts.back()))
    return named + " is not empty";
  if (parent != nullptr) *parent = folder.Release();
  return std::string();
}
