#include "service/ChannelGuard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Users.h"
#include "system/CDevLogs.h"

namespace {

const char* KindOf(mode_t mode) {
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISLNK(mode)) return "a symbolic link";
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISREG(mode)) return "a file";
  return "a special file";
}

// Opens the FIFO at `path` itself, never what a link there points at; -1
// when the path holds no FIFO.
int OpenFifo(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  struct stat info;
  if (fd >= 0 && fstat(fd, &info) == 0 && S_ISFIFO(info.st_mode)) return fd;
  if (fd >= 0) close(fd);
  return -1;
}

// Gives the FIFO to `owner` alone, through a descriptor, so that a link
// put in its place meanwhile changes nothing else.
void Restrict(const std::string& path, uid_t owner) {
  const int fd = OpenFifo(path);
  if (fd < 0) return;
  if (fchown(fd, owner, static_cast<gid_t>(-1)) != 0 || fchmod(fd, 0600) != 0)
    CDevLogs::Instance()->WriteLog("channel %s: cannot give it to uid %u: %s", path.c_str(), owner,
                                   std::strerror(errno));
  close(fd);
}

// Takes away what lies at `path`.  A folder that is not empty is moved
// aside, since its contents are not ours to delete.
bool TakeAway(const std::string& path, const struct stat& info) {
  if (!S_ISDIR(info.st_mode)) return unlink(path.c_str()) == 0;
  if (rmdir(path.c_str()) == 0) return true;
  const std::string aside = path + ".refused." + std::to_string(getpid()) + "." + std::to_string(info.st_ino);
  return rename(path.c_str(), aside.c_str()) == 0;
}

}  // namespace

ChannelGuard::ChannelGuard(std::vector<std::string> paths) : paths_(std::move(paths)) {}

void ChannelGuard::Check() {
  const uid_t owner = platform::ConsoleUser();
  for (const std::string& path : paths_) Keep(path, owner);
}

void ChannelGuard::Keep(const std::string& path, uid_t owner) {
  struct stat info;
  if (lstat(path.c_str(), &info) == 0) {
    const bool ours = S_ISFIFO(info.st_mode) && (info.st_uid == owner || info.st_uid == 0);
    if (ours) {
      if (info.st_uid != owner || (info.st_mode & 07777) != 0600) Restrict(path, owner);
      return;
    }
    CDevLogs::Instance()->WriteLog("channel %s held %s of uid %u; it is replaced by the service's FIFO", path.c_str(),
                                   KindOf(info.st_mode), info.st_uid);
    if (!TakeAway(path, info)) {
      CDevLogs::Instance()->WriteLog("channel %s: cannot take it away: %s", path.c_str(), std::strerror(errno));
      return;
    }
  } else if (errno != ENOENT) {
    return;
  }
  if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) {
    CDevLogs::Instance()->WriteLog("channel %s: cannot make its FIFO: %s", path.c_str(), std::strerror(errno));
    return;
  }
  Restrict(path, owner);
}
