#include "tools/zq-bitlocker/PartitionTable.h"

#include <algorithm>
#include <cstring>

#include "engine/Bytes.h"

using namespace bitlocker;

namespace {

constexpr size_t kMbrEntries = 446;
constexpr unsigned kMaxLogicalPartitions = 128;
constexpr uint32_t kMaxGptEntries = 1024;
constexpr uint8_t kTypeProtectiveGpt = 0xee;

struct MbrEntry {
  uint8_t type = 0;
  uint64_t firstSector = 0;
  uint64_t sectors = 0;
};

bool IsExtended(uint8_t type) { return type == 0x05 || type == 0x0f || type == 0x85; }

// The four entries of the MBR or extended boot record at `offset`; false
// when the sector carries no table (a boot sector's code also ends in
// 55 AA, but its bytes there are no valid status flags).
bool ReadMbr(const IByteSource& source, uint64_t offset, MbrEntry entries[4]) {
  uint8_t sector[512];
  if (!source.ReadAt(offset, sector, sizeof(sector)) || sector[510] != 0x55 || sector[511] != 0xaa) return false;
  for (int i = 0; i < 4; ++i) {
    const uint8_t* raw = sector + kMbrEntries + 16 * i;
    if (raw[0] != 0x00 && raw[0] != 0x80) return false;
    entries[i] = {raw[4], LoadLe32(raw + 8), LoadLe32(raw + 12)};
  }
  return true;
}

void Add(const IByteSource& source, unsigned number, uint64_t offset, uint64_t size,
         std::vector<Partition>* partitions) {
  if (size == 0 || offset >= source.Size()) return;
  partitions->push_back({number, offset, std::min(size, source.Size() - offset)});
}

// Logical partitions: each extended boot record names one, relative to
// itself, and the next record, relative to the extended partition.  The
// chain runs forward; a record that points back ends it.
void ReadLogicalPartitions(const IByteSource& source, uint64_t extendedOffset, uint32_t sectorSize,
                           std::vector<Partition>* partitions) {
  uint64_t record = extendedOffset;
  for (unsigned number = 5; number < 5 + kMaxLogicalPartitions; ++number) {
    MbrEntry entries[4];
    if (!ReadMbr(source, record, entries)) return;
    if (entries[0].type != 0) {
      Add(source, number, record + entries[0].firstSector * sectorSize, entries[0].sectors * sectorSize, partitions);
    }
    const uint64_t next = extendedOffset + entries[1].firstSector * sectorSize;
    if (!IsExtended(entries[1].type) || next <= record) return;
    record = next;
  }
}

bool ReadGpt(const IByteSource& source, uint32_t sectorSize, std::vector<Partition>* partitions) {
  uint8_t header[92];
  if (!source.ReadAt(sectorSize, header, sizeof(header)) || std::memcmp(header, "EFI PART", 8) != 0) return false;
  const uint64_t entriesOffset = LoadLe64(header + 72) * sectorSize;
  const uint32_t count = LoadLe32(header + 80);
  const uint32_t entrySize = LoadLe32(header + 84);
  if (entrySize < 128 || entrySize > 4096 || count > kMaxGptEntries) return true;
  std::vector<uint8_t> entry(entrySize);
  static const uint8_t kUnused[16] = {};
  for (uint32_t i = 0; i < count; ++i) {
    if (!source.ReadAt(entriesOffset + uint64_t{i} * entrySize, entry.data(), entrySize)) break;
    if (std::memcmp(entry.data(), kUnused, 16) == 0) continue;
    const uint64_t first = LoadLe64(entry.data() + 32), last = LoadLe64(entry.data() + 40);
    if (last >= first) Add(source, i + 1, first * sectorSize, (last - first + 1) * sectorSize, partitions);
  }
  return true;
}

}  // namespace

std::vector<Partition> ReadPartitionTable(const IByteSource& source, uint32_t sectorSize) {
  std::vector<Partition> partitions;
  MbrEntry entries[4];
  if (!ReadMbr(source, 0, entries)) return partitions;
  for (const MbrEntry& entry : entries) {
    if (entry.type == kTypeProtectiveGpt) {
      if (ReadGpt(source, 512, &partitions) || ReadGpt(source, 4096, &partitions)) return partitions;
    }
  }
  for (unsigned i = 0; i < 4; ++i) {
    const uint64_t offset = entries[i].firstSector * sectorSize;
    if (IsExtended(entries[i].type)) {
      ReadLogicalPartitions(source, offset, sectorSize, &partitions);
    } else if (entries[i].type != 0) {
      Add(source, i + 1, offset, entries[i].sectors * sectorSize, &partitions);
    }
  }
  return partitions;
}

const Partition* PartitionAt(const std::vector<Partition>& partitions, uint64_t offset) {
  for (const Partition& partition : partitions) {
    if (partition.offset == offset) return &partition;
  }
  return nullptr;
}
