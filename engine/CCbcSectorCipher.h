// AES-CBC sectors, with or without the Elephant diffuser.  Each sector's IV
// is its byte offset on the volume, as a 16-byte little-endian number,
// encrypted with the key.
//
// Decryption takes a batch of sectors as one CBC stream and corrects each
// sector's first block.  Encryption cannot: each block waits on the one
// before, which would leave AES idle most of the time, so the sectors of a
// batch are encrypted side by side over AES-ECB, a block of each at a time.
#ifndef ZQ_ENGINE_CCBCSECTORCIPHER_H_
#define ZQ_ENGINE_CCBCSECTORCIPHER_H_

#include <memory>

#include "engine/CSecureBuffer.h"
#include "engine/EvpCipherContext.h"
#include "engine/SectorCipher.h"

namespace bitlocker {

class CCbcSectorCipher : public ISectorCipher {
 public:
  // An empty `tweakKey` means plain AES-CBC; otherwise the diffuser is used
  // and the per-sector key comes from the tweak key.  Keys of 16 or 32 bytes.
  static std::unique_ptr<CCbcSectorCipher> Make(const CSecureBuffer& key,
                                                const CSecureBuffer& tweakKey,
                                                uint32_t sectorSize);

  bool Decrypt(uint64_t offset, uint8_t* data, size_t count) override;
  bool Encrypt(uint64_t offset, uint8_t* data, size_t count) override;

 private:
  // Bytes handed to OpenSSL per call, small enough to stay in the L2 cache
  // until the corrections after the call.
  static constexpr size_t kBatchBytes = 64 * 1024;
  // How much of a batch is encrypted side by side: this many bytes of
  // sectors, 8 to 32 sectors.  The blocks of one step lie a sector apart,
  // so they fall in few of the first-level cache's sets: larger groups miss
  // it at every step, smaller ones make the ECB calls short.
  static constexpr size_t kInterleaveBytes = 16 * 1024;
  // The diffuser's sector key: two AES blocks, repeated over the sector.
  static constexpr size_t kSectorKeySize = 32;

  CCbcSectorCipher() = default;
  bool DecryptBatch(uint64_t offset, uint8_t* data, size_t count);
  bool EncryptBatch(uint64_t offset, uint8_t* data, size_t count);
  bool MakeIvs(uint64_t offset, size_t count);
  bool MakeSectorKeys(uint64_t offset, size_t count);
  bool UndoDiffuser(uint64_t offset, uint8_t* data, size_t count);
  bool ApplyDiffuser(uint64_t offset, uint8_t* data, size_t count);

  uint32_t sectorSize_ = 0;
  size_t batchSectors_ = 0;
  size_t encryptWidth_ = 0;       // sectors encrypted side by side
  EvpCipherContext ecb_;          // AES-ECB encryption with the key
  EvpCipherContext cbc_;          // AES-CBC decryption with the key
  EvpCipherContext tweakCipher_;  // AES-ECB encryption with the tweak key; null without diffuser
  CSecureBuffer ivs_;             // one IV per sector of a batch, chained on when encrypting
  CSecureBuffer lastBlocks_;      // each sector's last cipher block, before decryption
  CSecureBuffer sectorKeys_;      // 32 bytes per sector of a batch
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CCBCSECTORCIPHER_H_
