#include "CFileVolume.h"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

CFileVolume::CFileVolume(const std::string& path) : fd_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
  struct stat info;
  if (fd_ < 0 || fstat(fd_, &info) != 0) return;
  if (S_ISBLK(info.st_mode)) {
    ioctl(fd_, BLKGETSIZE64, &size_);
  } else {
    size_ = static_cast<uint64_t>(info.st_size);
  }
}

CFileVolume::~CFileVolume() {
  if (fd_ >= 0) close(fd_);
}

ssize_t CFileVolume::Read(uint64_t offset, void* buffer, size_t length) {
  if (offset >= size_) return 0;
  if (length > size_ - offset) length = static_cast<size_t>(size_ - offset);
  return pread(fd_, buffer, length, static_cast<off_t>(offset));
}
