// Opening, unlocking and reading whole volumes in tests.
#ifndef ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_
#define ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_

#include <algorithm>
#include <memory>
#include <vector>

#include "CBitlockerVolume.h"
#include "TestImages.h"

// Opens and unlocks the volume on `source`: kOk, or the first failure with
// the reason in *why.
inline bitlocker::Status Unlock(std::shared_ptr<const bitlocker::IByteSource> source,
                                const bitlocker::Credential& credential, std::string* why,
                                std::unique_ptr<bitlocker::CUnlockedVolume>* unlocked) {
  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  const bitlocker::Status status = bitlocker::CBitlockerVolume::Open(std::move(source), &volume, why);
  return status != bitlocker::Status::kOk ? status : volume->Unlock(credential, unlocked, why);
}

// The whole volume, read front to back in `chunk`-byte reads; empty when a
// read fails or the volume ends early.
inline std::vector<uint8_t> ReadWholeVolume(IVolume& volume, size_t chunk = 4 * 1024 * 1024) {
  std::vector<uint8_t> bytes(volume.Size());
  for (uint64_t offset = 0; offset < bytes.size();) {
    const ssize_t got = volume.Read(offset, bytes.data() + offset, std::min<uint64_t>(chunk, bytes.size() - offset));
    if (got <= 0) return {};
    offset += static_cast<uint64_t>(got);
  }
  return bytes;
}

inline std::string Digest(const std::vector<uint8_t>& bytes) { return testimages::Sha256Hex(bytes.data(), bytes.size()); }

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_VOLUMEREADING_H_
