#include "engine/StartupKeyFile.h"

#include "engine/AesCcm.h"
#include "engine/FveMetadata.h"
#include "engine/UserFileReader.h"

namespace bitlocker {
namespace {

constexpr size_t kExternalKeyPropertiesOffset = 24;
constexpr size_t kStartupKeySize = 32;
// Startup key files are a few hundred bytes; anything far larger is not one.
constexpr size_t kMaxFileSize = 64 * 1024;

}  // namespace

std::optional<std::vector<StartupKey>> ParseStartupKeyFile(const uint8_t* data, size_t size) {
  auto metadata = ParseFveMetadata(data, size);
  if (!metadata) return std::nullopt;
  std::vector<StartupKey> keys;
  for (const auto& entry : metadata->entries) {
    if (entry.valueType != kValueExternalKey || entry.value.size() < kExternalKeyPropertiesOffset) {
      continue;
    }
    auto properties = ParseNestedEntries(entry, kExternalKeyPropertiesOffset);
    if (!properties) continue;
    // Newer files carry a description string before the key; look for the
    // key among all the properties rather than in a fixed place.
    for (const auto& property : *properties) {
      auto key = ReadKeyEntry(property);
      if (!key || key->key.size() != kStartupKeySize) continue;
      keys.push_back({Guid::FromBytes(entry.value.data()), std::move(key->key)});
    }
  }
  if (keys.empty()) return std::nullopt;
  return keys;
}

std::optional<std::vector<StartupKey>> ReadStartupKeyFile(const std::string& path, bool* ioError) {
  CSecureBuffer contents;
  const UserRead read = ReadFileAsUser(path, kMaxFileSize, &contents);
  *ioError = read == UserRead::kIoError;
  if (read != UserRead::kRead) return std::nullopt;
  return ParseStartupKeyFile(contents.data(), contents.size());
}

}  // namespace bitlocker
