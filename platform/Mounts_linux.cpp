// Mounts on Linux: /proc/self/mountinfo, which wakes a poll on every
// change, and lazy unmounts.
#include "platform/Mounts.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace platform {
namespace {

bool IsOctalEscape(const std::string& field, size_t i) {
  if (field[i] != '\\' || i + 3 >= field.size()) return false;
  for (size_t k = i + 1; k <= i + 3; ++k)
    if (field[k] < '0' || field[k] > '7') return false;
  return true;
}

// Undoes the octal escapes of a mountinfo field ("\040" for a blank).
std::string UnescapeMountField(const std::string& field) {
  std::string text;
  for (size_t i = 0; i < field.size(); ++i) {
    if (IsOctalEscape(field, i)) {
      text += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      text += field[i];
    }
  }
  return text;
}

// One line: id, parent id, major:minor, root, mount point, options, any
// optional fields, "-", type, source, super options.
std::optional<MountEntry> ParseLine(const std::string& line) {
  std::istringstream fields(line);
  MountEntry entry;
  std::string number, field;
  if (!(fields >> entry.id >> entry.parentId >> number >> entry.root >> entry.mountPoint >> entry.options))
    return std::nullopt;
  while (fields >> field && field != "-") {
  }
  if (!(fields >> entry.type >> entry.source)) return std::nullopt;
  unsigned major = 0, minor = 0;
  if (std::sscanf(number.c_str(), "%u:%u", &major, &minor) != 2) return std::nullopt;
  entry.device = makedev(major, minor);
  entry.root = UnescapeMountField(entry.root);
  entry.mountPoint = UnescapeMountField(entry.mountPoint);
  entry.source = UnescapeMountField(entry.source);
  entry.readOnly = entry.options == "ro" || entry.options.rfind("ro,", 0) == 0;
  entry.mounterServes = entry.type == "fuse.zq-mounter";
  return entry;
}

// The id of the mount that the open file lies on, as /proc tells it.
int MountIdOfDescriptor(int fd) {
  std::ifstream info("/proc/self/fdinfo/" + std::to_string(fd));
  for (std::string line; std::getline(info, line);) {
    if (line.rfind("mnt_id:", 0) == 0) return std::atoi(line.c_str() + 7);
  }
  return -1;
}

}  // namespace

std::vector<MountEntry> ReadMountTable() {
  std::vector<MountEntry> table;
  std::ifstream mountinfo("/proc/self/mountinfo");
  for (std::string line; std::getline(mountinfo, line);) {
    if (std::optional<MountEntry> entry = ParseLine(line)) table.push_back(std::move(*entry));
  }
  return table;
}

int MountIdAt(const std::string& path) {
  const std::optional<MountEntry> top = TopMountAt(ReadMountTable(), path);
  return top ? top->id : -1;
}

std::string MountTarget(const HeldFolder& held) { return "/proc/self/fd/" + std::to_string(held.folder); }

// A mount made on the held folder lies on the mount that holds the folder,
// at the folder's present path, and each one stacked on it lies on the one
// before at the same path; the table lists them in that order.  Two live
// folders never share a path, so no other folder's mounts match.
int MountIdOn(const HeldFolder& held) {
  const int below = MountIdOfDescriptor(held.folder);
  char path[PATH_MAX];
  const ssize_t length = readlink(MountTarget(held).c_str(), path, sizeof path - 1);
  if (below < 0 || length <= 0) return -1;
  const std::string at(path, static_cast<size_t>(length));
  int top = -1;
  for (const MountEntry& entry : ReadMountTable()) {
    if (entry.mountPoint == at && (entry.parentId == below || (top >= 0 && entry.parentId == top))) top = entry.id;
  }
  return top;
}

// Unmounting /proc/self/fd/N takes away the mount visible on that folder.
void DetachMountOn(const HeldFolder& held, int mountId) {
  if (mountId >= 0 && MountIdOn(held) == mountId) umount2(MountTarget(held).c_str(), MNT_DETACH);
}

std::optional<std::string> VolumeMountPath(const std::string& bsdName) {
  struct stat info;
  if (stat(("/dev/" + bsdName).c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) return std::nullopt;
  for (const MountEntry& entry : ReadMountTable()) {
    if (entry.device == info.st_rdev && entry.root == "/") return entry.mountPoint;
  }
  return std::nullopt;
}

int Unmount(const std::string& path) { return umount2(path.c_str(), 0) == 0 ? 0 : errno; }

void DetachMount(const std::string& path) { umount2(path.c_str(), MNT_DETACH); }

void WaitForUnmountOrStop(int mountId, int wakeFd, const sigset_t& stopSignals) {
  const int signalFd = signalfd(-1, &stopSignals, SFD_CLOEXEC);
  const int mountTable = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  pollfd watched[3] = {{wakeFd, POLLIN, 0}, {signalFd, POLLIN, 0}, {mountTable, POLLPRI, 0}};
  for (;;) {
    // The table is looked at on every change, and once a second besides.
    if (!HasMount(ReadMountTable(), mountId)) break;
    if (poll(watched, 3, 1000) < 0 && errno != EINTR) break;
    if ((watched[0].revents | watched[1].revents) != 0) break;
  }
  if (signalFd >= 0) close(signalFd);
  if (mountTable >= 0) close(mountTable);
}

}  // namespace platform
