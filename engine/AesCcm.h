// Opening keys that BitLocker stores wrapped with AES-CCM.
#ifndef ZQ_ENGINE_AESCCM_H_
#define ZQ_ENGINE_AESCCM_H_

#include <optional>

#include "engine/CSecureBuffer.h"
#include "engine/MetadataEntry.h"

namespace bitlocker {

// A decrypted key entry: the encryption method it is for and its bytes.
struct UnwrappedKey {
  uint16_t method = 0;
  CSecureBuffer key;
};

// Decrypts an AES-CCM encrypted key entry (value type 5: 8-byte nonce time,
// 4-byte nonce counter, 16-byte MAC, encrypted data) with a 256-bit key.
// Returns the plain data, or nullopt when the key is wrong (the MAC does not
// match) or the entry is malformed.
std::optional<CSecureBuffer> DecryptAesCcmEntry(const MetadataEntry& entry,
                                                const CSecureBuffer& key);

// The value of an AES-CCM encrypted entry (as DecryptAesCcmEntry reads it)
// holding `plain` sealed under a 256-bit key with a 12-byte nonce; nullopt
// when the key has the wrong size.
std::optional<CSecureBuffer> EncryptAesCcmValue(const CSecureBuffer& plain, const CSecureBuffer& key,
                                                const uint8_t* nonce);

// Decrypts an AES-CCM encrypted key entry whose plain data is itself a key
// entry (value type 1: 32-bit method, key bytes), and returns that key.
std::optional<UnwrappedKey> UnwrapKeyEntry(const MetadataEntry& entry, const CSecureBuffer& key);

// The value of an AES-CCM encrypted entry holding a key entry of `method`
// and `keyBytes` (what UnwrapKeyEntry opens), sealed under a 256-bit key
// with a 12-byte nonce; nullopt when the wrapping key has the wrong size.
std::optional<CSecureBuffer> WrapKeyEntry(uint16_t method, const CSecureBuffer& keyBytes,
                                          const CSecureBuffer& key, const uint8_t* nonce);

// The method and bytes of a plain key entry (value type 1).
std::optional<UnwrappedKey> ReadKeyEntry(const MetadataEntry& entry);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_AESCCM_H_
