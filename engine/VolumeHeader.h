// The first sector of a BitLocker volume: which generation of the format it
// is, its sector size, and where the FVE metadata blocks lie.
#ifndef ZQ_ENGINE_VOLUMEHEADER_H_
#define ZQ_ENGINE_VOLUMEHEADER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "engine/Guid.h"

namespace bitlocker {

enum class VolumeKind {
  kVista,     // "-FVE-FS-" header, one metadata block given as a cluster
  kWindows7,  // "-FVE-FS-" header with an identifier (Windows 7 and later)
  kToGo,      // a FAT discovery volume carrying a known identifier
};

// What the identifier in a Windows 7 or To Go header says about the volume.
enum class HeaderIdentifier {
  kOrdinary,        // encrypted in one sweep over every sector (and every Vista volume)
  kEncryptOnWrite,  // "used space only": sectors are encrypted as they are written
  kUnknown,         // a "-FVE-FS-" header with an identifier of neither kind
};

struct VolumeHeader {
  static constexpr size_t kSize = 512;

  VolumeKind kind = VolumeKind::kWindows7;
  uint32_t bytesPerSector = 512;
  uint32_t sectorsPerCluster = 0;
  // Offsets of the three FVE metadata blocks from the volume's start.  A
  // Vista header names only the first; the block itself names all three.
  std::array<uint64_t, 3> metadataOffsets{};
  HeaderIdentifier identifier = HeaderIdentifier::kOrdinary;
  Guid guid;  // the identifier as stored; zero for Vista
  // Encrypt-on-write headers name, after the metadata offsets, two copies
  // of an information block that records the regions of a conversion.  It
  // is not read here; that it exists matters while a conversion is under way.
  std::array<uint64_t, 2> encryptOnWriteOffsets{};
};

// Parses the volume's first 512 bytes; nullopt when they do not hold a
// BitLocker volume header.  A "-FVE-FS-" header with an unknown identifier
// is still one, of HeaderIdentifier::kUnknown.
std::optional<VolumeHeader> ParseVolumeHeader(const uint8_t* sector);

// The first sector of a new Windows 7 style volume of `volumeSize` bytes
// whose metadata copies lie at `metadataOffsets`: the "-FVE-FS-" signature,
// the sector geometry and count, the ordinary identifier and the offsets.
// It carries no boot code.
std::array<uint8_t, VolumeHeader::kSize> FormatVolumeHeader(uint32_t bytesPerSector, uint64_t volumeSize,
                                                            const std::array<uint64_t, 3>& metadataOffsets);

const char* VolumeKindName(VolumeKind kind);
const char* HeaderIdentifierName(HeaderIdentifier identifier);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_VOLUMEHEADER_H_
