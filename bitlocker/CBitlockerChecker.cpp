#include "bitlocker/CBitlockerChecker.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "bitlocker/DeviceNames.h"
#include "bitlocker/PackageLibrary.h"
#include "platform/Devices.h"
#include "platform/Mounts.h"

const char* pszBitlockerMark = "-FVE-FS-";

namespace {

constexpr uint32_t kFallbackBlockSize = 512;
constexpr size_t kSignatureWindow = 16;
constexpr off_t kMarkerOffsetPosition = 16;

// The signature counts only when no zero byte precedes it in the window.
bool WindowHoldsSignature(const std::vector<char>& block) {
  char window[kSignatureWindow + 1] = {};
  std::memcpy(window, block.data(), std::min(block.size(), kSignatureWindow));
  return std::strstr(window, pszBitlockerMark) != nullptr;
}

// A marker file keeps the signature's offset as eight bytes, least
// significant first, each taken as a signed byte: a byte of 0x80 or more
// borrows from the byte above it.
int64_t MarkerOffset(const unsigned char bytes[8]) {
  int64_t offset = 0;
  for (int i = 7; i >= 0; --i) offset = offset * 256 + static_cast<signed char>(bytes[i]);
  return offset;
}

// The text after the last dot of a file name, as a path extension.
std::string PathExtension(const std::string& name) {
  const size_t dot = name.rfind('.');
  return dot == std::string::npos || dot == 0 ? "" : name.substr(dot + 1);
}

std::vector<std::string> DirectoryEntries(const std::optional<std::string>& path) {
  std::vector<std::string> names;
  if (!path) return names;
  DIR* directory = opendir(path->c_str());
  if (directory == nullptr) return names;
  while (dirent* entry = readdir(directory)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) names.push_back(entry->d_name);
  }
  closedir(directory);
  return names;
}

// The marker file to follow: the first with extension " BL", else the first
// with " bl", in listing order.
std::optional<std::string> FindMarkerFile(const std::optional<std::string>& volumePath) {
  const std::vector<std::string> names = DirectoryEntries(volumePath);
  for (const char* extension : {" BL", " bl"}) {
    for (const std::string& name : names)
      if (PathExtension(name) == extension) return name;
  }
  return std::nullopt;
}

class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : fd_(fd) {}
  ~FileDescriptor() {
    if (fd_ != -1) close(fd_);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

}  // namespace

CBitlockerChecker::CBitlockerChecker() : diskDescriptor_(-1) {}

CBitlockerChecker::~CBitlockerChecker() {
  if (diskDescriptor_ != -1) close(diskDescriptor_);
}

std::string CBitlockerChecker::getDeviceRname(const char* devicePath) { return RawDevicePath(devicePath); }

bool CBitlockerChecker::IsBitlocker(const char* bsdName) {
  const IsBitlockerDriveFunction isBitlockerDrive = PackageIsBitlockerDrive();
  if (isBitlockerDrive == nullptr) return false;
  const std::optional<std::string> name = bsdName ? std::optional<std::string>(bsdName) : std::nullopt;
  const std::string rawDevice = getDeviceRname(BlockDevicePath(name).c_str());
  return isBitlockerDrive(rawDevice.c_str());
}

bool CBitlockerChecker::openDisk(const char* bsdName) {
  if (diskDescriptor_ != -1) {
    close(diskDescriptor_);
    diskDescriptor_ = -1;
  }
  const std::string devicePath = BlockDevicePath(bsdName ? std::optional<std::string>(bsdName) : std::nullopt);
  struct stat info;
  if (stat(devicePath.c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) return false;
  diskDescriptor_ = open(devicePath.c_str(), O_RDONLY | O_CLOEXEC);
  if (diskDescriptor_ == -1) {
    const std::string rawName = platform::RawDeviceName(info.st_rdev);
    if (!rawName.empty()) diskDescriptor_ = open(("/dev/" + rawName).c_str(), O_RDONLY | O_CLOEXEC);
  }
  return diskDescriptor_ != -1;
}

uint32_t CBitlockerChecker::getBlockSize() {
  const std::optional<platform::DeviceGeometry> geometry = platform::QueryDeviceGeometry(diskDescriptor_);
  return geometry ? geometry->blockSize : kFallbackBlockSize;
}

std::optional<std::string> CBitlockerChecker::bsdNameToFilePath(const char* bsdName) {
  if (bsdName == nullptr) return std::nullopt;
  return platform::VolumeMountPath(bsdName);
}

bool CBitlockerChecker::checkBitlockerMark(const char* bsdName) {
  if (diskDescriptor_ == -1) return false;
  std::vector<char> block(getBlockSize(), 0);
  if (pread(diskDescriptor_, block.data(), block.size(), 0) == -1) return false;
  if (WindowHoldsSignature(block)) return true;

  const std::optional<std::string> volumePath = bsdNameToFilePath(bsdName);
  const std::optional<std::string> marker = FindMarkerFile(volumePath);
  if (!marker) return false;
  // The volume is the user's: its marker may be a link to a file of root's
  // or a FIFO that never answers, and only a plain file of its own counts.
  const FileDescriptor markerFile(
      open((*volumePath + "/" + *marker).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat markerInfo;
  if (markerFile.get() == -1 || fstat(markerFile.get(), &markerInfo) != 0 || !S_ISREG(markerInfo.st_mode)) return false;
  unsigned char offsetBytes[8];
  if (pread(markerFile.get(), offsetBytes, sizeof offsetBytes, kMarkerOffsetPosition) != sizeof offsetBytes)
    return false;
  if (pread(diskDescriptor_, block.data(), block.size(), MarkerOffset(offsetBytes)) == -1) return false;
  return WindowHoldsSignature(block);
}
