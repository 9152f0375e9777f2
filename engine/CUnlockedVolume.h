// An unlocked BitLocker volume: reads at any offset return the decrypted
// volume, writes are encrypted onto the device.  Large reads and writes are
// split into pieces that every core works on.
#ifndef ZQ_ENGINE_CUNLOCKEDVOLUME_H_
#define ZQ_ENGINE_CUNLOCKEDVOLUME_H_

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "bitlocker/IVolume.h"
#include "engine/AesCcm.h"
#include "engine/CRangeLock.h"
#include "engine/CSecureBuffer.h"
#include "engine/CWorkerPool.h"
#include "engine/IByteSource.h"
#include "engine/SectorCipher.h"
#include "engine/VolumeLayout.h"

namespace bitlocker {

class CUnlockedVolume : public IVolume {
 public:
  // Makes the volume with its ciphers; null when the method is not one the
  // engine decrypts.  The key is not kept: the ciphers hold their key
  // schedules, wiped when the volume is destroyed.  The volume is written
  // only when `source` was opened for writing.
  static std::unique_ptr<CUnlockedVolume> Make(std::shared_ptr<const IByteSource> source,
                                               VolumeLayout layout,
                                               const UnwrappedKey& fullVolumeKey,
                                               unsigned lanes, bool sourceWritable);

  uint64_t Size() const override { return layout_.size(); }

  // Reads and writes are thread-safe.  Those of different sectors run side
  // by side, those of the same sector take turns; large ones share the
  // workers, taking turns with each other.
  ssize_t Read(uint64_t offset, void* buffer, size_t length) override;
  const char* ReadOnlyReason() const override { return readOnlyReason_; }
  ssize_t Write(uint64_t offset, const void* buffer, size_t length) override;
  int Flush() override;

  const VolumeLayout& layout() const { return layout_; }
  uint16_t method() const { return method_; }

 private:
  // Bytes each worker takes at a time from a large read or write; anything
  // up to this size is done on the caller's thread alone.
  static constexpr size_t kPieceSize = 256 * 1024;
  // Bytes a large write encrypts before writing them.
  static constexpr size_t kWriteChunk = 16 * kPieceSize;

  class SpareCipher;
  // Works on the piece of `size` bytes at `start` of a range with a cipher
  // of its own.
  using PieceWork = std::function<bool(size_t start, size_t size, ISectorCipher& cipher)>;

  CUnlockedVolume(std::shared_ptr<const IByteSource> source, VolumeLayout layout,
                  uint16_t method, unsigned lanes);

  // `offset` and `length` are multiples of the sector size.
  bool ReadSectors(uint64_t offset, uint8_t* out, size_t length);
  // Runs `work` over a range of `length` bytes in whole pieces: on the
  // caller's thread with a spare cipher when there is one piece, else on
  // every worker.
  bool OverPieces(size_t length, const PieceWork& work);
  bool ProduceRange(uint64_t offset, uint8_t* out, size_t length, ISectorCipher& cipher);
  // Encrypts `in` in place where the layout says so and writes it.
  bool StoreRange(uint64_t offset, uint8_t* in, size_t length, ISectorCipher& cipher);

  std::shared_ptr<const IByteSource> source_;
  VolumeLayout layout_;
  uint16_t method_;
  const char* readOnlyReason_ = nullptr;
  CRangeLock sectorLocks_;  // in sectors
  std::mutex poolMutex_;    // for the pool and its lanes' ciphers
  CWorkerPool pool_;
  std::vector<std::unique_ptr<ISectorCipher>> ciphers_;  // one per lane
  // Ciphers for work done on the caller's thread, one per concurrent caller.
  std::mutex spareMutex_;
  std::condition_variable spareReturned_;
  std::vector<std::unique_ptr<ISectorCipher>> spares_;
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CUNLOCKEDVOLUME_H_
