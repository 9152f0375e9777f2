#include "CMountSession.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>

#include "FilesystemMount.h"
#include "FilesystemType.h"
#include "MountTable.h"
#include "MounterStatus.h"

namespace {

constexpr char kStagingRoot[] = "/run/zq-mounter";
// Large enough that sequential reads reach the server as 1 MiB requests.
constexpr unsigned kReadAheadKilobytes = 1024;

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

int MountIdAt(const std::string& path) {
  const std::optional<MountEntry> top = TopMountAt(ReadMountTable(), path);
  return top ? top->id : -1;
}

}  // namespace

CMountSession::CMountSession(std::unique_ptr<IVolume> volume, const MountRequest& request, bool removeMountPoint)
    : volume_(std::move(volume)), request_(request), removeMountPoint_(removeMountPoint) {
  struct stat info;
  if (removeMountPoint_ && lstat(request_.mountPoint.c_str(), &info) == 0) {
    mountPointDevice_ = info.st_dev;
    mountPointInode_ = info.st_ino;
  }
}

CMountSession::~CMountSession() { TakeDown(); }

void CMountSession::BlockStopSignals() {
  const sigset_t signals = StopSignals();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

int CMountSession::Start(std::string* message) {
  const int status = request_.raw ? StartRaw(message) : StartFilesystem(message);
  if (status != bitlocker::kOk) TakeDown();
  return status;
}

bool CMountSession::MountServer(const std::string& at, CVolumeFuseServer::Options options, std::string* message) {
  server_ = std::make_unique<CVolumeFuseServer>(volume_.get(), std::move(options));
  if (!server_->Mount(at, message)) return false;
  serverMountId_ = MountIdAt(at);
  servingEnded_ = eventfd(0, EFD_CLOEXEC);
  serving_ = std::thread([this] {
    server_->Serve();
    const uint64_t one = 1;
    if (write(servingEnded_, &one, sizeof one) < 0) return;
  });
  // Only now may anything look at the mount: the kernel's first request
  // waits for the serving thread.
  server_->SetReadAhead(kReadAheadKilobytes);
  return true;
}

int CMountSession::StartRaw(std::string* message) {
  CVolumeFuseServer::Options options;
  options.sourceName = request_.rawDevice;
  options.allowOther = true;
  options.uid = request_.uid;
  options.gid = request_.gid;
  options.fileMode = 0444 & ~request_.umask;
  if (!MountServer(request_.mountPoint, options, message)) return kMounterMountFailed;
  mountPointMountId_ = serverMountId_;
  return bitlocker::kOk;
}

int CMountSession::StartFilesystem(std::string* message) {
  const FilesystemType type = DetectFilesystem(volume_.get());
  if (type == FilesystemType::kUnknown) {
    *message = "the volume holds no NTFS, exFAT or FAT file system (mount it with the option raw)";
    return bitlocker::kUnsupported;
  }
  mkdir(kStagingRoot, 0700);
  std::string folder = std::string(kStagingRoot) + "/XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    *message = std::string("no staging folder under ") + kStagingRoot + ": " + std::strerror(errno);
    return kMounterMountFailed;
  }
  stagingFolder_ = folder;
  CVolumeFuseServer::Options options;
  options.sourceName = request_.rawDevice;
  options.fileMode = 0400;
  if (!MountServer(stagingFolder_, options, message)) return kMounterMountFailed;

  const Ownership ownership{request_.uid, request_.gid, request_.umask};
  const std::string image = stagingFolder_ + "/" + CVolumeFuseServer::kFileName;
  std::string driversSaid;
  mountPointMountId_ = MountFilesystem(type, image, request_.mountPoint, ownership, &driversSaid);
  if (mountPointMountId_ < 0) {
    *message = std::string("the ") + FilesystemName(type) + " file system could not be mounted:\n" + driversSaid;
    return kMounterMountFailed;
  }
  return bitlocker::kOk;
}

void CMountSession::ServeUntilUnmounted() {
  const sigset_t signals = StopSignals();
  const int signalFd = signalfd(-1, &signals, SFD_CLOEXEC);
  const int mountTable = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  pollfd watched[3] = {{servingEnded_, POLLIN, 0}, {signalFd, POLLIN, 0}, {mountTable, POLLPRI, 0}};
  for (;;) {
    // The table is looked at on every change, and once a second besides.
    if (!HasMount(ReadMountTable(), mountPointMountId_)) break;
    if (poll(watched, 3, 1000) < 0 && errno != EINTR) break;
    if ((watched[0].revents | watched[1].revents) != 0) break;
  }
  if (signalFd >= 0) close(signalFd);
  if (mountTable >= 0) close(mountTable);
  TakeDown();
}

void CMountSession::DetachIfOurs(const std::string& path, int mountId) {
  if (mountId >= 0 && MountIdAt(path) == mountId) umount2(path.c_str(), MNT_DETACH);
}

void CMountSession::TakeDown() {
  if (!stagingFolder_.empty()) DetachIfOurs(request_.mountPoint, mountPointMountId_);
  // Once detached, the FUSE connection ends as soon as nothing holds the
  // file open any more, and with it the serving threads.
  if (server_) DetachIfOurs(server_->mountPoint(), serverMountId_);
  if (serving_.joinable()) serving_.join();
  server_.reset();
  if (servingEnded_ >= 0) close(servingEnded_);
  servingEnded_ = -1;
  if (!stagingFolder_.empty()) {
    rmdir(stagingFolder_.c_str());
    stagingFolder_.clear();
  }
  struct stat info;
  if (removeMountPoint_ && lstat(request_.mountPoint.c_str(), &info) == 0 && info.st_dev == mountPointDevice_ &&
      info.st_ino == mountPointInode_ && rmdir(request_.mountPoint.c_str()) == 0)
    removeMountPoint_ = false;
}
