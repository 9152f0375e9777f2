// FVE metadata entries: the typed, nested records that hold a volume's key
// protectors, its encrypted keys and its properties.
#ifndef ZQ_ENGINE_METADATAENTRY_H_
#define ZQ_ENGINE_METADATAENTRY_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "engine/CSecureBuffer.h"

namespace bitlocker {

// What an entry is for.  Entries nested inside another are properties (0).
enum EntryType : uint16_t {
  kEntryProperty = 0x0000,
  kEntryVolumeMasterKey = 0x0002,
  kEntryFullVolumeKey = 0x0003,
  kEntryStartupKey = 0x0006,
  kEntryDescription = 0x0007,
  kEntryVolumeHeaderBlock = 0x000f,
};

// How an entry's value is laid out.
enum ValueType : uint16_t {
  kValueErased = 0x0000,
  kValueKey = 0x0001,
  kValueUnicodeString = 0x0002,
  kValueStretchKey = 0x0003,
  kValueUseKey = 0x0004,
  kValueAesCcmKey = 0x0005,
  kValueTpmKey = 0x0006,
  kValueValidation = 0x0007,
  kValueVolumeMasterKey = 0x0008,
  kValueExternalKey = 0x0009,
  kValueOffsetAndSize = 0x000f,
};

struct MetadataEntry {
  static constexpr size_t kHeaderSize = 8;

  uint16_t type = 0;
  uint16_t valueType = 0;
  uint16_t version = 0;
  // The bytes after the 8-byte entry header; wiped on destruction, since
  // some entries hold keys in the clear.
  CSecureBuffer value;
};

// Parses the entries packed in `size` bytes.  A zero entry size ends the
// list early (padding).  Returns nullopt when an entry is shorter than its
// header or runs past the end.
std::optional<std::vector<MetadataEntry>> ParseEntries(const uint8_t* data, size_t size);

// The nested entries of an entry's value from byte `offset` on; nullopt when
// the value is too short or they are malformed.
std::optional<std::vector<MetadataEntry>> ParseNestedEntries(const MetadataEntry& entry,
                                                             size_t offset);

// Appends an entry (header, then `value`) to the bytes of a metadata copy
// being made.  Entries are version 1 unless told otherwise.
void AppendEntry(std::vector<uint8_t>* out, uint16_t type, uint16_t valueType, const uint8_t* value,
                 size_t size, uint16_t version = 1);

// The first entry of `entries` with this value type, or null.
const MetadataEntry* FindByValueType(const std::vector<MetadataEntry>& entries, uint16_t valueType);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_METADATAENTRY_H_
