#include "engine/MetadataValidation.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cstring>

#include "engine/AesCcm.h"
#include "engine/Bytes.h"

namespace bitlocker {
namespace {

// The wrapped entry is a key entry (value type 1, version 0, as Windows
// writes it) whose method is the hash's kind and whose key is the SHA-256.
constexpr size_t kDigestOffset = 12;
constexpr uint16_t kHashSha256 = 0x2005;
// The header before the CRC-32, as every Windows-made copy shows it: the
// room left in the copy's 64 KiB area after the covered bytes, then 2.
constexpr size_t kCopyArea = 0x10000;
constexpr uint16_t kValidationVersion = 2;

std::array<uint8_t, 32> Sha256(const uint8_t* data, size_t size) {
  std::array<uint8_t, 32> digest{};
  unsigned int length = 0;
  EVP_Digest(data, size, digest.data(), &length, EVP_sha256(), nullptr);
  return digest;
}

}  // namespace

uint32_t Crc32(const uint8_t* data, size_t size) {
  uint32_t crc = 0xffffffff;
  for (size_t i = 0; i < size; ++i) {
    crc ^= data[i];
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xedb88320 & (0u - (crc & 1)));
  }
  return ~crc;
}

std::optional<MetadataValidation> ReadMetadataValidation(const uint8_t* copy, size_t covered, std::string* why) {
  const uint8_t* after = copy + covered;
  if (LoadLe32(after + 4) != Crc32(copy, covered)) {
    *why = "its CRC-32 validation is wrong";
    return std::nullopt;
  }
  auto entries = ParseEntries(after + 8, MetadataValidation::kSize - 8);
  if (!entries || entries->empty() || entries->front().valueType != kValueAesCcmKey) {
    *why = "no validation entry follows it";
    return std::nullopt;
  }
  MetadataValidation validation;
  validation.digest = Sha256(copy, covered);
  validation.wrappedDigest = std::move(entries->front());
  return validation;
}

bool SealMetadataCopy(uint8_t* copy, size_t covered, const CSecureBuffer& volumeMasterKey, const uint8_t* nonce) {
  const std::array<uint8_t, 32> digest = Sha256(copy, covered);
  auto value = WrapKeyEntry(kHashSha256, CSecureBuffer(digest.data(), digest.size()), volumeMasterKey, nonce);
  if (!value || MetadataEntry::kHeaderSize + value->size() != MetadataValidation::kSize - 8) return false;

  uint8_t* after = copy + covered;
  StoreLe16(static_cast<uint16_t>(covered < kCopyArea ? kCopyArea - covered : 0), after);
  StoreLe16(kValidationVersion, after + 2);
  StoreLe32(Crc32(copy, covered), after + 4);
  uint8_t* entry = after + 8;
  StoreLe16(static_cast<uint16_t>(MetadataValidation::kSize - 8), entry);
  StoreLe16(kEntryProperty, entry + 2);
  StoreLe16(kValueAesCcmKey, entry + 4);
  StoreLe16(1, entry + 6);
  std::copy(value->data(), value->data() + value->size(), entry + MetadataEntry::kHeaderSize);
  return true;
}

bool DigestMatches(const MetadataValidation& validation, const CSecureBuffer& volumeMasterKey) {
  auto plain = DecryptAesCcmEntry(validation.wrappedDigest, volumeMasterKey);
  return plain && plain->size() >= kDigestOffset + validation.digest.size() &&
         LoadLe16(plain->data() + 8) == kHashSha256 &&
         std::memcmp(plain->data() + kDigestOffset, validation.digest.data(), validation.digest.size()) == 0;
}

}  // namespace bitlocker
