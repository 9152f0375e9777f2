// Random access to the raw bytes of a device or an image file.
#ifndef ZQ_ENGINE_IBYTESOURCE_H_
#define ZQ_ENGINE_IBYTESOURCE_H_

#include <cerrno>
#include <cstddef>
#include <cstdint>

namespace bitlocker {

// How a device is opened: for reading only, or for writing too where the
// device allows it (and for reading only where it does not).
enum class Access { kReadOnly, kReadWrite };

class IByteSource {
 public:
  virtual ~IByteSource() = default;

  virtual uint64_t Size() const = 0;

  // Reads exactly `length` bytes at `offset`.  Returns false with errno set
  // when the source fails or ends first.  Safe to call from several threads.
  virtual bool ReadAt(uint64_t offset, void* buffer, size_t length) const = 0;

  // Writes exactly `length` bytes at `offset`, before returning.  Returns
  // false with errno set when the source fails; a source that cannot be
  // written says EROFS.  Safe to call from several threads.
  virtual bool WriteAt(uint64_t, const void*, size_t) const {
    errno = EROFS;
    return false;
  }

  // Makes every write so far durable.  False with errno set when it fails.
  virtual bool Sync() const { return true; }
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_IBYTESOURCE_H_
