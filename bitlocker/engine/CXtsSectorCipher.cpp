#include "CXtsSectorCipher.h"

#include "Bytes.h"

namespace bitlocker {

std::unique_ptr<CXtsSectorCipher> CXtsSectorCipher::Make(const CSecureBuffer& key,
                                                         uint32_t sectorSize) {
  if ((key.size() != 32 && key.size() != 64) || sectorSize < 16) return nullptr;
  std::unique_ptr<CXtsSectorCipher> cipher(new CXtsSectorCipher());
  cipher->sectorSize_ = sectorSize;
  cipher->xts_ = MakeEvpCipherContext(key.size() == 32 ? EVP_aes_128_xts() : EVP_aes_256_xts(),
                                      key.data(), false);
  if (!cipher->xts_) return nullptr;
  return cipher;
}

bool CXtsSectorCipher::Decrypt(uint64_t offset, uint8_t* data, size_t count) {
  uint64_t sector = offset / sectorSize_;
  uint8_t tweak[16];
  for (size_t k = 0; k < count; ++k, ++sector, data += sectorSize_) {
    StoreLe128(sector, tweak);
    int length = 0;
    if (EVP_DecryptInit_ex(xts_.get(), nullptr, nullptr, nullptr, tweak) != 1 ||
        EVP_DecryptUpdate(xts_.get(), data, &length, data, static_cast<int>(sectorSize_)) != 1) {
      return false;
    }
  }
  return true;
}

}  // namespace bitlocker
