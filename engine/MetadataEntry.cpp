#include "engine/MetadataEntry.h"

#include "engine/Bytes.h"

namespace bitlocker {

std::optional<std::vector<MetadataEntry>> ParseEntries(const uint8_t* data, size_t size) {
  std::vector<MetadataEntry> entries;
  size_t at = 0;
  while (size - at >= 2) {
    size_t entrySize = LoadLe16(data + at);
    if (entrySize == 0) break;
    if (entrySize < MetadataEntry::kHeaderSize || entrySize > size - at) return std::nullopt;
    const uint8_t* p = data + at;
    MetadataEntry entry;
    entry.type = LoadLe16(p + 2);
    entry.valueType = LoadLe16(p + 4);
    entry.version = LoadLe16(p + 6);
    entry.value = CSecureBuffer(p + MetadataEntry::kHeaderSize, entrySize - MetadataEntry::kHeaderSize);
    entries.push_back(std::move(entry));
    at += entrySize;
  }
  return entries;
}

std::optional<std::vector<MetadataEntry>> ParseNestedEntries(const MetadataEntry& entry,
                                                             size_t offset) {
  if (entry.value.size() < offset) return std::nullopt;
  return ParseEntries(entry.value.data() + offset, entry.value.size() - offset);
}

const MetadataEntry* FindByValueType(const std::vector<MetadataEntry>& entries,
                                     uint16_t valueType) {
  for (const auto& entry : entries) {
    if (entry.valueType == valueType) return &entry;
  }
  return nullptr;
}

}  // namespace bitlocker
