// An owned OpenSSL cipher context, freed (and its key schedule wiped) with
// its owner.
#ifndef ZQ_ENGINE_EVPCIPHERCONTEXT_H_
#define ZQ_ENGINE_EVPCIPHERCONTEXT_H_

#include <openssl/evp.h>

#include <cstddef>
#include <memory>

namespace bitlocker {

struct EvpCipherContextFree {
  void operator()(EVP_CIPHER_CTX* ctx) const { EVP_CIPHER_CTX_free(ctx); }
};

using EvpCipherContext = std::unique_ptr<EVP_CIPHER_CTX, EvpCipherContextFree>;

// A context set up for `cipher` with `key` in the given direction, padding
// off; null when OpenSSL refuses.
EvpCipherContext MakeEvpCipherContext(const EVP_CIPHER* cipher, const unsigned char* key,
                                      bool encrypt);

// AES-ECB for a 16- or 32-byte key.
const EVP_CIPHER* AesEcb(size_t keySize);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_EVPCIPHERCONTEXT_H_
