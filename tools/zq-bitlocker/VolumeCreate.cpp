#include "tools/zq-bitlocker/VolumeCreate.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <iostream>
#include <optional>

#include "engine/CFileSource.h"
#include "engine/StartupKeyFile.h"
#include "engine/VolumeCreation.h"
#include "engine/VolumeHeader.h"
#include "platform/Mounts.h"
#include "tools/zq-bitlocker/DiskSource.h"
#include "tools/zq-bitlocker/Failure.h"
#include "tools/zq-bitlocker/SharedStorage.h"
#include "tools/zq-bitlocker/SizeText.h"
#include "tools/zq-bitlocker/StopSignal.h"
#include "tools/zq-bitlocker/VolumeScan.h"
#include "tools/zq-bitlocker/WriteProgress.h"
#include "util/CredentialInput.h"
#include "util/FilesystemType.h"

using namespace bitlocker;

namespace {

constexpr int kUsageError = 64;
constexpr uint32_t kSectorSize = 512;

// Seconds from 1601, where FILETIME counts from, to 1970.
constexpr uint64_t kFiletimeUnixEpoch = 11644473600ull;

// The ext2/3/4 superblock lies 1024 bytes in, its magic 56 bytes further.
constexpr size_t kExtMagicOffset = 1024 + 56;
constexpr uint8_t kExtMagic[2] = {0x53, 0xef};

uint16_t MethodOf(const std::string& cipher) {
  if (cipher == "xts-aes-256") return kAesXts256;
  if (cipher == "aes-cbc-128") return kAesCbc128;
  if (cipher == "aes-cbc-256") return kAesCbc256;
  return kAesXts128;
}

uint64_t FiletimeNow() {
  const auto since1970 = std::chrono::system_clock::now().time_since_epoch();
  const auto ticks = std::chrono::duration_cast<std::chrono::nanoseconds>(since1970).count() / 100;
  return static_cast<uint64_t>(ticks) + kFiletimeUnixEpoch * 10000000ull;
}

// "HOST 2024-05-01", as Windows describes a volume by its machine and day.
std::string DefaultDescription() {
  char host[256] = "";
  ::gethostname(host, sizeof host - 1);
  char day[16] = "";
  const std::time_t now = std::time(nullptr);
  struct tm local;
  if (::localtime_r(&now, &local)) std::strftime(day, sizeof day, "%Y-%m-%d", &local);
  return std::string(host) + " " + day;
}

// Where the target is mounted, under any name: as list tells a mounted
// device, or by a source that shares its storage (a partition of it, the
// loop device over it); empty when it is not.
std::string MountedAt(const std::string& path, const struct stat& target) {
  for (const MountEntry& mount : platform::ReadMountTable()) {
    struct stat source;
    if (IsMountedSource(path, {mount.source}) ||
        (!mount.source.empty() && mount.source[0] == '/' && ::stat(mount.source.c_str(), &source) == 0 &&
         SharesStorage(target, source)))
      return mount.mountPoint;
  }
  return "";
}

// What the target holds that a new volume would destroy; empty when
// nothing is recognised.
std::string HeldContents(const Disk& disk) {
  uint8_t start[kExtMagicOffset + sizeof kExtMagic] = {};
  if (!disk.source->ReadAt(0, start, std::min<uint64_t>(sizeof start, disk.source->Size()))) return "";
  if (ParseVolumeHeader(start)) return "a BitLocker volume";
  if (!ReadPartitionTable(*disk.source, disk.sectorSize).empty()) return "a partition table";
  const FilesystemType type = DetectFilesystem(start);
  if (type != FilesystemType::kUnknown) return std::string("a file system (") + FilesystemName(type) + ")";
  if (std::memcmp(start + kExtMagicOffset, kExtMagic, sizeof kExtMagic) == 0) return "a file system (ext)";
  return "";
}

// The password, asked twice at a terminal; nullopt after saying why.
std::optional<std::string> ReadNewPassword() {
  auto password = ReadCredential("New password: ");
  if (!password || password->empty()) {
    std::cerr << "zq-bitlocker: no password was given\n";
    return std::nullopt;
  }
  if (!::isatty(STDIN_FILENO)) return password;
  auto again = ReadCredential("The password again: ");
  const bool same = again && *again == *password;
  if (again) WipeCredential(&*again);
  if (same) return password;
  WipeCredential(&*password);
  std::cerr << "zq-bitlocker: the two passwords differ\n";
  return std::nullopt;
}

bool WriteAll(int fd, const std::string& text) {
  return ::write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

// Undoes what a failed creation made: the new image file, the recovery
// file and the startup key file in its folder.
struct Leftovers {
  std::string image, recoveryFile, startupKeyFile;
  int startupKeyFolder = -1;
  ~Leftovers() {
    if (!image.empty()) ::unlink(image.c_str());
    if (!recoveryFile.empty()) ::unlink(recoveryFile.c_str());
    if (!startupKeyFile.empty()) ::unlinkat(startupKeyFolder, startupKeyFile.c_str(), 0);
    if (startupKeyFolder >= 0) ::close(startupKeyFolder);
  }
};

// Writes the .BEK file as a new file in the folder, never through a link
// or over a file already there.
bool SaveStartupKey(Leftovers* leftovers, const std::string& name, const CSecureBuffer& contents, std::string* why) {
  const int fd = ::openat(leftovers->startupKeyFolder, name.c_str(),
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) {
    *why = name + ": " + std::strerror(errno);
    return false;
  }
  leftovers->startupKeyFile = name;
  const bool saved = ::write(fd, contents.data(), contents.size()) == static_cast<ssize_t>(contents.size()) &&
                     ::fsync(fd) == 0;
  if (!saved) *why = name + ": " + std::strerror(errno);
  ::close(fd);
  return saved;
}

}  // namespace

std::string CreateRefusal(const Options& options) {
  const std::string& target = options.devices.front();
  struct stat info;
  const bool exists = ::stat(target.c_str(), &info) == 0;
  if (exists && options.size != 0) return target + " exists: --size is only for a new image file";
  if (!exists && options.size == 0) return target + " does not exist: give --size to make a new image file";
  struct stat unused;
  if (!options.recoveryFile.empty() && ::lstat(options.recoveryFile.c_str(), &unused) == 0)
    return options.recoveryFile + " exists: the recovery password is never written over a file";
  const std::string& keys = options.startupKeyDir;
  if (!keys.empty() && (::stat(keys.c_str(), &unused) != 0 || !S_ISDIR(unused.st_mode)))
    return keys + " is no folder: --startup-key-dir names an existing one";
  if (!exists) return "";
  if (!S_ISREG(info.st_mode) && !S_ISBLK(info.st_mode)) return target + " is no image file or block device";
  const std::string mountPoint = MountedAt(target, info);
  if (!mountPoint.empty()) return target + " is mounted at " + mountPoint + ": unmount it first";
  const std::optional<Disk> disk = OpenDisk(target);
  if (!disk) return target + ": " + std::strerror(errno);
  if (disk->sectorSize != kSectorSize)
    return target + " has " + std::to_string(disk->sectorSize) + "-byte sectors: volumes are made with 512-byte ones";
  const std::string contents = HeldContents(*disk);
  if (!contents.empty() && !options.force) return target + " holds " + contents + ": give --force to replace it";
  return "";
}

int RunCreate(const Options& options, ProgressStyle style) {
  const std::string& target = options.devices.front();
  Leftovers leftovers;
  if (options.size != 0) {
    const int fd = ::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) return Fail(Status::kIoError, target, std::strerror(errno));
    leftovers.image = target;
    const bool sized = ::ftruncate(fd, static_cast<off_t>(options.size)) == 0;
    ::close(fd);
    if (!sized) return Fail(Status::kIoError, target, std::strerror(errno));
  }
  std::shared_ptr<CFileSource> source = CFileSource::Open(target, Access::kReadWrite);
  if (!source) return Fail(Status::kIoError, target, std::strerror(errno));
  if (!source->writable()) return Fail(Status::kIoError, target, "it cannot be written");
  if (!options.startupKeyDir.empty()) {
    leftovers.startupKeyFolder = ::open(options.startupKeyDir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (leftovers.startupKeyFolder < 0) return Fail(Status::kIoError, options.startupKeyDir, std::strerror(errno));
  }
  int recoveryFd = -1;
  if (!options.recoveryFile.empty()) {
    recoveryFd = ::open(options.recoveryFile.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (recoveryFd < 0) return Fail(Status::kIoError, options.recoveryFile, std::strerror(errno));
    leftovers.recoveryFile = options.recoveryFile;
  }

  auto password = ReadNewPassword();
  if (!password) {
    if (recoveryFd >= 0) ::close(recoveryFd);
    return kUsageError;
  }
  NewVolume request;
  request.method = MethodOf(options.cipher);
  request.password = std::move(*password);
  WipeCredential(&*password);
  request.description = options.description.value_or(DefaultDescription());
  request.creationTime = FiletimeNow();
  request.wipe = !options.quick;
  const StopSignal stop;
  std::optional<WriteProgress> progress;
  uint64_t wiped = 0;
  request.wipeProgress = [&](uint64_t written, uint64_t total) {
    if (!progress) progress.emplace(kWiping, total, style, std::cerr);
    progress->Update(wiped = written);
    return !stop.asked();
  };
  if (leftovers.startupKeyFolder >= 0) {
    request.saveStartupKey = [&](const Guid& id, const CSecureBuffer& contents, std::string* why) {
      return SaveStartupKey(&leftovers, StartupKeyFileName(id), contents, why);
    };
  }
  CreatedVolume created;
  std::string why;
  const Status status = bitlocker::CreateVolume(source, request, &created, &why);
  WipeCredential(&request.password);
  if (progress) progress->Finish(wiped);
  if (status != Status::kOk) {
    if (recoveryFd >= 0) ::close(recoveryFd);
    if (!stop.asked()) return Fail(status, target, why);
    std::cerr << "zq-bitlocker: interrupted after " << wiped << " bytes; "
              << (leftovers.image.empty() ? target + " is no BitLocker volume: its first sectors are cleared, "
                                                     "and its old contents are overwritten only as far as the wipe came"
                                          : "the new image file " + target + " is removed")
              << "\n";
    return kInterrupted;
  }
  if (recoveryFd >= 0) {
    const bool saved =
        WriteAll(recoveryFd, created.recoveryPassword) && WriteAll(recoveryFd, "\n") && ::fsync(recoveryFd) == 0;
    const int savedErrno = errno;
    ::close(recoveryFd);
    if (!saved) {
      std::cerr << "zq-bitlocker: " << options.recoveryFile << ": " << std::strerror(savedErrno)
                << "; the recovery password is only shown below\n";
    } else {
      leftovers.recoveryFile.clear();
    }
  }
  leftovers.image.clear();
  const std::string startupKeyFile = leftovers.startupKeyFile;
  leftovers.startupKeyFile.clear();

  std::cerr << "zq-bitlocker: " << target << ": made a BitLocker volume " << created.volumeId.ToString() << " ("
            << EncryptionMethodName(request.method) << ") with no file system yet; one may take its first "
            << created.dataSize << " bytes (" << SizeText(created.dataSize) << ")\n";
  if (options.quick) {
    std::cerr << "zq-bitlocker: --quick: the old contents of " << target
              << " were not overwritten and stay readable on it, in the clear\n";
  }
  if (!startupKeyFile.empty())
    std::cerr << "zq-bitlocker: the startup key is in " << options.startupKeyDir << "/" << startupKeyFile << "\n";
  std::cerr << "zq-bitlocker: the recovery password, shown only this once:\n";
  std::cout << created.recoveryPassword << std::endl;
  WipeCredential(&created.recoveryPassword);
  return 0;
}
