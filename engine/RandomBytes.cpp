#include "engine/RandomBytes.h"

#include <sys/random.h>

#include <algorithm>

namespace bitlocker {
namespace {

// The most getentropy gives in one call.
constexpr size_t kEntropyCall = 256;

}  // namespace

std::optional<CSecureBuffer> RandomBytes(size_t size) {
  CSecureBuffer bytes(size);
  for (size_t at = 0; at < size; at += kEntropyCall) {
    if (::getentropy(bytes.data() + at, std::min(kEntropyCall, size - at)) != 0) return std::nullopt;
  }
  return bytes;
}

}  // namespace bitlocker
