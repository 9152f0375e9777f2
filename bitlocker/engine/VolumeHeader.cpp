#include "VolumeHeader.h"

#include <cstring>

#include "Bytes.h"

namespace bitlocker {
namespace {

constexpr char kFveSignature[] = "-FVE-FS-";
constexpr char kDiscoverySignature[] = "MSWIN4.1";
constexpr size_t kSignatureOffset = 3;
constexpr size_t kBytesPerSectorOffset = 11;
constexpr size_t kSectorsPerClusterOffset = 13;
constexpr size_t kVistaMetadataClusterOffset = 56;
constexpr size_t kWindows7GuidOffset = 160;
constexpr size_t kWindows7MetadataOffset = 176;
constexpr size_t kToGoGuidOffset = 424;
constexpr size_t kToGoMetadataOffset = 440;
constexpr uint8_t kVistaBootEntry[3] = {0xeb, 0x52, 0x90};

bool HasSignature(const uint8_t* sector, const char* signature) {
  return std::memcmp(sector + kSignatureOffset, signature, 8) == 0;
}

bool ValidSectorSize(uint32_t size) {
  return size == 512 || size == 1024 || size == 2048 || size == 4096;
}

std::array<uint64_t, 3> LoadOffsets(const uint8_t* p) {
  return {LoadLe64(p), LoadLe64(p + 8), LoadLe64(p + 16)};
}

}  // namespace

std::optional<VolumeHeader> ParseVolumeHeader(const uint8_t* sector) {
  VolumeHeader header;
  header.bytesPerSector = LoadLe16(sector + kBytesPerSectorOffset);
  header.sectorsPerCluster = sector[kSectorsPerClusterOffset];
  if (!ValidSectorSize(header.bytesPerSector)) return std::nullopt;

  if (HasSignature(sector, kFveSignature)) {
    if (Guid::FromBytes(sector + kWindows7GuidOffset) == kBitlockerVolumeGuid) {
      header.kind = VolumeKind::kWindows7;
      header.metadataOffsets = LoadOffsets(sector + kWindows7MetadataOffset);
      return header;
    }
    if (std::memcmp(sector, kVistaBootEntry, sizeof(kVistaBootEntry)) == 0 &&
        header.sectorsPerCluster != 0) {
      header.kind = VolumeKind::kVista;
      header.metadataOffsets[0] = LoadLe64(sector + kVistaMetadataClusterOffset) *
                                  header.sectorsPerCluster * header.bytesPerSector;
      return header;
    }
    return std::nullopt;
  }
  if (HasSignature(sector, kDiscoverySignature) &&
      Guid::FromBytes(sector + kToGoGuidOffset) == kBitlockerVolumeGuid) {
    header.kind = VolumeKind::kToGo;
    header.metadataOffsets = LoadOffsets(sector + kToGoMetadataOffset);
    return header;
  }
  return std::nullopt;
}

const char* VolumeKindName(VolumeKind kind) {
  switch (kind) {
    case VolumeKind::kVista:
      return "BitLocker (Windows Vista)";
    case VolumeKind::kWindows7:
      return "BitLocker";
    case VolumeKind::kToGo:
      return "BitLocker To Go";
  }
  return "BitLocker";
}

}  // namespace bitlocker
