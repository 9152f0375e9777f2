// AES-XTS sectors: each sector is one data unit whose tweak is its sector
// number, as a 16-byte little-endian number.  Sectors are whole AES blocks,
// so ciphertext stealing never occurs.
//
// OpenSSL's XTS takes a new tweak only through a full context set-up, which
// costs about as much as decrypting a 512-byte sector.  Small sectors are
// therefore decrypted and encrypted by XTS computed here over AES-ECB: a
// chunk of sectors costs two ECB calls, one for all their tweaks and one for
// all their data.  From 2048-byte sectors on, OpenSSL's own XTS is faster
// despite the set-up.
#ifndef ZQ_ENGINE_CXTSSECTORCIPHER_H_
#define ZQ_ENGINE_CXTSSECTORCIPHER_H_

#include <memory>

#include "engine/CSecureBuffer.h"
#include "engine/EvpCipherContext.h"
#include "engine/SectorCipher.h"

namespace bitlocker {

class CXtsSectorCipher : public ISectorCipher {
 public:
  // `key` holds the data key then the tweak key: 32 bytes for AES-128, 64
  // for AES-256.  `sectorSize` is a multiple of 16.
  static std::unique_ptr<CXtsSectorCipher> Make(const CSecureBuffer& key, uint32_t sectorSize);

  bool Decrypt(uint64_t offset, uint8_t* data, size_t count) override;
  bool Encrypt(uint64_t offset, uint8_t* data, size_t count) override;

 private:
  // The contexts that work in one direction.
  struct Direction {
    EvpCipherContext xts;   // OpenSSL's XTS, for large sectors only
    EvpCipherContext data;  // AES-ECB with the data key, for small sectors only
  };

  // Bytes taken per pass, small enough that the data and its block
  // tweaks stay in the first-level cache between the passes.
  static constexpr size_t kChunkBytes = 16 * 1024;
  static constexpr uint32_t kOpensslXtsMinSectorSize = 2048;

  CXtsSectorCipher() = default;
  bool Apply(Direction& direction, uint64_t offset, uint8_t* data, size_t count);
  bool ApplyToChunk(EVP_CIPHER_CTX* data, uint64_t sector, uint8_t* bytes, size_t count);
  bool ApplyOpensslXts(EVP_CIPHER_CTX* xts, uint64_t sector, uint8_t* data, size_t count);

  uint32_t sectorSize_ = 0;
  size_t chunkSectors_ = 0;
  Direction decryption_;
  Direction encryption_;
  EvpCipherContext tweak_;      // AES-ECB encryption with the tweak key
  CSecureBuffer sectorTweaks_;  // one encrypted tweak per sector of a chunk
  CSecureBuffer blockTweaks_;   // one tweak per block of a chunk
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CXTSSECTORCIPHER_H_
