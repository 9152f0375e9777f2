// The platform seam's start at boot on Linux: a systemd unit, written as
// files only, in folders that only root can change.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <functional>
#include <optional>
#include <string>

#include "platform/BootService.h"
#include "platform/Users.h"
#include "util/Utf8.h"

namespace platform {
namespace {

constexpr char kUnitName[] = "zq-norvane.service";
constexpr char kUnitPath[] = "/etc/systemd/system/zq-norvane.service";
constexpr char kWantsFolder[] = "multi-user.target.wants";

// An open folder that is root's alone (or a group's that can become root
// anyway), reached without following a symbolic link; or none.
class SafeFolder {
 public:
  static SafeFolder Open(int parent, const std::string& name) {
    SafeFolder folder(openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat info;
    if (folder && (fstat(folder.fd_, &info) != 0 || info.st_uid != 0 || (info.st_mode & S_IWOTH) != 0 ||
                   ((info.st_mode & S_IWGRP) != 0 && !GroupCanBecomeRoot(info.st_gid))))
      return SafeFolder(-1);
    return folder;
  }
  SafeFolder(SafeFolder&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  SafeFolder& operator=(SafeFolder&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~SafeFolder() {
    if (fd_ >= 0) close(fd_);
  }
  explicit operator bool() const { return fd_ >= 0; }
  int fd() const { return fd_; }

 private:
  explicit SafeFolder(int fd) : fd_(fd) {}
  int fd_;
};

// /etc/systemd/system under `rootFolder`, when it and every folder on the
// way there is safe.
SafeFolder OpenUnitFolder(const std::string& rootFolder) {
  SafeFolder folder = SafeFolder::Open(AT_FDCWD, rootFolder.empty() ? "/" : rootFolder);
  for (const char* name : {"etc", "systemd", "system"}) {
    if (!folder) break;
    folder = SafeFolder::Open(folder.fd(), name);
  }
  return folder;
}

// `program` as the first word of an ExecStart line: in double quotes, with
// each '%' doubled so that systemd reads no specifier in it.  systemd runs
// no program whose path holds a control character, a quote or a
// backslash, however escaped, so such a path has no word.
std::optional<std::string> ExecStartWord(const std::string& program) {
  if (program.empty() || program[0] != '/' || !IsValidUtf8(program)) return std::nullopt;
  std::string word = "\"";
  for (const char c : program) {
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f || std::strchr("\"'\\", c) != nullptr) return std::nullopt;
    word += c;
    if (c == '%') word += '%';
  }
  return word + "\"";
}

// The mounters and explorers the service starts serve on after it ends,
// so only the service itself is stopped.
std::string UnitText(const std::string& execStartWord) {
  return "# Written by Zq-NorvaneServices when its start at boot is turned on; removed when it is turned off.\n"
         "[Unit]\n"
         "Description=Zq Norvane Services\n"
         "\n"
         "[Service]\n"
         "Type=simple\n"
         "ExecStart=" + execStartWord + "\n"
         "KillMode=process\n"
         "\n"
         "[Install]\n"
         "WantedBy=multi-user.target\n";
}

bool WriteNewFile(int folder, const std::string& name, const std::string& contents) {
  const int fd = openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  bool written = fchmod(fd, 0644) == 0;
  for (size_t done = 0; written && done < contents.size();) {
    const ssize_t put = write(fd, contents.data() + done, contents.size() - done);
    written = put > 0 || (put < 0 && errno == EINTR);
    if (put > 0) done += static_cast<size_t>(put);
  }
  written = written && fsync(fd) == 0;
  return close(fd) == 0 && written;
}

// Makes an entry under a fresh temporary name in `folder` with `make`, then
// renames it to `name`: systemd sees the old entry or the new one, never a
// part.  A temporary entry is removed again when either step fails.
bool ReplaceEntry(int folder, const char* name, const std::function<bool(const std::string&)>& make) {
  static std::atomic<unsigned> counter{0};
  const std::string temp =
      std::string(".") + name + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
  if (make(temp) && renameat(folder, temp.c_str(), folder, name) == 0) return true;
  unlinkat(folder, temp.c_str(), 0);
  return false;
}

}  // namespace

void EnableBootService(const std::string& rootFolder, const std::string& program) {
  const std::optional<std::string> execStart = ExecStartWord(program);
  if (!execStart) return;
  const SafeFolder units = OpenUnitFolder(rootFolder);
  if (!units) return;
  mkdirat(units.fd(), kWantsFolder, 0755);
  const SafeFolder wants = SafeFolder::Open(units.fd(), kWantsFolder);
  if (!wants) return;
  const std::string unit = UnitText(*execStart);
  if (!ReplaceEntry(units.fd(), kUnitName, [&](const std::string& temp) { return WriteNewFile(units.fd(), temp, unit); }))
    return;
  ReplaceEntry(wants.fd(), kUnitName,
               [&](const std::string& temp) { return symlinkat(kUnitPath, wants.fd(), temp.c_str()) == 0; });
}

void DisableBootService(const std::string& rootFolder) {
  const SafeFolder units = OpenUnitFolder(rootFolder);
  if (!units) return;
  if (const SafeFolder wants = SafeFolder::Open(units.fd(), kWantsFolder)) unlinkat(wants.fd(), kUnitName, 0);
  unlinkat(units.fd(), kUnitName, 0);
}

}  // namespace platform
