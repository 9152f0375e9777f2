// AES-CBC sectors, with or without the Elephant diffuser.  Each sector's IV
// is its byte offset on the volume, as a 16-byte little-endian number,
// encrypted with the key.
#ifndef ZQ_BITLOCKER_ENGINE_CCBCSECTORCIPHER_H_
#define ZQ_BITLOCKER_ENGINE_CCBCSECTORCIPHER_H_

#include <memory>

#include "CSecureBuffer.h"
#include "EvpCipherContext.h"
#include "SectorCipher.h"

namespace bitlocker {

class CCbcSectorCipher : public ISectorCipher {
 public:
  // An empty `tweakKey` means plain AES-CBC; otherwise the diffuser is used
  // and the per-sector key comes from the tweak key.  Keys of 16 or 32 bytes.
  static std::unique_ptr<CCbcSectorCipher> Make(const CSecureBuffer& key,
                                                const CSecureBuffer& tweakKey,
                                                uint32_t sectorSize);

  bool Decrypt(uint64_t offset, uint8_t* data, size_t count) override;

 private:
  // Bytes handed to OpenSSL per call, small enough to stay in the L2 cache
  // until the corrections after the call.
  static constexpr size_t kBatchBytes = 64 * 1024;
  // The diffuser's sector key: two AES blocks, repeated over the sector.
  static constexpr size_t kSectorKeySize = 32;

  CCbcSectorCipher() = default;
  bool DecryptBatch(uint64_t offset, uint8_t* data, size_t count);
  bool UndoDiffuser(uint64_t offset, uint8_t* data, size_t count);

  uint32_t sectorSize_ = 0;
  size_t batchSectors_ = 0;
  EvpCipherContext ivCipher_;     // AES-ECB encryption with the key
  EvpCipherContext cbc_;          // AES-CBC decryption with the key
  EvpCipherContext tweakCipher_;  // AES-ECB encryption with the tweak key; null without diffuser
  CSecureBuffer ivs_;             // one IV per sector of a batch
  CSecureBuffer lastBlocks_;      // each sector's last cipher block, before decryption
  CSecureBuffer sectorKeys_;      // 32 bytes per sector of a batch
};

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_CCBCSECTORCIPHER_H_
