#include "engine/AesCcm.h"

#include <openssl/evp.h>

#include <algorithm>

#include "engine/Bytes.h"
#include "engine/EvpCipherContext.h"

namespace bitlocker {
namespace {

constexpr size_t kNonceSize = 12;
constexpr size_t kMacSize = 16;
constexpr size_t kKeySize = 32;

}  // namespace

std::optional<CSecureBuffer> DecryptAesCcmEntry(const MetadataEntry& entry,
                                                const CSecureBuffer& key) {
  if (entry.valueType != kValueAesCcmKey || key.size() != kKeySize) return std::nullopt;
  const CSecureBuffer& value = entry.value;
  if (value.size() <= kNonceSize + kMacSize) return std::nullopt;
  const uint8_t* nonce = value.data();
  const uint8_t* mac = nonce + kNonceSize;
  const uint8_t* sealed = mac + kMacSize;
  int sealedSize = static_cast<int>(value.size() - kNonceSize - kMacSize);

  EvpCipherContext ctx(EVP_CIPHER_CTX_new());
  CSecureBuffer plain(static_cast<size_t>(sealedSize));
  int length = 0;
  bool ok = ctx && EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_ccm(), nullptr, nullptr, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_IVLEN, kNonceSize, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_TAG, kMacSize,
                                const_cast<uint8_t*>(mac)) == 1 &&
            EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), nonce) == 1 &&
            EVP_DecryptUpdate(ctx.get(), plain.data(), &length, sealed, sealedSize) == 1;
  if (!ok) return std::nullopt;
  return plain;
}

std::optional<CSecureBuffer> EncryptAesCcmValue(const CSecureBuffer& plain, const CSecureBuffer& key,
                                                const uint8_t* nonce) {
  if (key.size() != kKeySize) return std::nullopt;
  CSecureBuffer value(kNonceSize + kMacSize + plain.size());
  uint8_t* mac = value.data() + kNonceSize;
  uint8_t* sealed = mac + kMacSize;
  std::copy(nonce, nonce + kNonceSize, value.data());
  EvpCipherContext ctx(EVP_CIPHER_CTX_new());
  int length = 0;
  bool ok = ctx && EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_ccm(), nullptr, nullptr, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_IVLEN, kNonceSize, nullptr) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_SET_TAG, kMacSize, nullptr) == 1 &&
            EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), nonce) == 1 &&
            EVP_EncryptUpdate(ctx.get(), sealed, &length, plain.data(), static_cast<int>(plain.size())) == 1 &&
            EVP_EncryptFinal_ex(ctx.get(), sealed + length, &length) == 1 &&
            EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_AEAD_GET_TAG, kMacSize, mac) == 1;
  if (!ok) return std::nullopt;
  return value;
}

std::optional<CSecureBuffer> WrapKeyEntry(uint16_t method, const CSecureBuffer& keyBytes,
                                          const CSecureBuffer& key, const uint8_t* nonce) {
  // A key entry of version 0 holding a 32-bit method, as Windows wraps them.
  constexpr size_t kKeyOffset = MetadataEntry::kHeaderSize + 4;
  CSecureBuffer plain(kKeyOffset + keyBytes.size());
  StoreLe16(static_cast<uint16_t>(plain.size()), plain.data());
  StoreLe16(kValueKey, plain.data() + 4);
  StoreLe16(method, plain.data() + MetadataEntry::kHeaderSize);
  std::copy(keyBytes.data(), keyBytes.data() + keyBytes.size(), plain.data() + kKeyOffset);
  return EncryptAesCcmValue(plain, key, nonce);
}

std::optional<UnwrappedKey> ReadKeyEntry(const MetadataEntry& entry) {
  if (entry.valueType != kValueKey || entry.value.size() < 4) return std::nullopt;
  UnwrappedKey key;
  key.method = LoadLe16(entry.value.data());
  key.key = entry.value.Slice(4, entry.value.size() - 4);
  return key;
}

std::optional<UnwrappedKey> UnwrapKeyEntry(const MetadataEntry& entry, const CSecureBuffer& key) {
  auto plain = DecryptAesCcmEntry(entry, key);
  if (!plain) return std::nullopt;
  auto entries = ParseEntries(plain->data(), plain->size());
  if (!entries || entries->empty()) return std::nullopt;
  return ReadKeyEntry(entries->front());
}

}  // namespace bitlocker
