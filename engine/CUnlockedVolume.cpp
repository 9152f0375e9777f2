#include "engine/CUnlockedVolume.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>

namespace bitlocker {
namespace {

constexpr char kNtfsSignature[] = "NTFS    ";
constexpr size_t kSignatureOffset = 3;
constexpr size_t kVistaMetadataClusterOffset = 56;

uint64_t RoundUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

}  // namespace

// A spare cipher, taken for as long as this object lives; waits for one
// when every spare is taken.
class CUnlockedVolume::SpareCipher {
 public:
  explicit SpareCipher(CUnlockedVolume& volume) : volume_(volume) {
    std::unique_lock<std::mutex> lock(volume_.spareMutex_);
    volume_.spareReturned_.wait(lock, [this] { return !volume_.spares_.empty(); });
    cipher_ = std::move(volume_.spares_.back());
    volume_.spares_.pop_back();
  }
  ~SpareCipher() {
    {
      std::lock_guard<std::mutex> lock(volume_.spareMutex_);
      volume_.spares_.push_back(std::move(cipher_));
    }
    volume_.spareReturned_.notify_one();
  }
  SpareCipher(const SpareCipher&) = delete;
  SpareCipher& operator=(const SpareCipher&) = delete;

  ISectorCipher& get() { return *cipher_; }

 private:
  CUnlockedVolume& volume_;
  std::unique_ptr<ISectorCipher> cipher_;
};

std::unique_ptr<CUnlockedVolume> CUnlockedVolume::Make(std::shared_ptr<const IByteSource> source,
                                                       VolumeLayout layout,
                                                       const UnwrappedKey& fullVolumeKey,
                                                       unsigned lanes, bool sourceWritable) {
  lanes = std::max(1u, lanes);
  uint32_t sectorSize = layout.sectorSize();
  std::unique_ptr<CUnlockedVolume> volume(
      new CUnlockedVolume(std::move(source), std::move(layout), fullVolumeKey.method, lanes));
  for (unsigned lane = 0; lane < 2 * lanes; ++lane) {
    auto cipher = MakeSectorCipher(fullVolumeKey.method, fullVolumeKey.key, sectorSize);
    if (!cipher) return nullptr;
    (lane < lanes ? volume->ciphers_ : volume->spares_).push_back(std::move(cipher));
  }
  volume->readOnlyReason_ = volume->layout_.readOnlyReason();
  if (!volume->readOnlyReason_ && !sourceWritable) {
    volume->readOnlyReason_ = "the device is read-only";
  }
  return volume;
}

CUnlockedVolume::CUnlockedVolume(std::shared_ptr<const IByteSource> source, VolumeLayout layout,
                                 uint16_t method, unsigned lanes)
    : source_(std::move(source)), layout_(std::move(layout)), method_(method), pool_(lanes) {}

ssize_t CUnlockedVolume::Read(uint64_t offset, void* buffer, size_t length) {
  if (offset >= layout_.size()) return 0;
  length = static_cast<size_t>(std::min<uint64_t>(length, layout_.size() - offset));
  length = std::min<size_t>(length, SSIZE_MAX);
  auto* out = static_cast<uint8_t*>(buffer);
  const uint32_t sector = layout_.sectorSize();
  auto lock = sectorLocks_.LockShared(offset / sector, RoundUp(offset + length, sector) / sector);

  std::vector<uint8_t> bounce;  // one sector, for unaligned ends
  size_t done = 0;
  while (done < length) {
    uint64_t at = offset + done;
    size_t intoSector = static_cast<size_t>(at % sector);
    size_t left = length - done;
    size_t step;
    if (intoSector != 0 || left < sector) {
      bounce.resize(sector);
      if (!ReadSectors(at - intoSector, bounce.data(), sector)) return -1;
      step = std::min<size_t>(sector - intoSector, left);
      std::memcpy(out + done, bounce.data() + intoSector, step);
    } else {
      step = left / sector * sector;
      if (!ReadSectors(at, out + done, step)) return -1;
    }
    done += step;
  }
  return static_cast<ssize_t>(done);
}

// The whole range is checked before anything is written, so a write that
// touches BitLocker's own sectors changes nothing.  Sectors the write covers
// only in part are read first and written whole, within the same hold on
// them.  Each worker copies its own piece of the caller's bytes just before
// encrypting it, while they are in its cache.
ssize_t CUnlockedVolume::Write(uint64_t offset, const void* buffer, size_t length) {
  if (readOnlyReason_) {
    errno = EROFS;
    return -1;
  }
  if (offset >= layout_.size() || length == 0) return 0;
  length = static_cast<size_t>(std::min<uint64_t>(length, layout_.size() - offset));
  length = std::min<size_t>(length, SSIZE_MAX);
  const uint32_t sector = layout_.sectorSize();
  const uint64_t first = offset / sector * sector;
  const uint64_t end = RoundUp(offset + length, sector);
  if (!layout_.Writable(first, end - first)) {
    errno = EIO;
    return -1;
  }
  auto lock = sectorLocks_.LockExclusive(first / sector, end / sector);

  const auto* in = static_cast<const uint8_t*>(buffer);
  std::vector<uint8_t> plain(static_cast<size_t>(std::min<uint64_t>(end - first, kWriteChunk)));
  for (uint64_t at = first; at < end;) {
    size_t span = static_cast<size_t>(std::min<uint64_t>(end - at, kWriteChunk));
    uint64_t from = std::max(at, offset);
    uint64_t to = std::min(at + span, offset + length);
    if (from > at && !ReadSectors(at, plain.data(), sector)) return -1;
    if (to < at + span && !ReadSectors(at + span - sector, plain.data() + span - sector, sector)) {
      return -1;
    }
    bool written = OverPieces(span, [&](size_t start, size_t size, ISectorCipher& cipher) {
      uint64_t copyFrom = std::max(from, at + start);
      uint64_t copyTo = std::min(to, at + start + size);
      if (copyFrom < copyTo) {
        std::memcpy(plain.data() + (copyFrom - at), in + (copyFrom - offset),
                    static_cast<size_t>(copyTo - copyFrom));
      }
      return StoreRange(at + start, plain.data() + start, size, cipher);
    });
    if (!written) return -1;
    at += span;
  }
  return static_cast<ssize_t>(length);
}

int CUnlockedVolume::Flush() { return source_->Sync() ? 0 : -1; }

bool CUnlockedVolume::ReadSectors(uint64_t offset, uint8_t* out, size_t length) {
  return OverPieces(length, [&](size_t start, size_t size, ISectorCipher& cipher) {
    return ProduceRange(offset + start, out + start, size, cipher);
  });
}

bool CUnlockedVolume::OverPieces(size_t length, const PieceWork& work) {
  size_t pieces = (length + kPieceSize - 1) / kPieceSize;
  if (pieces <= 1) {
    SpareCipher cipher(*this);
    return work(0, length, cipher.get());
  }

  std::lock_guard<std::mutex> lock(poolMutex_);
  std::atomic<int> failure{0};
  pool_.Run(pieces, [&](size_t index, unsigned lane) {
    size_t start = index * kPieceSize;
    size_t size = std::min(kPieceSize, length - start);
    if (failure.load() != 0) return;
    if (!work(start, size, *ciphers_[lane])) {
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

bool CUnlockedVolume::StoreRange(uint64_t offset, uint8_t* in, size_t length,
                                 ISectorCipher& cipher) {
  const uint32_t sector = layout_.sectorSize();
  while (length > 0) {
    LayoutRun run = layout_.RunAt(offset, length);
    size_t size = static_cast<size_t>(run.length);
    if (size == 0 || !run.writable()) {
      errno = EIO;
      return false;
    }
    if (run.action == LayoutRun::Action::kDecrypt &&
        !cipher.Encrypt(run.sourceOffset, in, size / sector)) {
      errno = EIO;
      return false;
    }
    if (!source_->WriteAt(run.sourceOffset, in, size)) return false;
    offset += size;
    in += size;
    length -= size;
  }
  return true;
}

}  // namespace bitlocker
