#include "tools/zq-bitlocker/COffsetSource.h"

#include <cerrno>

bool COffsetSource::ReadAt(uint64_t offset, void* buffer, size_t length) const {
  if (offset > size_ || length > size_ - offset) {
    errno = EIO;
    return false;
  }
  return source_->ReadAt(offset_ + offset, buffer, length);
}
