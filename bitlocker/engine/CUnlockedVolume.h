// An unlocked BitLocker volume: reads at any offset return the decrypted
// volume.  Large reads are split into pieces that every core decrypts.
#ifndef ZQ_BITLOCKER_ENGINE_CUNLOCKEDVOLUME_H_
#define ZQ_BITLOCKER_ENGINE_CUNLOCKEDVOLUME_H_

#include <cerrno>
#include <memory>
#include <mutex>
#include <vector>

#include "IVolume.h"
#include "AesCcm.h"
#include "CSecureBuffer.h"
#include "CWorkerPool.h"
#include "IByteSource.h"
#include "SectorCipher.h"
#include "VolumeLayout.h"

namespace bitlocker {

class CUnlockedVolume : public IVolume {
 public:
  // Makes the volume with one cipher per worker; null when the method is
  // not one the engine decrypts.  The key is not kept: the ciphers hold
  // their key schedules, wiped when the volume is destroyed.
  static std::unique_ptr<CUnlockedVolume> Make(std::shared_ptr<const IByteSource> source,
                                               VolumeLayout layout,
                                               const UnwrappedKey& fullVolumeKey,
                                               unsigned lanes);

  uint64_t Size() const override { return layout_.size(); }

  // Thread-safe; concurrent reads take turns, each using every core.
  ssize_t Read(uint64_t offset, void* buffer, size_t length) override;

  const char* ReadOnlyReason() const override { return "the engine does not write yet"; }
  ssize_t Write(uint64_t, const void*, size_t) override {
    errno = EROFS;
    return -1;
  }
  int Flush() override { return 0; }

  const VolumeLayout& layout() const { return layout_; }
  uint16_t method() const { return method_; }

 private:
  // Bytes each worker takes at a time from a large read.
  static constexpr size_t kPieceSize = 256 * 1024;

  CUnlockedVolume(std::shared_ptr<const IByteSource> source, VolumeLayout layout,
                  uint16_t method, unsigned lanes);

  // Reads whole sectors; `offset` and `length` are multiples of the sector size.
  bool ReadSectors(uint64_t offset, uint8_t* out, size_t length);
  bool ProduceRange(uint64_t offset, uint8_t* out, size_t length, ISectorCipher& cipher);

  std::shared_ptr<const IByteSource> source_;
  VolumeLayout layout_;
  uint16_t method_;
  std::mutex readMutex_;
  CWorkerPool pool_;
  std::vector<std::unique_ptr<ISectorCipher>> ciphers_;  // one per lane
  std::vector<uint8_t> bounce_;                          // one sector, for unaligned ends
};

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_CUNLOCKEDVOLUME_H_
