#include "engine/SectorCipher.h"

#include <cstdio>

#include "engine/CCbcSectorCipher.h"
#include "engine/CXtsSectorCipher.h"

namespace bitlocker {
namespace {

// With the diffuser the key data holds the sector key in its first 32
// bytes and the tweak key in the next 32, of which AES-128 uses half.
constexpr size_t kTweakKeyOffset = 32;

}  // namespace

std::string EncryptionMethodName(uint16_t method) {
  switch (method) {
    case kAesCbc128Diffuser:
      return "AES-CBC 128 with Elephant diffuser";
    case kAesCbc256Diffuser:
      return "AES-CBC 256 with Elephant diffuser";
    case kAesCbc128:
      return "AES-CBC 128";
    case kAesCbc256:
      return "AES-CBC 256";
    case kAesXts128:
      return "AES-XTS 128";
    case kAesXts256:
      return "AES-XTS 256";
  }
  char text[32];
  std::snprintf(text, sizeof(text), "method 0x%04x", method);
  return text;
}

std::unique_ptr<ISectorCipher> MakeSectorCipher(uint16_t method, const CSecureBuffer& keyData,
                                                uint32_t sectorSize) {
  switch (method) {
    case kAesCbc128Diffuser:
    case kAesCbc256Diffuser: {
      size_t keySize = method == kAesCbc128Diffuser ? 16 : 32;
      if (keyData.size() < kTweakKeyOffset + keySize) return nullptr;
      return CCbcSectorCipher::Make(keyData.Slice(0, keySize),
                                    keyData.Slice(kTweakKeyOffset, keySize), sectorSize);
    }
    case kAesCbc128:
    case kAesCbc256: {
      size_t keySize = method == kAesCbc128 ? 16 : 32;
      if (keyData.size() < keySize) return nullptr;
      return CCbcSectorCipher::Make(keyData.Slice(0, keySize), CSecureBuffer(), sectorSize);
    }
    case kAesXts128:
    case kAesXts256: {
      size_t keySize = method == kAesXts128 ? 32 : 64;
      if (keyData.size() < keySize) return nullptr;
      return CXtsSectorCipher::Make(keyData.Slice(0, keySize), sectorSize);
    }
  }
  return nullptr;
}

}  // namespace bitlocker
