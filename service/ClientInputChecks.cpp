#include "service/ClientInputChecks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/SystemMount.h"
#include "platform/Users.h"

namespace {

constexpr char kNotRootsAlone[] = "the service program or a folder above it is not root's alone";
constexpr char kOnUsersDisk[] =
    "the service program or a folder above it lies on a disk a user brought or mounted, whose owners mean nothing";

bool IsAsciiAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// The status of the entry at `path` itself, never of what a link there
// leads to, and whether it lies on a mount that root made for the machine.
// Both come from one descriptor of a folder or a plain file; a link lies
// on its folder's mount, which the walk looks at next.
struct Entry {
  struct stat info;
  bool onSystemMount;
};

std::optional<Entry> LookAt(const std::string& path) {
  Entry entry{};
  if (lstat(path.c_str(), &entry.info) != 0) return std::nullopt;
  if (S_ISLNK(entry.info.st_mode)) {
    entry.onSystemMount = true;
    return entry;
  }
  if (!S_ISDIR(entry.info.st_mode) && !S_ISREG(entry.info.st_mode)) return std::nullopt;
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  const bool known = fstat(fd, &entry.info) == 0 && (S_ISDIR(entry.info.st_mode) || S_ISREG(entry.info.st_mode));
  entry.onSystemMount = known && platform::IsOnSystemMount(fd);
  close(fd);
  if (!known) return std::nullopt;
  return entry;
}

// Why someone other than root, or those who can become root, could change
// the entry at `path`, or nullptr.  A link's own mode bits mean nothing:
// its folder decides who can replace it.  In a sticky folder (/tmp) only an
// entry's owner can replace it, so anyone may write the folder as long as
// every entry on the path is root's, which the walk checks of each entry
// anyway.  An owner on a user's disk is whatever the disk says, so the
// entry must lie on a mount that root made for the machine.
const char* WhyOthersCanChange(const std::string& path) {
  const std::optional<Entry> entry = LookAt(path);
  if (!entry || entry->info.st_uid != 0) return kNotRootsAlone;
  if (!entry->onSystemMount) return kOnUsersDisk;
  const mode_t mode = entry->info.st_mode;
  if (S_ISLNK(mode) || (S_ISDIR(mode) && (mode & S_ISVTX) != 0)) return nullptr;
  if ((mode & S_IWOTH) != 0) return kNotRootsAlone;
  return (mode & S_IWGRP) == 0 || platform::GroupCanBecomeRoot(entry->info.st_gid) ? nullptr : kNotRootsAlone;
}

// The same for an absolute path and every folder above it.
const char* WhyOthersCanChangeAnyPart(std::string path) {
  for (;;) {
    if (const char* reason = WhyOthersCanChange(path)) return reason;
    if (path == "/") return nullptr;
    const size_t slash = path.rfind('/');
    path = slash == 0 ? "/" : path.substr(0, slash);
  }
}

}  // namespace

bool IsPlainDeviceName(const std::optional<std::string>& name) {
  if (!name || name->empty() || (*name)[0] == '.') return false;
  for (char c : *name)
    if (!IsAsciiAlnum(c) && std::strchr("._-", c) == nullptr) return false;
  return true;
}

bool IsSingleShellWord(const std::optional<std::string>& word) {
  if (!word) return false;
  for (size_t i = 0; i < word->size(); ++i) {
    const char c = (*word)[i];
    if (c == '\\') {
      // A backslash quotes the next character, whatever it is, except a
      // line end, which the shell would swallow with it.
      if (++i == word->size() || (*word)[i] == '\n') return false;
      continue;
    }
    const bool beyondAscii = (static_cast<unsigned char>(c) & 0x80) != 0;
    if (c == '\0' || (!IsAsciiAlnum(c) && !beyondAscii && std::strchr("._/,:=+@%-", c) == nullptr)) return false;
  }
  return true;
}

const char* DaemonProgramRefusal(const std::string& bundlePath) {
  const std::string program = bundlePath + "/Contents/MacOS/Zq-NorvaneServices";
  char resolved[PATH_MAX];
  struct stat info;
  if (program[0] != '/' || realpath(program.c_str(), resolved) == nullptr || stat(resolved, &info) != 0 ||
      !S_ISREG(info.st_mode))
    return "the service program does not exist in that bundle";
  if (const char* reason = WhyOthersCanChangeAnyPart(program)) return reason;
  return WhyOthersCanChangeAnyPart(resolved);
}
