// AES-XTS sectors: each sector is one data unit whose tweak is its sector
// number, as a 16-byte little-endian number.
#ifndef ZQ_BITLOCKER_ENGINE_CXTSSECTORCIPHER_H_
#define ZQ_BITLOCKER_ENGINE_CXTSSECTORCIPHER_H_

#include <memory>

#include "CSecureBuffer.h"
#include "EvpCipherContext.h"
#include "SectorCipher.h"

namespace bitlocker {

class CXtsSectorCipher : public ISectorCipher {
 public:
  // `key` holds both XTS keys: 32 bytes for AES-128, 64 for AES-256.
  static std::unique_ptr<CXtsSectorCipher> Make(const CSecureBuffer& key, uint32_t sectorSize);

  bool Decrypt(uint64_t offset, uint8_t* data, size_t count) override;

 private:
  CXtsSectorCipher() = default;

  uint32_t sectorSize_ = 0;
  EvpCipherContext xts_;
};

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_CXTSSECTORCIPHER_H_
