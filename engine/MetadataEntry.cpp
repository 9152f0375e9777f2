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

void AppendEntry(std::vector<uint8_t>* out, uint16_t type, uint16_t valueType, const uint8_t* value,
                 size_t size, uint16_t version) {
  uint8_t header[MetadataEntry::kHeaderSize];
  StoreLe16(static_cast<uint16_t>(MetadataEntry::kHeaderSize + size), header);
  StoreLe16(type, header + 2);
  StoreLe16(valueType, header + 4);
  StoreLe16(version, header + 6);
  out->insert(out->end(), header, header + sizeof header);
  out->insert(out->end(), value, value + size);
}

const MetadataEntry* FindByValueType(const std::vector<MetadataEntry>& entries,
                                     uint16_t valueType) {
  for (const auto& entry : entries) {
    if (entry.valueType == valueType) return &entry;
  }
  return nullptr;
}

}  // namespace bitlocker
