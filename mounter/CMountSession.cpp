#include "mounter/CMountSession.h"

#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "bitlocker/MounterStatus.h"
#include "platform/FilesystemMount.h"
#include "platform/Folders.h"
#include "platform/Fuse.h"
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

CMountSession::CMountSession(std::unique_ptr<IVolume> volume, const MountRequest& request,
                             std::unique_ptr<CMountPoint> mountPoint)
    : volume_(std::move(volume)), request_(request), mountPoint_(std::move(mountPoint)) {}

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

bool CMountSession::MountServer(const std::string& at, const std::function<int()>& findMount,
                                CVolumeFuseServer::Options options, std::string* message) {
  server_ = std::make_unique<CVolumeFuseServer>(volume_.get(), std::move(options));
  if (!server_->Mount(at, message)) return false;
  serverMountId_ = findMount();
  if (serverMountId_ < 0) {
    *message = "the FUSE mount did not land on the folder that was checked";
    return false;
  }
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
  platform::SetFuseReadAhead(serverMountId_, kReadAheadKilobytes);
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
  const platform::HeldFolder& held = mountPoint_->held();
  if (!MountServer(platform::MountTarget(held), [&held] { return platform::MountIdOn(held); }, options, message))
    return kMounterMountFailed;
  mountPointMountId_ = serverMountId_;
  return bitlocker::kOk;
}

int CMountSession::StartFilesystem(std::string* message) {
  const FilesystemType type = DetectVolumeFilesystem(volume_.get());
  if (type == FilesystemType::kUnknown) {
    *message = "the volume holds no NTFS, exFAT or FAT file system (mount it with the option raw)";
    return bitlocker::kUnsupported;
  }
  std::string folder = std::string(platform::kStagingRoot) + "/XXXXXX";
  if (!MakeStagingRoot(message) || !platform::PrepareStagingRoot(message)) return kMounterMountFailed;
  if (mkdtemp(folder.data()) == nullptr) {
    *message = std::string("no staging folder under ") + platform::kStagingRoot + ": " + std::strerror(errno);
    return kMounterMountFailed;
  }
  // The mount table names mount points by their real path, and the staging
  // root may lie behind a symbolic link (/var on macOS); every folder on
  // the way is root's alone.
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
  const std::string staging = stagingFolder_;
  if (!MountServer(staging, [staging] { return platform::MountIdAt(staging); }, options, message))
    return kMounterMountFailed;

  const platform::Ownership ownership{request_.uid, request_.gid, request_.umask};
  const std::string image = stagingFolder_ + "/" + CVolumeFuseServer::kFileName;
  std::string driversSaid;
  mountPointMountId_ =
      platform::MountFilesystem(RunToEnd, type, image, mountPoint_->held(), ownership, !options.writable, &driversSaid);
  // A file system its driver will not write (one left unclean, say) is
  // still worth reading.
  if (mountPointMountId_ < 0 && options.writable) {
    std::string readOnlySaid;
    mountPointMountId_ = platform::MountFilesystem(RunToEnd, type, image, mountPoint_->held(), ownership, true, &readOnlySaid);
  }
  if (mountPointMountId_ < 0) {
    *message = std::string("the ") + FilesystemName(type) + " file system could not be mounted:\n" + driversSaid;
    return kMounterMountFailed;
  }
  if (options.writable && IsReadOnlyMount(platform::ReadMountTable(), mountPointMountId_))
    readOnlyReason_ = std::string("the ") + FilesystemName(type) + " file system would only mount read-only";
  return bitlocker::kOk;
}

void CMountSession::ServeUntilUnmounted() {
  platform::WaitForUnmountOrStop(mountPointMountId_, servingEnded_[0], StopSignals());
  TakeDown();
}

void CMountSession::DetachStagingIfOurs(int mountId) {
  if (mountId >= 0 && platform::MountIdAt(stagingFolder_) == mountId) platform::DetachMount(stagingFolder_);
}

void CMountSession::TakeDown() {
  // In raw mode the server's mount is the one on the mount point.
  platform::DetachMountOn(mountPoint_->held(), mountPointMountId_);
  if (!stagingFolder_.empty()) {
    platform::ReleaseFilesystemImage(RunToEnd, stagingFolder_ + "/" + CVolumeFuseServer::kFileName);
    // Once detached, the FUSE connection ends as soon as nothing holds the
    // file open any more, and with it the serving threads.
    DetachStagingIfOurs(serverMountId_);
  }
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
  mountPoint_->RemoveIfMade();
}

// The staging root is made by root in a folder of root's, so its path is
// trusted once checked: a folder, no link, root's alone.
bool CMountSession::MakeStagingRoot(std::string* message) {
  mkdir(platform::kStagingRoot, 0700);
  struct stat info;
  if (lstat(platform::kStagingRoot, &info) == 0 && S_ISDIR(info.st_mode) && info.st_uid == 0 &&
      (info.st_mode & 07777) == 0700)
    return true;
  *message = std::string("the staging root ") + platform::kStagingRoot + " is not a folder of root's alone (mode 0700)";
  return false;
}
