// An IVolume over a plain file: the file's bytes are the unlocked volume.
#ifndef ZQ_TESTS_BITLOCKER_MOUNTER_CFILEVOLUME_H_
#define ZQ_TESTS_BITLOCKER_MOUNTER_CFILEVOLUME_H_

#include <string>

#include "IVolume.h"

class CFileVolume : public IVolume {
 public:
  explicit CFileVolume(const std::string& path);
  ~CFileVolume() override;
  CFileVolume(const CFileVolume&) = delete;
  CFileVolume& operator=(const CFileVolume&) = delete;

  bool valid() const { return fd_ >= 0; }
  uint64_t Size() const override { return size_; }
  ssize_t Read(uint64_t offset, void* buffer, size_t length) override;

 private:
  int fd_;
  uint64_t size_ = 0;
};

#endif  // ZQ_TESTS_BITLOCKER_MOUNTER_CFILEVOLUME_H_
