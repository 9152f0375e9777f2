#include "engine/VolumeHeader.h"

#include <cstring>

#include "engine/Bytes.h"

namespace bitlocker {
namespace {

constexpr char kFveSignature[] = "-FVE-FS-";
constexpr char kDiscoverySignature[] = "MSWIN4.1";
constexpr size_t kSignatureOffset = 3;
constexpr size_t kBytesPerSectorOffset = 11;
constexpr size_t kSectorsPerClusterOffset = 13;
constexpr size_t kVistaMetadataClusterOffset = 56;
constexpr size_t kWindows7GuidOffset = 160;
constexpr size_t kToGoGuidOffset = 424;
constexpr uint8_t kVistaBootEntry[3] = {0xeb, 0x52, 0x90};
constexpr uint8_t kWindows7BootEntry[3] = {0xeb, 0x58, 0x90};
// Geometry fields of the boot parameter block, with the values the
// Windows-made volumes carry.
constexpr size_t kMediaDescriptorOffset = 21;
constexpr size_t kSectorsPerTrackOffset = 24;
constexpr size_t kHeadsOffset = 26;
constexpr uint8_t kFixedDiskMedia = 0xf8;
// The volume's sector count, in FAT's 32-bit field or, too large for that,
// NTFS's 64-bit one.  Windows leaves both zero, as its volumes carry a file
// system that tells their size; a new volume holds none yet, and readers
// that look for the size here find it.
constexpr size_t kTotalSectors32Offset = 32;
constexpr size_t kTotalSectors64Offset = 40;
constexpr uint8_t kNewVolumeSectorsPerCluster = 8;
constexpr size_t kBootSignatureOffset = 510;

bool HasSignature(const uint8_t* sector, const char* signature) {
  return std::memcmp(sector + kSignatureOffset, signature, 8) == 0;
}

bool ValidSectorSize(uint32_t size) {
  return size == 512 || size == 1024 || size == 2048 || size == 4096;
}

std::array<uint64_t, 3> LoadOffsets(const uint8_t* p) {
  return {LoadLe64(p), LoadLe64(p + 8), LoadLe64(p + 16)};
}

std::optional<HeaderIdentifier> KnownIdentifier(const Guid& guid) {
  if (guid == kBitlockerVolumeGuid) return HeaderIdentifier::kOrdinary;
  if (guid == kEncryptOnWriteVolumeGuid) return HeaderIdentifier::kEncryptOnWrite;
  return std::nullopt;
}

// The identifier at `guidOffset` is followed by the three metadata offsets
// and, on encrypt-on-write volumes, two more.
void LoadIdentified(const uint8_t* sector, size_t guidOffset, HeaderIdentifier identifier,
                    VolumeHeader* header) {
  header->identifier = identifier;
  header->guid = Guid::FromBytes(sector + guidOffset);
  header->metadataOffsets = LoadOffsets(sector + guidOffset + 16);
  if (identifier == HeaderIdentifier::kEncryptOnWrite) {
    header->encryptOnWriteOffsets = {LoadLe64(sector + guidOffset + 40),
                                     LoadLe64(sector + guidOffset + 48)};
  }
}

}  // namespace

std::optional<VolumeHeader> ParseVolumeHeader(const uint8_t* sector) {
  VolumeHeader header;
  header.bytesPerSector = LoadLe16(sector + kBytesPerSectorOffset);
  header.sectorsPerCluster = sector[kSectorsPerClusterOffset];
  if (!ValidSectorSize(header.bytesPerSector)) return std::nullopt;

  if (HasSignature(sector, kFveSignature)) {
    auto identifier = KnownIdentifier(Guid::FromBytes(sector + kWindows7GuidOffset));
    if (!identifier && std::memcmp(sector, kVistaBootEntry, sizeof(kVistaBootEntry)) == 0 &&
        header.sectorsPerCluster != 0) {
      header.kind = VolumeKind::kVista;
      header.metadataOffsets[0] = LoadLe64(sector + kVistaMetadataClusterOffset) *
                                  header.sectorsPerCluster * header.bytesPerSector;
      return header;
    }
    header.kind = VolumeKind::kWindows7;
    LoadIdentified(sector, kWindows7GuidOffset, identifier.value_or(HeaderIdentifier::kUnknown),
                   &header);
    return header;
  }
  // A discovery volume is an ordinary FAT volume unless its identifier says otherwise.
  if (HasSignature(sector, kDiscoverySignature)) {
    auto identifier = KnownIdentifier(Guid::FromBytes(sector + kToGoGuidOffset));
    if (!identifier) return std::nullopt;
    header.kind = VolumeKind::kToGo;
    LoadIdentified(sector, kToGoGuidOffset, *identifier, &header);
    return header;
  }
  return std::nullopt;
}

std::array<uint8_t, VolumeHeader::kSize> FormatVolumeHeader(uint32_t bytesPerSector, uint64_t volumeSize,
                                                            const std::array<uint64_t, 3>& metadataOffsets) {
  std::array<uint8_t, VolumeHeader::kSize> sector{};
  std::memcpy(sector.data(), kWindows7BootEntry, sizeof kWindows7BootEntry);
  std::memcpy(sector.data() + kSignatureOffset, kFveSignature, 8);
  StoreLe16(static_cast<uint16_t>(bytesPerSector), sector.data() + kBytesPerSectorOffset);
  sector[kSectorsPerClusterOffset] = kNewVolumeSectorsPerCluster;
  sector[kMediaDescriptorOffset] = kFixedDiskMedia;
  StoreLe16(63, sector.data() + kSectorsPerTrackOffset);
  StoreLe16(255, sector.data() + kHeadsOffset);
  const uint64_t sectors = volumeSize / bytesPerSector;
  if (sectors <= UINT32_MAX) {
    StoreLe32(static_cast<uint32_t>(sectors), sector.data() + kTotalSectors32Offset);
  } else {
    StoreLe64(sectors, sector.data() + kTotalSectors64Offset);
  }
  std::memcpy(sector.data() + kWindows7GuidOffset, kBitlockerVolumeGuid.bytes.data(), 16);
  for (size_t i = 0; i < metadataOffsets.size(); ++i) {
    StoreLe64(metadataOffsets[i], sector.data() + kWindows7GuidOffset + 16 + 8 * i);
  }
  sector[kBootSignatureOffset] = 0x55;
  sector[kBootSignatureOffset + 1] = 0xaa;
  return sector;
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

const char* HeaderIdentifierName(HeaderIdentifier identifier) {
  switch (identifier) {
    case HeaderIdentifier::kOrdinary:
      return "ordinary";
    case HeaderIdentifier::kEncryptOnWrite:
      return "encrypt-on-write, used space only";
    case HeaderIdentifier::kUnknown:
      return "unknown";
  }
  return "unknown";
}

}  // namespace bitlocker
