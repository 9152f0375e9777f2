#include "engine/CFileSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/DataSync.h"
#include "platform/Devices.h"

namespace bitlocker {
namespace {

// How much a read through whole blocks takes at a time.
constexpr size_t kBlockWindow = 1024 * 1024;

}  // namespace

std::unique_ptr<CFileSource> CFileSource::Open(const std::string& path, Access access,
                                               uint32_t alignment) {
  int fd = access == Access::kReadWrite ? ::open(path.c_str(), O_RDWR | O_CLOEXEC) : -1;
  bool writable = fd >= 0;
  if (!writable) fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  std::optional<platform::DeviceGeometry> geometry;
  uint32_t needed = 1;
  if (::fstat(fd, &st) == 0) {
    if (S_ISREG(st.st_mode)) {
      geometry = platform::DeviceGeometry{static_cast<uint64_t>(st.st_size), 1};
    } else if (S_ISBLK(st.st_mode) || S_ISCHR(st.st_mode)) {
      geometry = platform::QueryDeviceGeometry(fd);
      // Block devices are read through the system's cache, which takes any
      // offset; raw devices are not.
      if (geometry && S_ISCHR(st.st_mode)) needed = std::max(1u, geometry->blockSize);
    } else {
      errno = EINVAL;
    }
  }
  if (!geometry) {
    int saved = errno;
    ::close(fd);
    errno = saved ? saved : EINVAL;
    return nullptr;
  }
  writable = writable && !geometry->readOnly;
  return std::unique_ptr<CFileSource>(
      new CFileSource(fd, geometry->size, alignment ? alignment : needed, writable));
}

CFileSource::~CFileSource() { ::close(fd_); }

bool CFileSource::ReadAt(uint64_t offset, void* buffer, size_t length) const {
  auto* out = static_cast<uint8_t*>(buffer);
  if (offset % alignment_ == 0 && length % alignment_ == 0) return ReadExactly(offset, out, length);
  return ReadThroughBlocks(offset, out, length);
}

bool CFileSource::ReadExactly(uint64_t offset, uint8_t* out, size_t length) const {
  while (length > 0) {
    ssize_t got = ::pread(fd_, out, length, static_cast<off_t>(offset));
    if (got < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (got == 0) {
      errno = EIO;
      return false;
    }
    out += got;
    offset += static_cast<uint64_t>(got);
    length -= static_cast<size_t>(got);
  }
  return true;
}

bool CFileSource::WriteAt(uint64_t offset, const void* buffer, size_t length) const {
  if (offset % alignment_ != 0 || length % alignment_ != 0) {
    errno = EINVAL;
    return false;
  }
  auto* in = static_cast<const uint8_t*>(buffer);
  while (length > 0) {
    ssize_t put = ::pwrite(fd_, in, length, static_cast<off_t>(offset));
    if (put < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (put == 0) {
      errno = EIO;
      return false;
    }
    in += put;
    offset += static_cast<uint64_t>(put);
    length -= static_cast<size_t>(put);
  }
  return true;
}

bool CFileSource::Sync() const { return platform::SyncDeviceData(fd_); }

bool CFileSource::ReadThroughBlocks(uint64_t offset, uint8_t* out, size_t length) const {
  std::vector<uint8_t> window;
  while (length > 0) {
    uint64_t start = offset / alignment_ * alignment_;
    size_t skip = static_cast<size_t>(offset - start);
    size_t span = std::min(kBlockWindow, skip + length);
    span = (span + alignment_ - 1) / alignment_ * alignment_;
    // A file whose size is not a whole number of blocks ends mid-block.
    if (start < size_) span = static_cast<size_t>(std::min<uint64_t>(span, size_ - start));
    if (span <= skip) {
      errno = EIO;
      return false;
    }
    window.resize(span);
    if (!ReadExactly(start, window.data(), span)) return false;
    size_t take = std::min(length, span - skip);
    std::memcpy(out, window.data() + skip, take);
    out += take;
    offset += take;
    length -= take;
  }
  return true;
}

}  // namespace bitlocker
