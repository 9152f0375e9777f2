#include "mounter/CMountSession.h"

#include <signal.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "bitlocker/MounterStatus.h"
#include "platform/FilesystemMount.h"
#include "platform/Folders.h"
#include "platform/Mounts.h"
#include "platform/Pipes.h"
#include "system/TaskWrapper.h"
#include "util/FilesystemType.h"

namespace {

// Large enough that sequential reads reach the server as 1 MiB requests.
constexpr unsigned kReadAheadKilobytes = 1024;

sigset_t StopSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal : {SIGTERM, SIGINT, SIGHUP}) sigaddset(&signals, signal);
  return signals;
}

// The file-system drivers' programs, run by the system's task runner.
platform::ProgramOutcome RunToEnd(const std::string& program, const std::vector<std::string>& arguments) {
  const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(program, arguments);
  return {run.terminationStatus(), run.response().value_or(""), run.errorMessage().value_or("")};
}

FilesystemType DetectVolumeFilesystem(IVolume* volume) {
  unsigned char sector[kBootSectorSize] = {};
  size_t done = 0;
  while (done < kBootSectorSize) {
    const ssize_t got = volume->Read(done, sector + done, kBootSectorSize - done);
    if (got <= 0) return FilesystemType::kUnknown;
    done += static_cast<size_t>(got);
  }
  return DetectFilesystem(sector);
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
  const char* volumeReadOnly = volume_->ReadOnlyReason();
  readOnlyReason_ = request_.readOnly ? kAskedReadOnly : volumeReadOnly != nullptr ? volumeReadOnly : "";
  const int status = request_.raw ? StartRaw(message) : StartFilesystem(message);
  if (status != bitlocker::kOk) {
    TakeDown();
  } else if (readOnlyReason_.empty()) {
    *message = "mounted read-write";
  } else {
    *message = "mounted read-only: " + readOnlyReason_;
  }
  return status;
}

bool CMountSession::MountServer(const std::string& at, CVolumeFuseServer::Options options, std::string* message) {
  server_ = std::make_unique<CVolumeFuseServer>(volume_.get(), std::move(options));
  if (!server_->Mount(at, message)) return false;
  serverMountId_ = platform::MountIdAt(at);
  if (const int error = platform::MakePipe(servingEnded_)) {
    *message = std::string("no pipe for the serving thread: ") + std::strerror(error);
    return false;
  }
  serving_ = std::thread([this] {
    server_->Serve();
    const char ended = 1;
    if (write(servingEnded_[1], &ended, 1) < 0) return;
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
  options.writable = readOnlyReason_.empty();
  options.fileMode = (options.writable ? 0666 : 0444) & ~request_.umask;
  // Readers of the raw volume mostly stream through it in large reads
  // (imaging, hashing, a loop device with a cache of its own), which the
  // page cache only slows down; file-system drivers read the same places
  // again and again, and keep the cache.
  options.directIo = true;
  if (!MountServer(request_.mountPoint, options, message)) return kMounterMountFailed;
  mountPointMountId_ = serverMountId_;
  return bitlocker::kOk;
}

int CMountSession::StartFilesystem(std::string* message) {
  const FilesystemType type = DetectVolumeFilesystem(volume_.get());
  if (type == FilesystemType::kUnknown) {
    *message = "the volume holds no NTFS, exFAT or FAT file system (mount it with the option raw)";
    return bitlocker::kUnsupported;
  }
  mkdir(platform::kStagingRoot, 0700);
  std::string folder = std::string(platform::kStagingRoot) + "/XXXXXX";
  if (mkdtemp(folder.data()) == nullptr) {
    *message = std::string("no staging folder under ") + platform::kStagingRoot + ": " + std::strerror(errno);
    return kMounterMountFailed;
  }
  // The mount table names mount points by their real path, and the staging
  // root may lie behind a symbolic link (/var on macOS).
  char resolved[PATH_MAX];
  if (realpath(folder.c_str(), resolved) == nullptr) {
    *message = "the staging folder " + folder + " cannot be resolved: " + std::strerror(errno);
    rmdir(folder.c_str());
    return kMounterMountFailed;
  }
  stagingFolder_ = resolved;
  CVolumeFuseServer::Options options;
  options.sourceName = request_.rawDevice;
  options.writable = readOnlyReason_.empty();
  options.fileMode = options.writable ? 0600 : 0400;
  if (!MountServer(stagingFolder_, options, message)) return kMounterMountFailed;

  const platform::Ownership ownership{request_.uid, request_.gid, request_.umask};
  const std::string image = stagingFolder_ + "/" + CVolumeFuseServer::kFileName;
  std::string driversSaid;
  mountPointMountId_ =
      platform::MountFilesystem(RunToEnd, type, image, request_.mountPoint, ownership, !options.writable, &driversSaid);
  // A file system its driver will not write (one left unclean, say) is
  // still worth reading.
  if (mountPointMountId_ < 0 && options.writable) {
    std::string readOnlySaid;
    mountPointMountId_ = platform::MountFilesystem(RunToEnd, type, image, request_.mountPoint, ownership, true, &readOnlySaid);
  }
  if (mountPointMountId_ < 0) {
    *message = std::string("the ") + FilesystemName(type) + " file system could not be mounted:\n" + driversSaid;
    return kMounterMountFailed;
  }
  struct statvfs mounted;
  if (options.writable && statvfs(request_.mountPoint.c_str(), &mounted) == 0 && (mounted.f_flag & ST_RDONLY))
    readOnlyReason_ = std::string("the ") + FilesystemName(type) + " file system would only mount read-only";
  return bitlocker::kOk;
}

void CMountSession::ServeUntilUnmounted() {
  platform::WaitForUnmountOrStop(mountPointMountId_, servingEnded_[0], StopSignals());
  TakeDown();
}

void CMountSession::DetachIfOurs(const std::string& path, int mountId) {
  if (mountId >= 0 && platform::MountIdAt(path) == mountId) platform::DetachMount(path);
}

void CMountSession::TakeDown() {
  if (!stagingFolder_.empty()) {
    DetachIfOurs(request_.mountPoint, mountPointMountId_);
    platform::ReleaseFilesystemImage(RunToEnd, stagingFolder_ + "/" + CVolumeFuseServer::kFileName);
  }
  // Once detached, the FUSE connection ends as soon as nothing holds the
  // file open any more, and with it the serving threads.
  if (server_) DetachIfOurs(server_->mountPoint(), serverMountId_);
  if (serving_.joinable()) serving_.join();
  if (server_) server_->FlushWrites();
  server_.reset();
  for (int& end : servingEnded_) {
    if (end >= 0) close(end);
    end = -1;
  }
  if (!stagingFolder_.empty()) {
    rmdir(stagingFolder_.c_str());
    stagingFolder_.clear();
  }
  struct stat info;
  if (removeMountPoint_ && lstat(request_.mountPoint.c_str(), &info) == 0 && info.st_dev == mountPointDevice_ &&
      info.st_ino == mountPointInode_ && rmdir(request_.mountPoint.c_str()) == 0)
    removeMountPoint_ = false;
}
