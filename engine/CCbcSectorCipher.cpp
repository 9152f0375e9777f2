#include "engine/CCbcSectorCipher.h"

#include <algorithm>
#include <cstring>

#include "engine/BlockXor.h"
#include "engine/Bytes.h"
#include "engine/ElephantDiffuser.h"

namespace bitlocker {
namespace {

const EVP_CIPHER* CbcFor(size_t keySize) {
  return keySize == 16 ? EVP_aes_128_cbc() : EVP_aes_256_cbc();
}

bool ValidKeySize(size_t size) { return size == 16 || size == 32; }

bool EncryptInPlace(EVP_CIPHER_CTX* ctx, uint8_t* data, size_t size) {
  int length = 0;
  return EVP_EncryptUpdate(ctx, data, &length, data, static_cast<int>(size)) == 1;
}

}  // namespace

std::unique_ptr<CCbcSectorCipher> CCbcSectorCipher::Make(const CSecureBuffer& key,
                                                         const CSecureBuffer& tweakKey,
                                                         uint32_t sectorSize) {
  if (!ValidKeySize(key.size()) || sectorSize % kAesBlock != 0 || sectorSize == 0) return nullptr;
  std::unique_ptr<CCbcSectorCipher> cipher(new CCbcSectorCipher());
  cipher->sectorSize_ = sectorSize;
  cipher->batchSectors_ = std::max<size_t>(1, kBatchBytes / sectorSize);
  cipher->encryptWidth_ = std::clamp<size_t>(kInterleaveBytes / sectorSize, 8, 32);
  cipher->ecb_ = MakeEvpCipherContext(AesEcb(key.size()), key.data(), true);
  cipher->cbc_ = MakeEvpCipherContext(CbcFor(key.size()), key.data(), false);
  if (!cipher->ecb_ || !cipher->cbc_) return nullptr;
  if (!tweakKey.empty()) {
    if (!ValidKeySize(tweakKey.size())) return nullptr;
    cipher->tweakCipher_ = MakeEvpCipherContext(AesEcb(tweakKey.size()), tweakKey.data(), true);
    if (!cipher->tweakCipher_) return nullptr;
    cipher->sectorKeys_ = CSecureBuffer(cipher->batchSectors_ * kSectorKeySize);
  }
  cipher->ivs_ = CSecureBuffer(cipher->batchSectors_ * kAesBlock);
  cipher->lastBlocks_ = CSecureBuffer(cipher->batchSectors_ * kAesBlock);
  return cipher;
}

bool CCbcSectorCipher::Decrypt(uint64_t offset, uint8_t* data, size_t count) {
  while (count > 0) {
    size_t batch = std::min(count, batchSectors_);
    if (!DecryptBatch(offset, data, batch)) return false;
    offset += static_cast<uint64_t>(batch) * sectorSize_;
    data += batch * sectorSize_;
    count -= batch;
  }
  return true;
}

bool CCbcSectorCipher::Encrypt(uint64_t offset, uint8_t* data, size_t count) {
  while (count > 0) {
    size_t batch = std::min(count, batchSectors_);
    if (!EncryptBatch(offset, data, batch)) return false;
    offset += static_cast<uint64_t>(batch) * sectorSize_;
    data += batch * sectorSize_;
    count -= batch;
  }
  return true;
}

bool CCbcSectorCipher::MakeIvs(uint64_t offset, size_t count) {
  uint8_t* ivs = ivs_.data();
  for (size_t k = 0; k < count; ++k) {
    StoreLe128(offset + static_cast<uint64_t>(k) * sectorSize_, ivs + k * kAesBlock);
  }
  return EncryptInPlace(ecb_.get(), ivs, count * kAesBlock);
}

// The batch is decrypted as one CBC stream, which chains each sector to the
// last cipher block of the one before; the first block of every later
// sector is then corrected to its own IV.
bool CCbcSectorCipher::DecryptBatch(uint64_t offset, uint8_t* data, size_t count) {
  uint8_t* ivs = ivs_.data();
  uint8_t* last = lastBlocks_.data();
  for (size_t k = 0; k + 1 < count; ++k) {
    std::memcpy(last + k * kAesBlock, data + (k + 1) * sectorSize_ - kAesBlock, kAesBlock);
  }
  if (!MakeIvs(offset, count)) return false;

  int length = 0;
  if (EVP_DecryptInit_ex(cbc_.get(), nullptr, nullptr, nullptr, ivs) != 1 ||
      EVP_DecryptUpdate(cbc_.get(), data, &length, data, static_cast<int>(count * sectorSize_)) != 1) {
    return false;
  }
  for (size_t k = 1; k < count; ++k) {
    uint8_t* first = data + k * sectorSize_;
    XorBlock(first, last + (k - 1) * kAesBlock);
    XorBlock(first, ivs + k * kAesBlock);
  }
  return !tweakCipher_ || UndoDiffuser(offset, data, count);
}

// Each sector's chaining block starts as its IV; every step XORs the next
// block of each sector of a group into its chaining block and encrypts them
// all in one call, which leaves each sector's cipher block as its next
// chaining block.
bool CCbcSectorCipher::EncryptBatch(uint64_t offset, uint8_t* data, size_t count) {
  if (tweakCipher_ && !ApplyDiffuser(offset, data, count)) return false;
  if (!MakeIvs(offset, count)) return false;
  for (size_t group = 0; group < count; group += encryptWidth_) {
    size_t n = std::min(encryptWidth_, count - group);
    uint8_t* chains = ivs_.data() + group * kAesBlock;
    uint8_t* sectors = data + group * sectorSize_;
    for (size_t at = 0; at < sectorSize_; at += kAesBlock) {
      for (size_t k = 0; k < n; ++k) {
        XorBlock(chains + k * kAesBlock, sectors + k * sectorSize_ + at);
      }
      if (!EncryptInPlace(ecb_.get(), chains, n * kAesBlock)) return false;
      for (size_t k = 0; k < n; ++k) {
        std::memcpy(sectors + k * sectorSize_ + at, chains + k * kAesBlock, kAesBlock);
      }
    }
  }
  return true;
}

bool CCbcSectorCipher::MakeSectorKeys(uint64_t offset, size_t count) {
  uint8_t* keys = sectorKeys_.data();
  for (size_t k = 0; k < count; ++k) {
    uint8_t* sectorKey = keys + k * kSectorKeySize;
    StoreLe128(offset + static_cast<uint64_t>(k) * sectorSize_, sectorKey);
    std::memcpy(sectorKey + kAesBlock, sectorKey, kAesBlock);
    sectorKey[kAesBlock + 15] = 0x80;
  }
  return EncryptInPlace(tweakCipher_.get(), keys, count * kSectorKeySize);
}

bool CCbcSectorCipher::UndoDiffuser(uint64_t offset, uint8_t* data, size_t count) {
  if (!MakeSectorKeys(offset, count)) return false;
  for (size_t k = 0; k < count; ++k) {
    uint8_t* sector = data + k * sectorSize_;
    const uint8_t* sectorKey = sectorKeys_.data() + k * kSectorKeySize;
    DiffuserBDecrypt(sector, sectorSize_);
    DiffuserADecrypt(sector, sectorSize_);
    for (size_t at = 0; at < sectorSize_; at += kSectorKeySize) {
      XorBlocks(sector + at, sectorKey, std::min<size_t>(kSectorKeySize, sectorSize_ - at));
    }
  }
  return true;
}

bool CCbcSectorCipher::ApplyDiffuser(uint64_t offset, uint8_t* data, size_t count) {
  if (!MakeSectorKeys(offset, count)) return false;
  for (size_t k = 0; k < count; ++k) {
    uint8_t* sector = data + k * sectorSize_;
    const uint8_t* sectorKey = sectorKeys_.data() + k * kSectorKeySize;
    for (size_t at = 0; at < sectorSize_; at += kSectorKeySize) {
      XorBlocks(sector + at, sectorKey, std::min<size_t>(kSectorKeySize, sectorSize_ - at));
    }
    DiffuserAEncrypt(sector, sectorSize_);
    DiffuserBEncrypt(sector, sectorSize_);
  }
  return true;
}

}  // namespace bitlocker
