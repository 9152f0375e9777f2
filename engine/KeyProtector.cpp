#include "engine/KeyProtector.h"

#include <cstdio>

#include "engine/AesCcm.h"
#include "engine/Bytes.h"
#include "engine/KeyDerivation.h"

namespace bitlocker {
namespace {

constexpr size_t kPropertiesOffset = 28;
constexpr size_t kStretchSaltOffset = 4;
constexpr size_t kVolumeMasterKeySize = 32;

// Tries every AES-CCM key among the protector's properties; the MAC tells
// the right one.
std::optional<CSecureBuffer> OpenSealedKey(const KeyProtector& protector,
                                           const CSecureBuffer& key) {
  for (const auto& property : protector.properties) {
    if (property.valueType != kValueAesCcmKey) continue;
    auto unwrapped = UnwrapKeyEntry(property, key);
    if (unwrapped && unwrapped->key.size() == kVolumeMasterKeySize) return std::move(unwrapped->key);
  }
  return std::nullopt;
}

}  // namespace

std::vector<KeyProtector> ListKeyProtectors(const FveMetadata& metadata) {
  std::vector<KeyProtector> protectors;
  for (const auto& entry : metadata.entries) {
    if (entry.type != kEntryVolumeMasterKey || entry.valueType != kValueVolumeMasterKey) continue;
    if (entry.value.size() < kPropertiesOffset) continue;
    auto properties = ParseNestedEntries(entry, kPropertiesOffset);
    if (!properties) continue;
    KeyProtector protector;
    protector.id = Guid::FromBytes(entry.value.data());
    protector.modified = LoadLe64(entry.value.data() + 16);
    protector.protection = LoadLe16(entry.value.data() + 26);
    protector.properties = std::move(*properties);
    protectors.push_back(std::move(protector));
  }
  return protectors;
}

std::string ProtectionName(uint16_t protection) {
  switch (protection) {
    case kProtectionClearKey:
      return "clear key";
    case kProtectionTpm:
      return "TPM";
    case kProtectionStartupKey:
      return "startup key";
    case kProtectionTpmAndPin:
      return "TPM and PIN";
    case kProtectionRecoveryPassword:
      return "recovery password";
    case kProtectionSmartCard:
      return "smart card";
    case kProtectionPassword:
      return "password";
  }
  char text[32];
  std::snprintf(text, sizeof(text), "protection 0x%04x", protection);
  return text;
}

std::optional<CSecureBuffer> OpenWithSecretHash(const KeyProtector& protector,
                                                const CSecureBuffer& hash, StretchCache* cache) {
  const MetadataEntry* stretch = FindByValueType(protector.properties, kValueStretchKey);
  if (!stretch || stretch->value.size() < kStretchSaltOffset + kSaltSize) return std::nullopt;
  const uint8_t* salt = stretch->value.data() + kStretchSaltOffset;
  std::vector<uint8_t> saltKey(salt, salt + kSaltSize);
  auto cached = cache->find(saltKey);
  if (cached == cache->end()) {
    cached = cache->emplace(saltKey, StretchKey(hash, salt)).first;
  }
  return OpenSealedKey(protector, cached->second);
}

std::optional<CSecureBuffer> OpenWithExternalKey(const KeyProtector& protector,
                                                 const CSecureBuffer& key) {
  return OpenSealedKey(protector, key);
}

std::optional<CSecureBuffer> OpenWithClearKey(const KeyProtector& protector) {
  const MetadataEntry* clear = FindByValueType(protector.properties, kValueKey);
  if (!clear) return std::nullopt;
  auto key = ReadKeyEntry(*clear);
  if (!key) return std::nullopt;
  return OpenSealedKey(protector, key->key);
}

}  // namespace bitlocker
