// An IByteSource over a block device or a regular file, opened read-only.
#ifndef ZQ_BITLOCKER_ENGINE_CFILESOURCE_H_
#define ZQ_BITLOCKER_ENGINE_CFILESOURCE_H_

#include <memory>
#include <string>

#include "IByteSource.h"

namespace bitlocker {

class CFileSource : public IByteSource {
 public:
  // Opens `path`; returns null with errno set when it cannot be opened or
  // its size cannot be learnt.
  static std::unique_ptr<CFileSource> Open(const std::string& path);
  ~CFileSource() override;

  CFileSource(const CFileSource&) = delete;
  CFileSource& operator=(const CFileSource&) = delete;

  uint64_t Size() const override { return size_; }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override;

 private:
  CFileSource(int fd, uint64_t size) : fd_(fd), size_(size) {}

  int fd_;
  uint64_t size_;
};

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_CFILESOURCE_H_
