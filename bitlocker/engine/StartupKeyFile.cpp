#include "StartupKeyFile.h"

#include "AesCcm.h"
#include "CFileSource.h"
#include "FveMetadata.h"

namespace bitlocker {
namespace {

constexpr size_t kExternalKeyPropertiesOffset = 24;
constexpr size_t kStartupKeySize = 32;
// Startup key files are a few hundred bytes; anything far larger is not one.
constexpr uint64_t kMaxFileSize = 64 * 1024;

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
  *ioError = false;
  auto file = CFileSource::Open(path);
  if (!file) {
    *ioError = true;
    return std::nullopt;
  }
  if (file->Size() > kMaxFileSize) return std::nullopt;
  CSecureBuffer contents(static_cast<size_t>(file->Size()));
  if (!file->ReadAt(0, contents.data(), contents.size())) {
    *ioError = true;
    return std::nullopt;
  }
  return ParseStartupKeyFile(contents.data(), contents.size());
}

}  // namespace bitlocker
