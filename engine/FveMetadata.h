// FVE metadata: the block header that every copy starts with, the metadata
// header, and the entries.  A startup key (.BEK) file uses the same metadata
// header and entries without the block header.
#ifndef ZQ_ENGINE_FVEMETADATA_H_
#define ZQ_ENGINE_FVEMETADATA_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/Guid.h"
#include "engine/IByteSource.h"
#include "engine/MetadataEntry.h"
#include "engine/MetadataValidation.h"
#include "engine/VolumeHeader.h"

namespace bitlocker {

struct FveMetadata {
  static constexpr size_t kHeaderSize = 48;

  Guid volumeId;
  uint32_t nextNonceCounter = 0;
  uint16_t encryptionMethod = 0;
  uint64_t creationTime = 0;  // FILETIME
  std::vector<MetadataEntry> entries;
};

// Conversion states kept in the block header.
enum ConversionState : uint16_t {
  kStateDecrypted = 1,
  kStateConverting = 2,
  kStateEncryptOnWriteStarted = 3,
  kStateEncrypted = 4,
  kStatePaused = 5,
};

struct FveMetadataBlock {
  static constexpr size_t kHeaderSize = 64;

  uint16_t version = 0;  // 1 for Vista, 2 for Windows 7 and later
  uint16_t state = 0;
  uint16_t nextState = 0;  // where a conversion is heading: decrypted or encrypted
  // Bytes from the start of the volume that are encrypted (version 2).
  uint64_t encryptedSize = 0;
  uint32_t volumeHeaderSectors = 0;
  std::array<uint64_t, 3> metadataOffsets{};
  // Version 2: where the original volume header sectors are kept.
  // Version 1: the cluster of the MFT mirror.
  uint64_t volumeHeaderOffset = 0;
  FveMetadata metadata;
  // Version 2: what vouches for this copy.  Its CRC-32 has been checked
  // when the copy is read; its SHA-256 needs the volume master key.
  std::optional<MetadataValidation> validation;
};

// Parses a metadata header and its entries.  Returns nullopt when the header
// is not one or its entries are malformed.
std::optional<FveMetadata> ParseFveMetadata(const uint8_t* data, size_t size);

// Parses a whole metadata block: block header, metadata header, entries.
std::optional<FveMetadataBlock> ParseFveMetadataBlock(const uint8_t* data, size_t size);

// The usable metadata copies of a volume, in on-disk order.  A copy that is
// unreadable, damaged or fails its CRC-32 validation is left out.
struct MetadataCopies {
  std::vector<FveMetadataBlock> blocks;
  bool ioError = false;  // at least one copy could not be read
  std::string problems;  // why copies were left out, for diagnostics
};

MetadataCopies ReadFveMetadataCopies(const IByteSource& source, const VolumeHeader& header);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_FVEMETADATA_H_
