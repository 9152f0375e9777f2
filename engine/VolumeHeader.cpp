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
