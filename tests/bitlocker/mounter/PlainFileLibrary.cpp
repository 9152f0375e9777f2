// A BitLocker library for the mounter's tests, whose "BitLocker volumes" are
// plain files and devices: the credential "plain" opens any of them as it is.  Other
// credentials choose the library's failures, so that the mounter's
// answers to each can be tested without encrypted images:
//   "not-bitlocker", "unsupported", anything else: wrong.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "IVolume.h"

namespace {

// The file's bytes are the unlocked volume.
class CFileVolume : public IVolume {
 public:
  CFileVolume(int fd, uint64_t size) : fd_(fd), size_(size) {}
  ~CFileVolume() override { close(fd_); }
  uint64_t Size() const override { return size_; }
  ssize_t Read(uint64_t offset, void* buffer, size_t length) override {
    if (offset >= size_) return 0;
    return pread(fd_, buffer, std::min<uint64_t>(length, size_ - offset), static_cast<off_t>(offset));
  }

 private:
  int fd_;
  uint64_t size_;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int open_bitlocker_device(const char* rawDevice, const char* credential, IVolume** volume) {
  *volume = nullptr;
  if (std::strcmp(credential, "not-bitlocker") == 0) return bitlocker::kNotBitlocker;
  if (std::strcmp(credential, "unsupported") == 0) return bitlocker::kUnsupported;
  if (std::strcmp(credential, "plain") != 0) return bitlocker::kWrongCredential;
  const int fd = open(rawDevice, O_RDONLY | O_CLOEXEC);
  const off_t size = fd < 0 ? -1 : lseek(fd, 0, SEEK_END);  // files and block devices alike
  if (size < 0) {
    if (fd >= 0) close(fd);
    return bitlocker::kIoError;
  }
  *volume = new CFileVolume(fd, static_cast<uint64_t>(size));
  return bitlocker::kOk;
}
