// The Elephant diffuser of AES-CBC + Elephant: two keyless, invertible
// mixing passes over a sector viewed as 32-bit little-endian words.  The
// volume encrypts with A then B; reading undoes B, then A.
#ifndef ZQ_ENGINE_ELEPHANTDIFFUSER_H_
#define ZQ_ENGINE_ELEPHANTDIFFUSER_H_

#include <cstddef>
#include <cstdint>

namespace bitlocker {

// Each works in place on `size` bytes, a multiple of 16 between 32 and 4096.
void DiffuserAEncrypt(uint8_t* sector, size_t size);
void DiffuserADecrypt(uint8_t* sector, size_t size);
void DiffuserBEncrypt(uint8_t* sector, size_t size);
void DiffuserBDecrypt(uint8_t* sector, size_t size);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_ELEPHANTDIFFUSER_H_
