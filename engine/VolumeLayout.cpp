#include "engine/VolumeLayout.h"

#include <algorithm>

#include "engine/Bytes.h"
#include "engine/Conversion.h"

namespace bitlocker {
namespace {

// How much room each FVE metadata block takes on the volume.
constexpr uint64_t kMetadataAreaVista = 16 * 1024;
constexpr uint64_t kMetadataAreaWindows7 = 64 * 1024;
// Vista keeps its first sectors, header included, unencrypted.
constexpr uint64_t kVistaPlainSectors = 16;

uint64_t RoundDown(uint64_t value, uint64_t unit) { return value / unit * unit; }
uint64_t RoundUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

// The stored boot sectors: the volume header block entry where there is
// one, else the block header's fields.
Extent StoredHeaderOf(const FveMetadataBlock& block, uint32_t sectorSize) {
  Extent extent;
  extent.offset = block.volumeHeaderOffset;
  extent.length = static_cast<uint64_t>(block.volumeHeaderSectors) * sectorSize;
  for (const auto& entry : block.metadata.entries) {
    if (entry.type != kEntryVolumeHeaderBlock || entry.valueType != kValueOffsetAndSize) continue;
    if (entry.value.size() < 8) continue;
    extent.offset = LoadLe64(entry.value.data());
    if (entry.value.size() >= 16 && LoadLe64(entry.value.data() + 8) != 0) {
      extent.length = LoadLe64(entry.value.data() + 8);
    }
    break;
  }
  return extent;
}

std::string Number(uint64_t value) { return std::to_string(value); }

// Only a volume encrypted throughout, with no conversion under way or due,
// is written: elsewhere Windows may be moving the boundary between the
// encrypted and the plain part, or the metadata may not say where
// encrypt-on-write has put sectors.
const char* ReadOnlyReason(const VolumeHeader& header, const Conversion& conversion,
                           uint64_t size) {
  if (header.identifier == HeaderIdentifier::kEncryptOnWrite && !conversion.complete) {
    return "encrypt-on-write volume not fully written";
  }
  if (!conversion.complete || conversion.nextState != kStateEncrypted ||
      conversion.encryptedSize < size) {
    return "partially encrypted volume";
  }
  return nullptr;
}

}  // namespace

Status VolumeLayout::Build(const VolumeHeader& header, const FveMetadataBlock& metadata,
                           uint64_t deviceSize, VolumeLayout* layout, std::string* why) {
  VolumeLayout result;
  result.sectorSize_ = header.bytesPerSector;
  result.size_ = RoundDown(deviceSize, result.sectorSize_);
  uint64_t metadataArea = kMetadataAreaWindows7;

  if (metadata.version == 1) {
    if (metadata.state != kStateEncrypted) {
      *why = "a Windows Vista volume whose encryption is not complete (conversion state " +
             Number(metadata.state) + ")";
      return Status::kUnsupported;
    }
    result.vista_ = true;
    result.readOnlyReason_ = "Vista-era volume";
    result.mftMirrorCluster_ = metadata.volumeHeaderOffset;
    result.encryptedSize_ = result.size_;
    metadataArea = kMetadataAreaVista;
  } else {
    Conversion conversion;
    Status status = ReadConversion(header, metadata, result.size_, &conversion, why);
    if (status != Status::kOk) return status;
    result.encryptedSize_ = conversion.encryptedSize;
    result.readOnlyReason_ = ReadOnlyReason(header, conversion, result.size_);
    result.storedHeader_ = StoredHeaderOf(metadata, result.sectorSize_);
    const Extent& stored = result.storedHeader_;
    if (stored.length == 0 || stored.length % result.sectorSize_ != 0 ||
        stored.offset % result.sectorSize_ != 0 || stored.offset < stored.length ||
        stored.offset > result.size_ || result.size_ - stored.offset < stored.length) {
      *why = "the location of the original boot sectors is damaged";
      return Status::kUnsupported;
    }
    result.hidden_.push_back(stored);
    result.storedHeaderInClear_ = header.identifier == HeaderIdentifier::kEncryptOnWrite;
  }

  for (uint64_t offset : metadata.metadataOffsets) {
    if (offset == 0 || offset >= result.size_) continue;
    uint64_t start = RoundDown(offset, result.sectorSize_);
    uint64_t end = std::min(RoundUp(offset + metadataArea, result.sectorSize_), result.size_);
    result.hidden_.push_back({start, end - start});
  }
  std::sort(result.hidden_.begin(), result.hidden_.end(),
            [](const Extent& a, const Extent& b) { return a.offset < b.offset; });
  std::vector<Extent> merged;
  for (const Extent& extent : result.hidden_) {
    if (!merged.empty() && extent.offset <= merged.back().end()) {
      uint64_t end = std::max(merged.back().end(), extent.end());
      merged.back().length = end - merged.back().offset;
    } else {
      merged.push_back(extent);
    }
  }
  result.hidden_ = std::move(merged);
  *layout = std::move(result);
  return Status::kOk;
}

LayoutRun VolumeLayout::RunAt(uint64_t offset, uint64_t length) const {
  uint64_t end = std::min(offset + length, size_);
  for (const Extent& extent : hidden_) {
    if (extent.offset <= offset && offset < extent.end()) {
      return {LayoutRun::Action::kZero, 0, std::min(end, extent.end()) - offset};
    }
    if (extent.offset > offset) {
      end = std::min(end, extent.offset);
      break;
    }
  }

  uint64_t source = offset;
  if (vista_) {
    if (offset < sectorSize_) {
      return {LayoutRun::Action::kVistaBootSector, 0, std::min<uint64_t>(end, sectorSize_) - offset};
    }
    uint64_t plainEnd = kVistaPlainSectors * sectorSize_;
    if (offset < plainEnd) {
      return {LayoutRun::Action::kCopy, offset, std::min(end, plainEnd) - offset};
    }
  } else if (offset < storedHeader_.length) {
    end = std::min(end, storedHeader_.length);
    source = storedHeader_.offset + offset;
    if (storedHeaderInClear_) return {LayoutRun::Action::kCopy, source, end - offset};
  }

  uint64_t runLength = end - offset;
  if (source >= encryptedSize_) return {LayoutRun::Action::kCopy, source, runLength};
  return {LayoutRun::Action::kDecrypt, source, std::min(runLength, encryptedSize_ - source)};
}

bool VolumeLayout::Writable(uint64_t offset, uint64_t length) const {
  uint64_t end = std::min(offset + length, size_);
  while (offset < end) {
    LayoutRun run = RunAt(offset, end - offset);
    if (run.length == 0 || !run.writable()) return false;
    offset += run.length;
  }
  return true;
}

}  // namespace bitlocker
