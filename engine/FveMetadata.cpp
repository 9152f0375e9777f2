#include "engine/FveMetadata.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "engine/Bytes.h"

namespace bitlocker {
namespace {

constexpr char kBlockSignature[] = "-FVE-FS-";
// Larger metadata than this is not something a volume writes; refusing it
// keeps a damaged size field from asking for a huge read.
constexpr size_t kMaxMetadataSize = 1 << 20;

bool HasFullVolumeKey(const FveMetadata& metadata) {
  for (const auto& entry : metadata.entries) {
    if (entry.type == kEntryFullVolumeKey && entry.valueType == kValueAesCcmKey) return true;
  }
  return false;
}

}  // namespace

std::optional<FveMetadata> ParseFveMetadata(const uint8_t* data, size_t size) {
  if (size < FveMetadata::kHeaderSize) return std::nullopt;
  uint32_t metadataSize = LoadLe32(data);
  if (LoadLe32(data + 4) != 1 || LoadLe32(data + 8) != FveMetadata::kHeaderSize) {
    return std::nullopt;
  }
  if (metadataSize < FveMetadata::kHeaderSize || metadataSize > size) return std::nullopt;
  FveMetadata metadata;
  metadata.volumeId = Guid::FromBytes(data + 16);
  metadata.nextNonceCounter = LoadLe32(data + 32);
  metadata.encryptionMethod = LoadLe16(data + 36);
  metadata.creationTime = LoadLe64(data + 40);
  auto entries = ParseEntries(data + FveMetadata::kHeaderSize, metadataSize - FveMetadata::kHeaderSize);
  if (!entries) return std::nullopt;
  metadata.entries = std::move(*entries);
  return metadata;
}

std::optional<FveMetadataBlock> ParseFveMetadataBlock(const uint8_t* data, size_t size) {
  if (size < FveMetadataBlock::kHeaderSize) return std::nullopt;
  if (std::memcmp(data, kBlockSignature, 8) != 0) return std::nullopt;
  FveMetadataBlock block;
  block.version = LoadLe16(data + 10);
  if (block.version != 1 && block.version != 2) return std::nullopt;
  block.state = LoadLe16(data + 12);
  block.nextState = LoadLe16(data + 14);
  if (block.version == 2) {
    block.encryptedSize = LoadLe64(data + 16);
    block.volumeHeaderSectors = LoadLe32(data + 28);
  }
  for (size_t i = 0; i < 3; ++i) block.metadataOffsets[i] = LoadLe64(data + 32 + 8 * i);
  block.volumeHeaderOffset = LoadLe64(data + 56);
  auto metadata = ParseFveMetadata(data + FveMetadataBlock::kHeaderSize,
                                   size - FveMetadataBlock::kHeaderSize);
  if (!metadata) return std::nullopt;
  block.metadata = std::move(*metadata);
  return block;
}

MetadataCopies ReadFveMetadataCopies(const IByteSource& source, const VolumeHeader& header) {
  MetadataCopies copies;
  std::array<uint64_t, 3> offsets = header.metadataOffsets;
  size_t count = header.kind == VolumeKind::kVista ? 1 : offsets.size();
  for (size_t i = 0; i < count; ++i) {
    uint64_t offset = offsets[i];
    auto reject = [&](const std::string& why) {
      copies.problems += "metadata copy " + std::to_string(i + 1) + " at " + Hex(offset) + ": " +
                         why + "\n";
    };
    constexpr size_t kFixed = FveMetadataBlock::kHeaderSize + FveMetadata::kHeaderSize;
    if (offset == 0 || offset > source.Size() || source.Size() - offset < kFixed) {
      reject("outside the volume");
      continue;
    }
    std::vector<uint8_t> bytes(kFixed);
    if (!source.ReadAt(offset, bytes.data(), bytes.size())) {
      copies.ioError = true;
      reject(std::string("unreadable: ") + std::strerror(errno));
      continue;
    }
    const size_t total = FveMetadataBlock::kHeaderSize + LoadLe32(bytes.data() + FveMetadataBlock::kHeaderSize);
    if (total < kFixed || total > kMaxMetadataSize || total > source.Size() - offset) {
      reject("bad metadata size");
      continue;
    }
    // Windows 7 and later follow the copy, padded to 16 bytes, with its
    // validation.  Vista's copies are read as they are: no Vista-made
    // volume was at hand to show whether they carry one.
    const bool validated = LoadLe16(bytes.data() + 10) == 2;
    const size_t covered = validated ? size_t{LoadLe16(bytes.data() + 8)} * 16 : total;
    const size_t length = validated ? covered + MetadataValidation::kSize : total;
    if (covered < total || length > kMaxMetadataSize || length > source.Size() - offset) {
      reject("bad size of the validated copy");
      continue;
    }
    bytes.resize(length);
    if (!source.ReadAt(offset + kFixed, bytes.data() + kFixed, length - kFixed)) {
      copies.ioError = true;
      reject(std::string("unreadable: ") + std::strerror(errno));
      continue;
    }
    auto block = ParseFveMetadataBlock(bytes.data(), total);
    if (!block) {
      reject("damaged header or entries");
      continue;
    }
    if (validated) {
      std::string why;
      block->validation = ReadMetadataValidation(bytes.data(), covered, &why);
      if (!block->validation) {
        reject(why);
        continue;
      }
    }
    if (std::find(block->metadataOffsets.begin(), block->metadataOffsets.end(), offset) ==
        block->metadataOffsets.end()) {
      reject("does not name its own position");
      continue;
    }
    if (!HasFullVolumeKey(block->metadata)) {
      reject("no full volume encryption key");
      continue;
    }
    if (header.kind == VolumeKind::kVista && i == 0) {
      offsets = block->metadataOffsets;
      count = offsets.size();
      copies.blocks.push_back(std::move(*block));
      // The first block named itself among its three; read the other two.
      auto self = std::find(offsets.begin(), offsets.end(), offset);
      std::iter_swap(offsets.begin(), self);
      continue;
    }
    copies.blocks.push_back(std::move(*block));
  }
  return copies;
}

}  // namespace bitlocker
