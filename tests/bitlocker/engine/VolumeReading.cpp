#include "VolumeReading.h"

std::vector<uint8_t> ReadWholeVolume(IVolume& volume, size_t chunk) {
  std::vector<uint8_t> bytes(volume.Size());
  for (uint64_t offset = 0; offset < bytes.size();) {
    size_t want = static_cast<size_t>(std::min<uint64_t>(chunk, bytes.size() - offset));
    ssize_t got = volume.Read(offset, bytes.data() + offset, want);
    if (got <= 0) return {};
    offset += static_cast<uint64_t>(got);
  }
  return bytes;
}
