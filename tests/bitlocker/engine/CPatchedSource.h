// An image source with some of its bytes replaced, for making damaged or
// changed volumes in tests without copying the image.
#ifndef ZQ_TESTS_BITLOCKER_ENGINE_CPATCHEDSOURCE_H_
#define ZQ_TESTS_BITLOCKER_ENGINE_CPATCHEDSOURCE_H_

#include <map>
#include <memory>
#include <vector>

#include "IByteSource.h"

class CPatchedSource : public bitlocker::IByteSource {
 public:
  explicit CPatchedSource(std::shared_ptr<const bitlocker::IByteSource> base) : base_(std::move(base)) {}

  void Patch(uint64_t offset, const std::vector<uint8_t>& bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) patches_[offset + i] = bytes[i];
  }
  uint8_t ByteAt(uint64_t offset) const {
    uint8_t byte = 0;
    ReadAt(offset, &byte, 1);
    return byte;
  }

  uint64_t Size() const override { return base_->Size(); }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override {
    if (!base_->ReadAt(offset, buffer, length)) return false;
    auto* out = static_cast<uint8_t*>(buffer);
    for (auto it = patches_.lower_bound(offset); it != patches_.end() && it->first < offset + length;
         ++it) {
      out[it->first - offset] = it->second;
    }
    return true;
  }

 private:
  std::shared_ptr<const bitlocker::IByteSource> base_;
  std::map<uint64_t, uint8_t> patches_;
};

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_CPATCHEDSOURCE_H_
