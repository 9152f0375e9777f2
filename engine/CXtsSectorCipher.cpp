#include "engine/CXtsSectorCipher.h"

#include <algorithm>
#include <cstring>

#include "engine/BlockXor.h"
#include "engine/Bytes.h"

namespace bitlocker {
namespace {

// A tweak as one 128-bit value in SIMD lanes: as two 64-bit halves, or four
// 32-bit words, least significant first.
using TweakHalves = uint64_t __attribute__((vector_size(16)));
using TweakWords = int32_t __attribute__((vector_size(16)));
static_assert(kLittleEndianHost, "the tweak lanes follow the byte order of the data");

template <typename To, typename From>
To BitCast(From from) {
  static_assert(sizeof(To) == sizeof(From), "same size");
  To to;
  std::memcpy(&to, &from, sizeof(to));
  return to;
}

inline TweakHalves LoadTweak(const uint8_t* p) {
  TweakHalves t;
  std::memcpy(&t, p, sizeof(t));
  return t;
}

inline void StoreTweak(TweakHalves t, uint8_t* p) { std::memcpy(p, &t, sizeof(t)); }

// The tweak of the next block: the tweak times x in GF(2^128), reduced by
// x^128 + x^7 + x^2 + x + 1.  Each half doubles; the bit leaving the low
// half enters the high one, and the bit leaving the high half comes back
// as 0x87.  The top bit of each word is read as its sign.
inline TweakHalves NextTweak(TweakHalves t) {
  TweakWords signs = BitCast<TweakWords>(t) >> 31;
  TweakWords carries = __builtin_shufflevector(signs, signs, 3, 0, 1, 0) & TweakWords{0x87, 0, 1, 0};
  return (t + t) ^ BitCast<TweakHalves>(carries);
}

// XORs one block with its tweak, keeps the tweak in
// `blockTweaks` at the block's place and moves on to the next block's.
inline void ApplyTweak(TweakHalves& t, uint8_t* data, uint8_t* blockTweaks) {
  StoreTweak(t, blockTweaks);
  StoreTweak(LoadTweak(data) ^ t, data);
  t = NextTweak(t);
}

}  // namespace

std::unique_ptr<CXtsSectorCipher> CXtsSectorCipher::Make(const CSecureBuffer& key,
                                                         uint32_t sectorSize) {
  if ((key.size() != 32 && key.size() != 64) || sectorSize == 0 || sectorSize % kAesBlock != 0) {
    return nullptr;
  }
  size_t half = key.size() / 2;
  std::unique_ptr<CXtsSectorCipher> cipher(new CXtsSectorCipher());
  cipher->sectorSize_ = sectorSize;
  if (sectorSize >= kOpensslXtsMinSectorSize) {
    const EVP_CIPHER* xts = half == 16 ? EVP_aes_128_xts() : EVP_aes_256_xts();
    cipher->decryption_.xts = MakeEvpCipherContext(xts, key.data(), false);
    cipher->encryption_.xts = MakeEvpCipherContext(xts, key.data(), true);
    if (!cipher->decryption_.xts || !cipher->encryption_.xts) return nullptr;
    return cipher;
  }
  cipher->chunkSectors_ = std::max<size_t>(1, kChunkBytes / sectorSize);
  cipher->decryption_.data = MakeEvpCipherContext(AesEcb(half), key.data(), false);
  cipher->encryption_.data = MakeEvpCipherContext(AesEcb(half), key.data(), true);
  cipher->tweak_ = MakeEvpCipherContext(AesEcb(half), key.data() + half, true);
  if (!cipher->decryption_.data || !cipher->encryption_.data || !cipher->tweak_) return nullptr;
  cipher->sectorTweaks_ = CSecureBuffer(cipher->chunkSectors_ * kAesBlock);
  cipher->blockTweaks_ = CSecureBuffer(cipher->chunkSectors_ * sectorSize);
  return cipher;
}

bool CXtsSectorCipher::Decrypt(uint64_t offset, uint8_t* data, size_t count) {
  return Apply(decryption_, offset, data, count);
}

bool CXtsSectorCipher::Encrypt(uint64_t offset, uint8_t* data, size_t count) {
  return Apply(encryption_, offset, data, count);
}

bool CXtsSectorCipher::Apply(Direction& direction, uint64_t offset, uint8_t* data, size_t count) {
  uint64_t sector = offset / sectorSize_;
  if (direction.xts) return ApplyOpensslXts(direction.xts.get(), sector, data, count);
  while (count > 0) {
    size_t chunk = std::min(count, chunkSectors_);
    if (!ApplyToChunk(direction.data.get(), sector, data, chunk)) return false;
    sector += chunk;
    data += chunk * sectorSize_;
    count -= chunk;
  }
  return true;
}

bool CXtsSectorCipher::ApplyOpensslXts(EVP_CIPHER_CTX* xts, uint64_t sector, uint8_t* data,
                                       size_t count) {
  uint8_t tweak[kAesBlock];
  for (size_t k = 0; k < count; ++k, ++sector, data += sectorSize_) {
    StoreLe128(sector, tweak);
    int length = 0;
    if (EVP_CipherInit_ex(xts, nullptr, nullptr, nullptr, tweak, -1) != 1 ||
        EVP_CipherUpdate(xts, data, &length, data, static_cast<int>(sectorSize_)) != 1) {
      return false;
    }
  }
  return true;
}

// Each block is XORed with its tweak, decrypted or encrypted, and XORed
// again.  The first pass keeps the tweaks it computes for the last.  The
// tweaks of a sector form a chain, each waiting on the one before, so two
// sectors' chains are walked side by side for the processor to overlap them.
bool CXtsSectorCipher::ApplyToChunk(EVP_CIPHER_CTX* data, uint64_t sector, uint8_t* bytes,
                                    size_t count) {
  uint8_t* sectorTweaks = sectorTweaks_.data();
  for (size_t k = 0; k < count; ++k) StoreLe128(sector + k, sectorTweaks + k * kAesBlock);
  int length = 0;
  if (EVP_EncryptUpdate(tweak_.get(), sectorTweaks, &length, sectorTweaks,
                        static_cast<int>(count * kAesBlock)) != 1) {
    return false;
  }

  uint8_t* blockTweaks = blockTweaks_.data();
  const size_t sectorSize = sectorSize_;
  const size_t size = count * sectorSize;
  size_t k = 0;
  for (; k + 2 <= count; k += 2) {
    TweakHalves first = LoadTweak(sectorTweaks + k * kAesBlock);
    TweakHalves second = LoadTweak(sectorTweaks + (k + 1) * kAesBlock);
    for (size_t at = k * sectorSize; at < (k + 1) * sectorSize; at += kAesBlock) {
      ApplyTweak(first, bytes + at, blockTweaks + at);
      ApplyTweak(second, bytes + at + sectorSize, blockTweaks + at + sectorSize);
    }
  }
  if (k < count) {
    TweakHalves last = LoadTweak(sectorTweaks + k * kAesBlock);
    for (size_t at = k * sectorSize; at < size; at += kAesBlock) {
      ApplyTweak(last, bytes + at, blockTweaks + at);
    }
  }
  if (EVP_CipherUpdate(data, bytes, &length, bytes, static_cast<int>(size)) != 1) return false;
  XorBlocks(bytes, blockTweaks, size);
  return true;
}

}  // namespace bitlocker
