#include "util/FilesystemType.h"

#include <cstring>

namespace {

bool HasText(const unsigned char* sector, size_t offset, const char* text) {
  return std::memcmp(sector + offset, text, std::strlen(text)) == 0;
}

// A FAT boot sector: the signature at its end, a sector size of 512 to
// 4096 bytes, and the type named where FAT12/16 or FAT32 name it.
bool IsFat(const unsigned char* sector) {
  const unsigned bytesPerSector = sector[11] | (sector[12] << 8);
  const bool sectorSizeFits = bytesPerSector >= 512 && bytesPerSector <= 4096 &&
                              (bytesPerSector & (bytesPerSector - 1)) == 0;
  return sector[510] == 0x55 && sector[511] == 0xAA && sectorSizeFits &&
         (HasText(sector, 54, "FAT1") || HasText(sector, 82, "FAT32   "));
}

}  // namespace

FilesystemType DetectFilesystem(const unsigned char* sector) {
  if (HasText(sector, 3, "NTFS    ")) return FilesystemType::kNtfs;
  if (HasText(sector, 3, "EXFAT   ")) return FilesystemType::kExfat;
  if (IsFat(sector)) return FilesystemType::kFat;
  return FilesystemType::kUnknown;
}

const char* FilesystemName(FilesystemType type) {
  switch (type) {
    case FilesystemType::kNtfs: return "NTFS";
    case FilesystemType::kExfat: return "exFAT";
    case FilesystemType::kFat: return "FAT";
    case FilesystemType::kUnknown: break;
  }
  return "unknown";
}
