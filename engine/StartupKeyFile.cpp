#include "engine/StartupKeyFile.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <cctype>

#include "engine/AesCcm.h"
#include "engine/Bytes.h"
#include "engine/FveMetadata.h"
#include "engine/KeyDerivation.h"
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

CSecureBuffer ExternalKeyName() {
  const CSecureBuffer text = *Utf8ToUtf16Le("ExternalKey");
  CSecureBuffer terminated(text.size() + 2);
  std::copy(text.data(), text.data() + text.size(), terminated.data());
  return terminated;
}

CSecureBuffer FormatStartupKeyFile(const Guid& id, const CSecureBuffer& key, uint64_t creationTime) {
  const CSecureBuffer name = ExternalKeyName();
  std::vector<uint8_t> keyValue(4 + key.size());
  StoreLe32(kMethodExternalKey, keyValue.data());
  std::copy(key.data(), key.data() + key.size(), keyValue.data() + 4);

  std::vector<uint8_t> external(id.bytes.begin(), id.bytes.end());
  external.resize(kExternalKeyPropertiesOffset);
  StoreLe64(creationTime, external.data() + id.bytes.size());
  AppendEntry(&external, kEntryProperty, kValueUnicodeString, name.data(), name.size());
  AppendEntry(&external, kEntryProperty, kValueKey, keyValue.data(), keyValue.size());

  std::vector<uint8_t> file(FveMetadata::kHeaderSize);
  AppendEntry(&file, kEntryStartupKey, kValueExternalKey, external.data(), external.size());
  const auto size = static_cast<uint32_t>(file.size());
  StoreLe32(size, file.data());
  StoreLe32(1, file.data() + 4);
  StoreLe32(FveMetadata::kHeaderSize, file.data() + 8);
  StoreLe32(size, file.data() + 12);
  std::copy(id.bytes.begin(), id.bytes.end(), file.data() + 16);
  StoreLe32(1, file.data() + 32);
  StoreLe64(creationTime, file.data() + 40);

  CSecureBuffer contents(file.data(), file.size());
  for (std::vector<uint8_t>* copy : {&keyValue, &external, &file}) OPENSSL_cleanse(copy->data(), copy->size());
  return contents;
}

std::string StartupKeyFileName(const Guid& id) {
  std::string name = id.ToString() + ".BEK";
  for (char& c : name) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return name;
}

}  // namespace bitlocker
