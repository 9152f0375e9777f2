// A BitLocker library for the mounter's tests, whose "BitLocker volumes" are
// plain files and devices: the credential "plain" opens any of them as it is.  Other
// credentials choose the library's failures, so that the mounter's
// answers to each can be tested without encrypted images:
//   "not-bitlocker", "unsupported", anything else: wrong.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "bitlocker/IVolume.h"

namespace {

// The file's bytes are the unlocked volume.
class CFileVolume : public IVolume {
 public:
  CFileVolume(int fd, uint64_t size, bool writable) : fd_(fd), size_(size), writable_(writable) {}
  ~CFileVolume() override { close(fd_); }
  uint64_t Size() const override { return size_; }
  ssize_t Read(uint64_t offset, void* buffer, size_t length) override {
    return pread(fd_, buffer, length, static_cast<off_t>(offset));  // 0 at the end, short up to it
  }
  const char* ReadOnlyReason() const override { return writable_ ? nullptr : "the device is read-only"; }
  ssize_t Write(uint64_t offset, const void* buffer, size_t length) override {
    if (!writable_) {
      errno = EROFS;
      return -1;
    }
    if (offset >= size_) return 0;
    if (length > size_ - offset) length = static_cast<size_t>(size_ - offset);
    return pwrite(fd_, buffer, length, static_cast<off_t>(offset));
  }
  int Flush() override { return fdatasync(fd_); }

 private:
  int fd_;
  uint64_t size_;
  bool writable_;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) int open_bitlocker_device(const char* rawDevice,
                                                                             const char* credential, IVolume** volume) {
  *volume = nullptr;
  if (std::strcmp(credential, "not-bitlocker") == 0) return bitlocker::kNotBitlocker;
  if (std::strcmp(credential, "unsupported") == 0) return bitlocker::kUnsupported;
  if (std::strcmp(credential, "plain") != 0) return bitlocker::kWrongCredential;
  int fd = open(rawDevice, O_RDWR | O_CLOEXEC);
  const bool writable = fd >= 0;
  if (!writable) fd = open(rawDevice, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return bitlocker::kIoError;
  *volume = new CFileVolume(fd, static_cast<uint64_t>(lseek(fd, 0, SEEK_END)), writable);  // files and devices alike
  return bitlocker::kOk;
}
