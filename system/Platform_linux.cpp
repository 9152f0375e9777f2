// The platform seam on Linux: /proc for the process table, sysfs and
// mountinfo for disks, posix_spawn for children, std::thread for background
// work.  The start at boot is BootService_linux.cpp.
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

#include <cerrno>
#include <cstring>
#include <mutex>
#include <sstream>
#include <system_error>
#include <thread>

#include "MountTable.h"
#include "Platform.h"

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

// The stat line's field 22 is the start in clock ticks after boot, and
// /proc/stat's btime the boot in seconds since the epoch.
std::optional<time_t> ProcessStartTime(pid_t pid) {
  const std::optional<std::string> stat = ReadSmallFile("/proc/" + std::to_string(pid) + "/stat");
  const std::optional<std::string> machine = ReadSmallFile("/proc/stat");
  const size_t nameEnd = stat ? stat->rfind(')') : std::string::npos;
  const size_t boot = machine ? machine->find("\nbtime ") : std::string::npos;
  if (nameEnd == std::string::npos || boot == std::string::npos) return std::nullopt;
  std::istringstream fields(stat->substr(nameEnd + 1));
  std::string field;
  for (int number = 3; number < 22 && fields >> field; ++number) {
  }
  unsigned long long ticks = 0;
  if (!(fields >> ticks)) return std::nullopt;
  const time_t bootTime = static_cast<time_t>(std::stoll(machine->substr(boot + 7)));
  return bootTime + static_cast<time_t>(ticks / static_cast<unsigned long long>(sysconf(_SC_CLK_TCK)));
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

std::vector<VolumeMount> ListMounts() {
  std::vector<VolumeMount> mounts;
  for (const MountEntry& entry : ReadMountTable()) {
    const bool readOnly = entry.options == "ro" || entry.options.rfind("ro,", 0) == 0;
    mounts.push_back({entry.source, entry.mountPoint, readOnly, entry.type == "fuse.zq-mounter"});
  }
  return mounts;
}

std::string ActivityLogPath() { return "/var/log/zq-norvane/activity.log"; }

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

void RunInBackground(std::function<void()> work) {
  try {
    std::thread(work).detach();
  } catch (const std::system_error&) {
    // No thread to be had: the work is still done, on the caller's time.
    work();
  }
}

}  // namespace platform
