#include "CUnlockedVolume.h"

#include <algorithm>
#include <climits>
#include <atomic>
#include <cerrno>
#include <cstring>

namespace bitlocker {
namespace {

constexpr char kNtfsSignature[] = "NTFS    ";
constexpr size_t kSignatureOffset = 3;
constexpr size_t kVistaMetadataClusterOffset = 56;

}  // namespace

std::unique_ptr<CUnlockedVolume> CUnlockedVolume::Make(std::shared_ptr<const IByteSource> source,
                                                       VolumeLayout layout,
                                                       const UnwrappedKey& fullVolumeKey,
                                                       unsigned lanes) {
  lanes = std::max(1u, lanes);
  uint32_t sectorSize = layout.sectorSize();
  std::unique_ptr<CUnlockedVolume> volume(
      new CUnlockedVolume(std::move(source), std::move(layout), fullVolumeKey.method, lanes));
  for (unsigned lane = 0; lane < lanes; ++lane) {
    auto cipher = MakeSectorCipher(fullVolumeKey.method, fullVolumeKey.key, sectorSize);
    if (!cipher) return nullptr;
    volume->ciphers_.push_back(std::move(cipher));
  }
  return volume;
}

CUnlockedVolume::CUnlockedVolume(std::shared_ptr<const IByteSource> source, VolumeLayout layout,
                                 uint16_t method, unsigned lanes)
    : source_(std::move(source)),
      layout_(std::move(layout)),
      method_(method),
      pool_(lanes),
      bounce_(layout_.sectorSize()) {}

ssize_t CUnlockedVolume::Read(uint64_t offset, void* buffer, size_t length) {
  if (offset >= layout_.size()) return 0;
  length = static_cast<size_t>(std::min<uint64_t>(length, layout_.size() - offset));
  length = std::min<size_t>(length, SSIZE_MAX);
  auto* out = static_cast<uint8_t*>(buffer);
  const uint32_t sector = layout_.sectorSize();

  std::lock_guard<std::mutex> lock(readMutex_);
  size_t done = 0;
  while (done < length) {
    uint64_t at = offset + done;
    size_t intoSector = static_cast<size_t>(at % sector);
    size_t left = length - done;
    size_t step;
    if (intoSector != 0 || left < sector) {
      if (!ReadSectors(at - intoSector, bounce_.data(), sector)) return -1;
      step = std::min<size_t>(sector - intoSector, left);
      std::memcpy(out + done, bounce_.data() + intoSector, step);
    } else {
      step = left / sector * sector;
      if (!ReadSectors(at, out + done, step)) return -1;
    }
    done += step;
  }
  return static_cast<ssize_t>(done);
}

bool CUnlockedVolume::ReadSectors(uint64_t offset, uint8_t* out, size_t length) {
  size_t pieces = (length + kPieceSize - 1) / kPieceSize;
  if (pieces <= 1) return ProduceRange(offset, out, length, *ciphers_[0]);

  std::atomic<int> failure{0};
  pool_.Run(pieces, [&](size_t index, unsigned lane) {
    size_t start = index * kPieceSize;
    size_t size = std::min(kPieceSize, length - start);
    if (failure.load() != 0) return;
    if (!ProduceRange(offset + start, out + start, size, *ciphers_[lane])) {
      int error = errno ? errno : EIO;
      int none = 0;
      failure.compare_exchange_strong(none, error);
    }
  });
  if (failure.load() != 0) {
    errno = failure.load();
    return false;
  }
  return true;
}

bool CUnlockedVolume::ProduceRange(uint64_t offset, uint8_t* out, size_t length,
                                   ISectorCipher& cipher) {
  const uint32_t sector = layout_.sectorSize();
  while (length > 0) {
    LayoutRun run = layout_.RunAt(offset, length);
    size_t size = static_cast<size_t>(run.length);
    if (size == 0) {
      errno = EIO;
      return false;
    }
    switch (run.action) {
      case LayoutRun::Action::kZero:
        std::memset(out, 0, size);
        break;
      case LayoutRun::Action::kCopy:
        if (!source_->ReadAt(run.sourceOffset, out, size)) return false;
        break;
      case LayoutRun::Action::kDecrypt:
        if (!source_->ReadAt(run.sourceOffset, out, size)) return false;
        if (!cipher.Decrypt(run.sourceOffset, out, size / sector)) {
          errno = EIO;
          return false;
        }
        break;
      case LayoutRun::Action::kVistaBootSector:
        if (!source_->ReadAt(0, out, size)) return false;
        std::memcpy(out + kSignatureOffset, kNtfsSignature, 8);
        for (int b = 0; b < 8; ++b) {
          out[kVistaMetadataClusterOffset + b] =
              static_cast<uint8_t>(layout_.mftMirrorCluster() >> (8 * b));
        }
        break;
    }
    offset += size;
    out += size;
    length -= size;
  }
  return true;
}

}  // namespace bitlocker
