#include "engine/CSecureBuffer.h"

#include <openssl/crypto.h>

#include <utility>

namespace bitlocker {

CSecureBuffer::CSecureBuffer(size_t size) : bytes_(size, 0) {}

CSecureBuffer::CSecureBuffer(const uint8_t* data, size_t size) : bytes_(data, data + size) {}

CSecureBuffer::CSecureBuffer(const CSecureBuffer& other) : bytes_(other.bytes_) {}

CSecureBuffer::CSecureBuffer(CSecureBuffer&& other) noexcept : bytes_(std::move(other.bytes_)) {
  other.bytes_.clear();
}

CSecureBuffer& CSecureBuffer::operator=(const CSecureBuffer& other) {
  if (this != &other) {
    Clear();
    bytes_ = other.bytes_;
  }
  return *this;
}

CSecureBuffer& CSecureBuffer::operator=(CSecureBuffer&& other) noexcept {
  if (this != &other) {
    Clear();
    bytes_ = std::move(other.bytes_);
    other.bytes_.clear();
  }
  return *this;
}

CSecureBuffer::~CSecureBuffer() { Clear(); }

CSecureBuffer CSecureBuffer::Slice(size_t offset, size_t length) const {
  if (offset > bytes_.size() || length > bytes_.size() - offset) return CSecureBuffer();
  return CSecureBuffer(bytes_.data() + offset, length);
}

void CSecureBuffer::Clear() {
  if (!bytes_.empty()) OPENSSL_cleanse(bytes_.data(), bytes_.size());
  bytes_.clear();
}

}  // namespace bitlocker
