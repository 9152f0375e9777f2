#include "CFileSource.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "DeviceSize.h"

namespace bitlocker {

std::unique_ptr<CFileSource> CFileSource::Open(const std::string& path) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return nullptr;
  struct stat st;
  uint64_t size = 0;
  bool known = false;
  if (::fstat(fd, &st) == 0) {
    if (S_ISREG(st.st_mode)) {
      size = static_cast<uint64_t>(st.st_size);
      known = true;
    } else if (S_ISBLK(st.st_mode) || S_ISCHR(st.st_mode)) {
      if (auto deviceSize = BlockDeviceSize(fd)) {
        size = *deviceSize;
        known = true;
      }
    } else {
      errno = EINVAL;
    }
  }
  if (!known) {
    int saved = errno;
    ::close(fd);
    errno = saved ? saved : EINVAL;
    return nullptr;
  }
  return std::unique_ptr<CFileSource>(new CFileSource(fd, size));
}

CFileSource::~CFileSource() { ::close(fd_); }

bool CFileSource::ReadAt(uint64_t offset, void* buffer, size_t length) const {
  auto* out = static_cast<uint8_t*>(buffer);
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

}  // namespace bitlocker
