// Decryption and encryption of a volume's sectors with its full volume
// encryption key.
// One cipher object holds its own OpenSSL contexts and is used by one
// thread at a time; a volume makes one per worker.
#ifndef ZQ_ENGINE_SECTORCIPHER_H_
#define ZQ_ENGINE_SECTORCIPHER_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/CSecureBuffer.h"

namespace bitlocker {

enum EncryptionMethod : uint16_t {
  kAesCbc128Diffuser = 0x8000,
  kAesCbc256Diffuser = 0x8001,
  kAesCbc128 = 0x8002,
  kAesCbc256 = 0x8003,
  kAesXts128 = 0x8004,
  kAesXts256 = 0x8005,
};

// "AES-XTS 128", ... or "method 0x1234".
std::string EncryptionMethodName(uint16_t method);

class ISectorCipher {
 public:
  virtual ~ISectorCipher() = default;

  // Decrypts `count` whole sectors in place; the first lies at byte
  // `offset` of the volume.  False when the cipher library fails.
  virtual bool Decrypt(uint64_t offset, uint8_t* data, size_t count) = 0;

  // Encrypts `count` whole sectors in place, the inverse of Decrypt.
  virtual bool Encrypt(uint64_t offset, uint8_t* data, size_t count) = 0;
};

// A cipher for `method` with the key bytes of the full volume encryption key
// entry; null when the method is unknown or the key too short.
std::unique_ptr<ISectorCipher> MakeSectorCipher(uint16_t method, const CSecureBuffer& keyData,
                                                uint32_t sectorSize);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_SECTORCIPHER_H_
