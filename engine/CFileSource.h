// An IByteSource over a block device, a raw (character) disk device or a
// regular file, opened read-only or read-write.
#ifndef ZQ_ENGINE_CFILESOURCE_H_
#define ZQ_ENGINE_CFILESOURCE_H_

#include <memory>
#include <string>

#include "engine/IByteSource.h"

namespace bitlocker {

class CFileSource : public IByteSource {
 public:
  // Opens `path`; returns null with errno set when it cannot be opened or
  // its size cannot be learnt.  With Access::kReadWrite it is opened for
  // writing where it can be, and for reading only where it cannot; see
  // writable().  Raw disk devices only take reads and writes of whole
  // blocks, so reads there go through whole blocks and other writes are
  // refused; `alignment`, when not zero, imposes that block size on any
  // file (tests).
  static std::unique_ptr<CFileSource> Open(const std::string& path,
                                           Access access = Access::kReadOnly,
                                           uint32_t alignment = 0);
  ~CFileSource() override;

  CFileSource(const CFileSource&) = delete;
  CFileSource& operator=(const CFileSource&) = delete;

  uint64_t Size() const override { return size_; }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override;
  bool WriteAt(uint64_t offset, const void* buffer, size_t length) const override;
  bool Sync() const override;

  bool writable() const { return writable_; }

 private:
  CFileSource(int fd, uint64_t size, uint32_t alignment, bool writable)
      : fd_(fd), size_(size), alignment_(alignment), writable_(writable) {}

  bool ReadExactly(uint64_t offset, uint8_t* out, size_t length) const;
  bool ReadThroughBlocks(uint64_t offset, uint8_t* out, size_t length) const;

  int fd_;
  uint64_t size_;
  uint32_t alignment_;  // 1: any offset and length
  bool writable_;
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CFILESOURCE_H_
