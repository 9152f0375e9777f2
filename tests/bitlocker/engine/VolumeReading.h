// Reading whole volumes in tests.
#ifndef ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_
#define ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_

#include <algorithm>
#include <cstdint>
#include <vector>

#include "IVolume.h"

// The whole volume, read front to back in `chunk`-byte reads; empty when a
// read fails or the volume ends early.
inline std::vector<uint8_t> ReadWholeVolume(IVolume& volume, size_t chunk = 4 * 1024 * 1024) {
  std::vector<uint8_t> bytes(volume.Size());
  for (uint64_t offset = 0; offset < bytes.size();) {
    const size_t want = static_cast<size_t>(std::min<uint64_t>(chunk, bytes.size() - offset));
    const ssize_t got = volume.Read(offset, bytes.data() + offset, want);
    if (got <= 0) return {};
    offset += static_cast<uint64_t>(got);
  }
  return bytes;
}

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_
