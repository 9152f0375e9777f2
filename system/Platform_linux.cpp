// The platform seam on Linux: /proc for the process table, sysfs and
// mountinfo for disks, posix_spawn for children, a systemd unit for the
// start at boot, std::thread for background work.
#include <dirent.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <systemd/sd-login.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>

#include "MountTable.h"
#include "Platform.h"
#include "Utf8.h"

extern char** environ;

namespace platform {

// The kernel keeps TASK_COMM_LEN (16) bytes, the last one the terminating zero.
const size_t kShortNameLength = 15;

namespace {

// The whole contents of a small kernel file; nullopt when it
// cannot be opened or read.
std::optional<std::string> ReadSmallFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string contents;
  char buffer[4096];
  ssize_t got;
  while ((got = read(fd, buffer, sizeof buffer)) != 0) {
    if (got < 0) {
      if (errno == EINTR) continue;
      close(fd);
      return std::nullopt;
    }
    contents.append(buffer, static_cast<size_t>(got));
  }
  close(fd);
  return contents;
}

// The process ids under /proc in directory order; false when /proc cannot
// be listed, with errno set.
bool ReadProcessIds(std::vector<pid_t>* ids) {
  DIR* proc = opendir("/proc");
  if (proc == nullptr) return false;
  while (const dirent* entry = readdir(proc)) {
    const char* name = entry->d_name;
    if (*name == '\0' || name[strspn(name, "0123456789")] != '\0') continue;
    ids->push_back(static_cast<pid_t>(std::stol(name)));
  }
  closedir(proc);
  return true;
}

std::mutex bundleMutex;
std::optional<std::string> bundleOverride;

std::string ExecutablePath() {
  std::string path(256, '\0');
  for (;;) {
    const ssize_t length = readlink("/proc/self/exe", &path[0], path.size());
    if (length < 0) return "";
    if (static_cast<size_t>(length) < path.size()) {
      path.resize(static_cast<size_t>(length));
      return path;
    }
    path.resize(path.size() * 2);
  }
}

}  // namespace

int SnapshotProcesses(std::vector<ProcessRecord>* records) {
  records->clear();
  std::vector<pid_t> ids;
  if (!ReadProcessIds(&ids)) return errno;
  for (pid_t pid : ids) {
    // A process that ended since the listing is simply left out.
    if (std::optional<std::string> name = ProcessShortName(pid)) records->push_back({pid, std::move(*name)});
  }
  return 0;
}

std::vector<pid_t> ListProcessIds() {
  std::vector<pid_t> ids;
  ReadProcessIds(&ids);
  return ids;
}

std::optional<std::string> ProcessShortName(pid_t pid) {
  std::optional<std::string> name = ReadSmallFile("/proc/" + std::to_string(pid) + "/comm");
  if (name && !name->empty() && name->back() == '\n') name->pop_back();
  return name;
}

int MakePipe(int fds[2]) {
  if (pipe2(fds, O_CLOEXEC) != 0) return errno;
  for (int end = 0; end < 2; ++end) {
    if (fds[end] > STDERR_FILENO) continue;
    const int moved = fcntl(fds[end], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(fds[end]);
    fds[end] = moved;
    if (moved < 0) {
      close(fds[1 - end]);
      return error;
    }
  }
  return 0;
}

namespace {

// This process's environment with the bundle's program folder appended to
// PATH (the shell's default search list when PATH is not set).
std::vector<std::string> ChildEnvironment() {
  std::vector<std::string> environment;
  std::string path = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (std::strncmp(*entry, "PATH=", 5) == 0) {
      path = *entry;
    } else {
      environment.emplace_back(*entry);
    }
  }
  if (path.size() > 5 && path.back() != ':') path += ':';
  environment.push_back(path + MainBundlePath() + "/Contents/MacOS");
  return environment;
}

// The strings as the null-terminated array of pointers that exec takes;
// valid while `strings` is.
std::vector<char*> ExecArray(const std::vector<std::string>& strings) {
  std::vector<char*> array;
  for (const std::string& text : strings) array.push_back(const_cast<char*>(text.c_str()));
  array.push_back(nullptr);
  return array;
}

}  // namespace

int SpawnProcess(const std::string& path, const std::vector<std::string>& arguments, const int streams[3],
                 pid_t* pid) {
  const std::vector<std::string> environment = ChildEnvironment();
  std::vector<char*> envp = ExecArray(environment);
  std::vector<char*> argv = ExecArray(arguments);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int target = 0; target < 3; ++target) posix_spawn_file_actions_adddup2(&actions, streams[target], target);
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  const int error = posix_spawn(pid, path.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// SIGPIPE is blocked in this thread for the write, and a SIGPIPE that the
// write raised is taken back before it is unblocked.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t length) {
  sigset_t sigpipe, saved;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe, &saved);
  sigset_t pendingBefore;
  sigpending(&pendingBefore);
  const bool alreadyPending = sigismember(&pendingBefore, SIGPIPE);

  const ssize_t written = write(fd, buffer, length);
  const int writeErrno = errno;
  if (written == -1 && writeErrno == EPIPE && !alreadyPending) {
    const timespec noWait = {0, 0};
    while (sigtimedwait(&sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  errno = writeErrno;
  return written;
}

std::string RawDeviceName(dev_t blockDevice) {
  const std::string uevent = "/sys/dev/block/" + std::to_string(major(blockDevice)) + ":" +
                             std::to_string(minor(blockDevice)) + "/uevent";
  std::istringstream lines(ReadSmallFile(uevent).value_or(""));
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("DEVNAME=", 0) == 0) return line.substr(8);
  }
  return "";
}

std::optional<uint32_t> DeviceBlockSize(int fd) {
  int size = 0;
  if (ioctl(fd, BLKSSZGET, &size) != 0 || size <= 0) return std::nullopt;
  return static_cast<uint32_t>(size);
}

std::optional<std::string> VolumeMountPath(const std::string& bsdName) {
  struct stat info;
  if (stat(("/dev/" + bsdName).c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) return std::nullopt;
  // Only a mount of the volume's own root counts.
  for (const MountEntry& entry : ReadMountTable()) {
    if (entry.device == info.st_rdev && entry.root == "/") return entry.mountPoint;
  }
  return std::nullopt;
}

std::vector<std::string> VolumesFolders() { return {"/media", "/run/media", "/mnt"}; }

// The user of the active session on the machine's first seat, as logind
// tells; without logind (a server, a container), the owner of
// /dev/console.
uid_t ConsoleUser() {
  uid_t user = 0;
  if (sd_seat_get_active("seat0", nullptr, &user) >= 0) return user;
  struct stat info;
  return stat("/dev/console", &info) == 0 ? info.st_uid : 0;
}

bool GroupCanBecomeRoot(gid_t group) { return group == 0; }

std::string MainBundlePath() {
  {
    std::lock_guard<std::mutex> lock(bundleMutex);
    if (bundleOverride) return *bundleOverride;
  }
  const std::string executable = ExecutablePath();
  const size_t slash = executable.rfind('/');
  std::string folder = slash == std::string::npos ? "" : executable.substr(0, slash);
  constexpr char kInsideBundle[] = "/Contents/MacOS";
  constexpr size_t kInsideLength = sizeof kInsideBundle - 1;
  if (folder.size() >= kInsideLength && folder.compare(folder.size() - kInsideLength, kInsideLength, kInsideBundle) == 0)
    folder.resize(folder.size() - kInsideLength);
  return folder.empty() ? "/" : folder;
}

void SetMainBundlePath(const std::string& path) {
  std::lock_guard<std::mutex> lock(bundleMutex);
  bundleOverride = path;
}

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

void RunInBackground(std::function<void()> work) {
  try {
    std::thread(work).detach();
  } catch (const std::system_error&) {
    // No thread to be had: the work is still done, on the caller's time.
    work();
  }
}

}  // namespace platform
