// Random access to the raw bytes of a device or an image file.
#ifndef ZQ_BITLOCKER_ENGINE_IBYTESOURCE_H_
#define ZQ_BITLOCKER_ENGINE_IBYTESOURCE_H_

#include <cstddef>
#include <cstdint>

namespace bitlocker {

class IByteSource {
 public:
  virtual ~IByteSource() = default;

  virtual uint64_t Size() const = 0;

  // Reads exactly `length` bytes at `offset`.  Returns false with errno set
  // when the source fails or ends first.  Safe to call from several threads.
  virtual bool ReadAt(uint64_t offset, void* buffer, size_t length) const = 0;
};

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_IBYTESOURCE_H_
