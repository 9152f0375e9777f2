// A clear key protector, which none of the images has, added to a real
// volume: the entry is sealed here with OpenSSL's AES-CCM around the volume
// master key, and appended to the first metadata copy.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "Bytes.h"
#include "KeyDerivation.h"
#include "KeyProtector.h"
#include "PatchedImageTest.h"

using namespace bitlocker;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Le(uint64_t value, int size) {
  Bytes bytes(size);
  for (int i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  return bytes;
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes joined;
  for (const auto& part : parts) joined.insert(joined.end(), part.begin(), part.end());
  return joined;
}

Bytes Entry(uint16_t type, uint16_t valueType, const Bytes& value) {
  return Join({Le(8 + value.size(), 2), Le(type, 2), Le(valueType, 2), Le(1, 2), value});
}

Bytes KeyEntry(const Bytes& key) { return Entry(0, 1, Join({Le(0x2000, 4), key})); }

// AES-CCM with a 12-byte nonce and a 16-byte MAC, stored nonce, MAC, data.
Bytes SealedKeyEntry(const Bytes& key, const Bytes& plain) {
  Bytes nonce = {1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0};
  Bytes sealed(plain.size()), mac(16);
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  int length = 0;
  EVP_EncryptInit_ex(ctx, EVP_aes_256_ccm(), nullptr, nullptr, nullptr);
  EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_SET_IVLEN, 12, nullptr);
  EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_SET_TAG, 16, nullptr);
  EVP_EncryptInit_ex(ctx, nullptr, nullptr, key.data(), nonce.data());
  EVP_EncryptUpdate(ctx, sealed.data(), &length, plain.data(), static_cast<int>(plain.size()));
  EVP_EncryptFinal_ex(ctx, sealed.data() + length, &length);
  EVP_CIPHER_CTX_ctrl(ctx, EVP_CTRL_AEAD_GET_TAG, 16, mac.data());
  EVP_CIPHER_CTX_free(ctx);
  return Entry(0, 5, Join({nonce, mac, sealed}));
}

Bytes VolumeMasterKeyEntry(uint16_t protection, const Bytes& properties) {
  Bytes id(16, 0x5a);
  return Entry(2, 8, Join({id, Le(0, 8), Le(0, 2), Le(protection, 2), properties}));
}

using AddedProtectorTest = PatchedImageTest;

TEST_F(AddedProtectorTest, AClearKeyOpensWithAnEmptyCredential) {
  std::string why;
  EXPECT_EQ(Unlock(Credential::ClearKey(), &why), Status::kWrongCredential);

  // The volume master key, as the image's password protector holds it.
  std::unique_ptr<CBitlockerVolume> volume;
  ASSERT_EQ(CBitlockerVolume::Open(source_, &volume, &why), Status::kOk) << why;
  Bytes volumeMasterKey;
  StretchCache cache;
  for (const auto& protector : ListKeyProtectors(volume->metadata().metadata)) {
    if (protector.protection != kProtectionPassword) continue;
    auto key = OpenWithSecretHash(protector, *PasswordHash(image_->password), &cache);
    if (key) volumeMasterKey.assign(key->data(), key->data() + key->size());
  }
  ASSERT_EQ(volumeMasterKey.size(), 32u);

  Bytes clearKey(32);
  for (size_t i = 0; i < clearKey.size(); ++i) clearKey[i] = static_cast<uint8_t>(0x11 * i + 3);
  const Bytes entry = VolumeMasterKeyEntry(
      kProtectionClearKey, Join({KeyEntry(clearKey), SealedKeyEntry(clearKey, KeyEntry(volumeMasterKey))}));
  // Appended to the first metadata copy, whose size grows by the entry's.
  uint8_t size[4];
  ASSERT_TRUE(source_->ReadAt(offsets_[0] + 64, size, 4));
  source_->Patch(offsets_[0] + 64 + LoadLe32(size), entry);
  source_->Patch(offsets_[0] + 64, Le(LoadLe32(size) + entry.size(), 4));

  ExpectOpensWith(Credential::ClearKey());
  ExpectOpensWith(Credential::FromText(""));
}

}  // namespace
