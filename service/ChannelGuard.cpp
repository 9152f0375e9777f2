#include "service/ChannelGuard.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/Users.h"
#include "system/CDevLogs.h"
#include "system/OwnPath.h"

namespace {

const char* KindOf(mode_t mode) {
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISLNK(mode)) return "a symbolic link";
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISREG(mode)) return "a file";
  return "a special file";
}

// Gives the FIFO opened by `fd` to `owner` alone: 0 or an errno value.
int GiveFifo(int fd, uid_t owner) {
  struct stat info;
  if (fstat(fd, &info) != 0) return errno;
  if (!S_ISFIFO(info.st_mode)) return EINVAL;
  if (fchown(fd, owner, static_cast<gid_t>(-1)) != 0 || fchmod(fd, 0600) != 0) return errno;
  return 0;
}

// Opens the FIFO at `name` itself, never what a link there points at.
int OpenFifoAt(int folder, const char* name) {
  return openat(folder, name, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
}

// Gives root's FIFO at `path`, which only root could open so far, to
// `owner`, through a descriptor, so that a link put in its place meanwhile
// changes nothing else.
int Restrict(const std::string& path, uid_t owner) {
  const int fd = OpenFifoAt(AT_FDCWD, path.c_str());
  if (fd < 0) return errno;
  const int error = GiveFifo(fd, owner);
  close(fd);
  return error;
}

// A new FIFO of `owner` alone, made at `name`.
MakeOwnFile FifoOf(uid_t owner) {
  return [owner](int folder, const char* name) {
    if (mkfifoat(folder, name, 0600) != 0) return errno;
    const int fd = OpenFifoAt(folder, name);
    if (fd < 0) return errno;
    const int error = GiveFifo(fd, owner);
    close(fd);
    return error;
  };
}

}  // namespace

ChannelGuard::ChannelGuard(const std::vector<std::string>& paths) {
  for (const std::string& path : paths) channels_.push_back({path, std::string()});
}

void ChannelGuard::Check() {
  const uid_t owner = platform::ConsoleUser();
  for (Channel& channel : channels_) Keep(&channel, owner);
}

void ChannelGuard::Keep(Channel* channel, uid_t owner) {
  const char* path = channel->path.c_str();
  struct stat info;
  const bool found = lstat(path, &info) == 0;
  if (!found && errno != ENOENT) return;
  std::string held;
  int error = 0;
  // A FIFO that others could open may be held open by one of them, and is
  // replaced rather than narrowed.
  if (found && S_ISFIFO(info.st_mode) && (info.st_mode & 07777) == 0600 && (info.st_uid == owner || info.st_uid == 0)) {
    if (info.st_uid == owner) return;
    error = Restrict(channel->path, owner);
  } else {
    if (found) held = std::string(KindOf(info.st_mode)) + " of uid " + std::to_string(info.st_uid);
    error = PutOwnFileAt(channel->path, FifoOf(owner));
  }
  if (error == 0) {
    if (!held.empty())
      CDevLogs::Instance()->WriteLog("channel %s held %s; it is replaced by the service's FIFO", path, held.c_str());
    else if (!channel->failure.empty())
      CDevLogs::Instance()->WriteLog("channel %s is the service's FIFO again", path);
    channel->failure.clear();
    return;
  }
  const std::string failure = std::strerror(error);
  if (failure == channel->failure) return;
  channel->failure = failure;
  CDevLogs::Instance()->WriteLog("channel %s%s%s: cannot make it the service's FIFO: %s; tried again every second",
                                 path, held.empty() ? "" : " holds ", held.c_str(), failure.c_str());
}
