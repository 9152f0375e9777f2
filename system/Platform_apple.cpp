// The platform seam on macOS: libproc for the process table, devname_r,
// the disk ioctl and DiskArbitration for disks, posix_spawn for children,
// libdispatch for background work, and CoreFoundation for the main bundle.
#include <CoreFoundation/CoreFoundation.h>
#include <DiskArbitration/DiskArbitration.h>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <libproc.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/disk.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <mutex>

#include "Platform.h"

extern char** environ;

namespace platform {

// Apple documents no length for the name libproc gives; its header declares
// pbi_comm as MAXCOMLEN bytes.  Every name here is cut at MAXCOMLEN - 1, so
// names compare equal whether or not the kernel fills the last byte.
const size_t kShortNameLength = MAXCOMLEN - 1;

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

std::string FileSystemPath(CFURLRef url) {
  char path[PATH_MAX];
  if (url == nullptr ||
      !CFURLGetFileSystemRepresentation(url, true, reinterpret_cast<UInt8*>(path), sizeof path))
    return "";
  return path;
}

// Every process id, in the kernel's order; 0 or an errno value.
int ReadProcessIds(std::vector<pid_t>* ids) {
  const int bytes = proc_listpids(PROC_ALL_PIDS, 0, nullptr, 0);
  if (bytes <= 0) return errno;
  // Room for processes started between the two calls.
  ids->assign(static_cast<size_t>(bytes) / sizeof(pid_t) + 16, 0);
  const int filled = proc_listpids(PROC_ALL_PIDS, 0, ids->data(), static_cast<int>(ids->size() * sizeof(pid_t)));
  if (filled <= 0) {
    ids->clear();
    return errno;
  }
  ids->resize(static_cast<size_t>(filled) / sizeof(pid_t));
  return 0;
}

std::mutex bundleMutex;
std::optional<std::string> bundleOverride;

void RunWork(void* context) {
  std::unique_ptr<std::function<void()>> work(static_cast<std::function<void()>*>(context));
  (*work)();
}

}  // namespace

int SnapshotProcesses(std::vector<ProcessRecord>* records) {
  records->clear();
  std::vector<pid_t> ids;
  if (const int error = ReadProcessIds(&ids)) return error;
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
  proc_bsdinfo info;
  std::memset(&info, 0, sizeof info);
  if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info) <= 0) return std::nullopt;
  return std::string(info.pbi_comm, strnlen(info.pbi_comm, kShortNameLength));
}

std::optional<time_t> ProcessStartTime(pid_t pid) {
  proc_bsdinfo info;
  std::memset(&info, 0, sizeof info);
  if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info) <= 0) return std::nullopt;
  return static_cast<time_t>(info.pbi_start_tvsec);
}

int MakePipe(int fds[2]) {
  if (pipe(fds) != 0) return errno;
  for (int end = 0; end < 2; ++end) {
    if (fds[end] > STDERR_FILENO) {
      fcntl(fds[end], F_SETFD, FD_CLOEXEC);
      continue;
    }
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

int SpawnProcess(const std::string& path, const std::vector<std::string>& arguments, const int streams[3],
                 pid_t* pid) {
  std::vector<char*> argv;
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int target = 0; target < 3; ++target) posix_spawn_file_actions_adddup2(&actions, streams[target], target);

  // Every descriptor not named by a file action is closed in the child.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes,
                           static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_CLOEXEC_DEFAULT));

  const int error = posix_spawn(pid, path.c_str(), &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// macOS raises SIGPIPE for the whole process, so blocking it in one
// thread is no protection; the descriptor itself is told not to raise it.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t length) {
  fcntl(fd, F_SETNOSIGPIPE, 1);
  return write(fd, buffer, length);
}

std::string RawDeviceName(dev_t blockDevice) {
  char name[1025] = {};
  if (devname_r(blockDevice, S_IFCHR, name, static_cast<int>(sizeof name)) == nullptr) return "";
  return name;
}

std::optional<uint32_t> DeviceBlockSize(int fd) {
  uint32_t size = 0;
  if (ioctl(fd, DKIOCGETBLOCKSIZE, &size) != 0 || size == 0) return std::nullopt;
  return size;
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
  std::string path = FileSystemPath(static_cast<CFURLRef>(volumePath));
  if (path.empty()) return std::nullopt;
  return path;
}

// The mounter names its macFUSE mounts by the raw device it was given.
std::vector<VolumeMount> ListMounts() {
  struct statfs* table = nullptr;
  const int count = getmntinfo(&table, MNT_NOWAIT);
  std::vector<VolumeMount> mounts;
  for (int i = 0; i < count; ++i) {
    const std::string type = table[i].f_fstypename, source = table[i].f_mntfromname;
    const bool fuse = type == "macfuse" || type == "osxfuse";
    mounts.push_back({source, table[i].f_mntonname, (table[i].f_flags & MNT_RDONLY) != 0,
                      fuse && source.rfind("/dev/", 0) == 0});
  }
  return mounts;
}

std::string ActivityLogPath() { return "/Library/Logs/Zq Norvane/activity.log"; }

std::vector<std::string> VolumesFolders() { return {"/Volumes"}; }

uid_t ConsoleUser() {
  struct stat info;
  return stat("/dev/console", &info) == 0 ? info.st_uid : 0;
}

bool GroupCanBecomeRoot(gid_t group) {
  constexpr gid_t kAdminGroup = 80;
  return group == 0 || group == kAdminGroup;
}

std::string MainBundlePath() {
  {
    std::lock_guard<std::mutex> lock(bundleMutex);
    if (bundleOverride) return *bundleOverride;
  }
  CFBundleRef bundle = CFBundleGetMainBundle();
  if (bundle == nullptr) return "";
  CFHolder<CFURLRef> url(CFBundleCopyBundleURL(bundle));
  return FileSystemPath(url.get());
}

void SetMainBundlePath(const std::string& path) {
  std::lock_guard<std::mutex> lock(bundleMutex);
  bundleOverride = path;
}

// launchd starts the service at boot from the launch daemon's item.
void EnableBootService(const std::string&, const std::string&) {}

void DisableBootService(const std::string&) {}

void RunInBackground(std::function<void()> work) {
  dispatch_async_f(dispatch_get_global_queue(DISPATCH_QUEUE_PRIORITY_DEFAULT, 0),
                   new std::function<void()>(std::move(work)), RunWork);
}

}  // namespace platform
