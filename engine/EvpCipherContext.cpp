#include "engine/EvpCipherContext.h"

namespace bitlocker {

EvpCipherContext MakeEvpCipherContext(const EVP_CIPHER* cipher, const unsigned char* key,
                                      bool encrypt) {
  EvpCipherContext ctx(EVP_CIPHER_CTX_new());
  if (!ctx) return nullptr;
  if (EVP_CipherInit_ex(ctx.get(), cipher, nullptr, key, nullptr, encrypt ? 1 : 0) != 1) {
    return nullptr;
  }
  EVP_CIPHER_CTX_set_padding(ctx.get(), 0);
  return ctx;
}

const EVP_CIPHER* AesEcb(size_t keySize) {
  return keySize == 16 ? EVP_aes_128_ecb() : EVP_aes_256_ecb();
}

}  // namespace bitlocker
