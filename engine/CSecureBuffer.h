// A byte buffer for key material: its contents are wiped when it is
// destroyed, cleared or overwritten.
#ifndef ZQ_ENGINE_CSECUREBUFFER_H_
#define ZQ_ENGINE_CSECUREBUFFER_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bitlocker {

class CSecureBuffer {
 public:
  CSecureBuffer() = default;
  explicit CSecureBuffer(size_t size);
  CSecureBuffer(const uint8_t* data, size_t size);
  CSecureBuffer(const CSecureBuffer& other);
  CSecureBuffer(CSecureBuffer&& other) noexcept;
  CSecureBuffer& operator=(const CSecureBuffer& other);
  CSecureBuffer& operator=(CSecureBuffer&& other) noexcept;
  ~CSecureBuffer();

  uint8_t* data() { return bytes_.data(); }
  const uint8_t* data() const { return bytes_.data(); }
  size_t size() const { return bytes_.size(); }
  bool empty() const { return bytes_.empty(); }

  // A copy of `length` bytes from `offset`; empty when out of range.
  CSecureBuffer Slice(size_t offset, size_t length) const;

  // Wipes the contents and leaves the buffer empty.
  void Clear();

  bool operator==(const CSecureBuffer& other) const { return bytes_ == other.bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CSECUREBUFFER_H_
