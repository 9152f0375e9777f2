// The validation written after each metadata copy of a Windows 7 or later
// volume: the CRC-32 of the copy, which anyone can check, and the SHA-256 of
// the copy wrapped under the volume master key, which only a credential can
// open.  Both cover the copy's block header and metadata, padded to 16 bytes
// (the size the block header gives in 16-byte units).
#ifndef ZQ_ENGINE_METADATAVALIDATION_H_
#define ZQ_ENGINE_METADATAVALIDATION_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "engine/CSecureBuffer.h"
#include "engine/MetadataEntry.h"

namespace bitlocker {

struct MetadataValidation {
  // The bytes that follow the covered copy: a 4-byte header, the CRC-32,
  // and an AES-CCM entry of 80 bytes.
  static constexpr size_t kSize = 8 + 80;

  std::array<uint8_t, 32> digest{};  // SHA-256 of the covered bytes as read
  MetadataEntry wrappedDigest;       // the SHA-256 Windows wrote, under the master key
};

// CRC-32 as Ethernet and zlib compute it.
uint32_t Crc32(const uint8_t* data, size_t size);

// Checks the CRC-32 that follows the `covered` bytes at `copy` (which holds
// covered + MetadataValidation::kSize bytes) and keeps what a volume master
// key can check later.  nullopt, with the reason in *why, when the CRC-32 is
// wrong or no wrapped SHA-256 follows.
std::optional<MetadataValidation> ReadMetadataValidation(const uint8_t* copy, size_t covered, std::string* why);

// Writes the validation after the `covered` bytes at `copy` (which has room
// for MetadataValidation::kSize more): their CRC-32, and their SHA-256
// wrapped under `volumeMasterKey` with the 12-byte `nonce`.  False when the
// key has the wrong size.
bool SealMetadataCopy(uint8_t* copy, size_t covered, const CSecureBuffer& volumeMasterKey, const uint8_t* nonce);

// Whether the SHA-256 wrapped under `volumeMasterKey` is the copy's.
bool DigestMatches(const MetadataValidation& validation, const CSecureBuffer& volumeMasterKey);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_METADATAVALIDATION_H_
