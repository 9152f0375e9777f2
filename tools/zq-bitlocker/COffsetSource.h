// A stretch of another IByteSource, seen as a source of its own: a volume
// that starts inside a disk image or a whole-disk device.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_COFFSETSOURCE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_COFFSETSOURCE_H_

#include <memory>
#include <utility>

#include "engine/IByteSource.h"

class COffsetSource : public bitlocker::IByteSource {
 public:
  // The `size` bytes of `source` from `offset`; the caller keeps both within
  // the source.
  COffsetSource(std::shared_ptr<const bitlocker::IByteSource> source, uint64_t offset, uint64_t size)
      : source_(std::move(source)), offset_(offset), size_(size) {}

  uint64_t Size() const override { return size_; }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override;

 private:
  std::shared_ptr<const bitlocker::IByteSource> source_;
  uint64_t offset_;
  uint64_t size_;
};

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_COFFSETSOURCE_H_
