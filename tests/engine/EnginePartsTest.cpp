// The engine's parts that need no image: sector decryption and encryption
// for every method, sector size and key size against sectors encrypted here
// with OpenSSL directly (the images have only 128-bit keys and 512-byte
// sectors); key derivation from text beyond ASCII and from text that must
// be refused; the worker pool that decrypts large reads.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/sha.h>

#include <algorithm>
#include <atomic>
#include <random>

#include "engine/Bytes.h"
#include "engine/CWorkerPool.h"
#include "engine/ElephantDiffuser.h"
#include "engine/KeyDerivation.h"
#include "engine/SectorCipher.h"

using namespace bitlocker;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes RandomBytes(size_t size, unsigned seed) {
  std::mt19937 random(seed);
  Bytes bytes(size);
  for (auto& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

Bytes Le128(uint64_t value) {
  Bytes bytes(16);
  StoreLe128(value, bytes.data());
  return bytes;
}

// One OpenSSL encryption with a fresh context, without padding.
Bytes Encrypt(const EVP_CIPHER* cipher, const uint8_t* key, const uint8_t* iv, Bytes data) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  int length = 0;
  EVP_EncryptInit_ex(ctx, cipher, nullptr, key, iv);
  EVP_CIPHER_CTX_set_padding(ctx, 0);
  EVP_EncryptUpdate(ctx, data.data(), &length, data.data(), static_cast<int>(data.size()));
  EVP_CIPHER_CTX_free(ctx);
  return data;
}

// The sector at byte `offset`, encrypted the way `method` writes it.
Bytes EncryptSector(uint16_t method, const Bytes& key, uint64_t offset, uint32_t sectorSize, Bytes sector) {
  const bool aes256 = method == kAesCbc256Diffuser || method == kAesCbc256 || method == kAesXts256;
  if (method == kAesXts128 || method == kAesXts256) {
    return Encrypt(aes256 ? EVP_aes_256_xts() : EVP_aes_128_xts(), key.data(), Le128(offset / sectorSize).data(), sector);
  }
  const EVP_CIPHER* ecb = aes256 ? EVP_aes_256_ecb() : EVP_aes_128_ecb();
  if (method == kAesCbc128Diffuser || method == kAesCbc256Diffuser) {
    Bytes high = Le128(offset);
    high[15] = 0x80;
    Bytes sectorKey = Encrypt(ecb, key.data() + 32, nullptr, Le128(offset));
    const Bytes upper = Encrypt(ecb, key.data() + 32, nullptr, high);
    sectorKey.insert(sectorKey.end(), upper.begin(), upper.end());
    for (size_t i = 0; i < sector.size(); ++i) sector[i] ^= sectorKey[i % 32];
    DiffuserAEncrypt(sector.data(), sector.size());
    DiffuserBEncrypt(sector.data(), sector.size());
  }
  const Bytes iv = Encrypt(ecb, key.data(), nullptr, Le128(offset));
  return Encrypt(aes256 ? EVP_aes_256_cbc() : EVP_aes_128_cbc(), key.data(), iv.data(), sector);
}

class SectorCipherTest : public ::testing::TestWithParam<std::tuple<uint16_t, uint32_t>> {};

// Runs of the lengths that the ciphers' batching could get wrong, each
// starting where the one before ended, from an odd sector whose number needs
// more than 32 bits, in a buffer that is not aligned for AES blocks, both
// ways.  The diffuser, unrolled in both directions, is held against Windows
// by the elephant image.
TEST_P(SectorCipherTest, DecryptsAndEncryptsRunsOfAnyLengthFromAnySector) {
  const auto [method, sectorSize] = GetParam();
  const Bytes key = RandomBytes(64, method * 31 + sectorSize);
  const size_t runs[] = {1, 2, 7, 1, 33, 2, 64, 129, 7, 1, 300}, sectors = 547;
  const uint64_t offset = ((1ULL << 40) + 3) * sectorSize;
  const Bytes plain = RandomBytes(sectors * sectorSize, method);
  Bytes encrypted(1);  // the sectors start at encrypted[1]
  for (size_t k = 0; k < sectors; ++k) {
    const Bytes sector = EncryptSector(method, key, offset + k * sectorSize, sectorSize,
                                       Bytes(plain.begin() + k * sectorSize, plain.begin() + (k + 1) * sectorSize));
    encrypted.insert(encrypted.end(), sector.begin(), sector.end());
  }
  auto cipher = MakeSectorCipher(method, CSecureBuffer(key.data(), key.size()), sectorSize);
  ASSERT_TRUE(cipher);
  Bytes decrypted = encrypted, reencrypted(1);
  reencrypted.insert(reencrypted.end(), plain.begin(), plain.end());
  size_t at = 0;
  for (size_t run : runs) {
    ASSERT_TRUE(cipher->Decrypt(offset + at * sectorSize, decrypted.data() + 1 + at * sectorSize, run));
    ASSERT_TRUE(cipher->Encrypt(offset + at * sectorSize, reencrypted.data() + 1 + at * sectorSize, run));
    at += run;
  }
  EXPECT_TRUE(std::equal(plain.begin(), plain.end(), decrypted.begin() + 1));
  EXPECT_TRUE(reencrypted == encrypted);
}

INSTANTIATE_TEST_SUITE_P(EveryMethod, SectorCipherTest,
                         ::testing::Combine(::testing::Values(kAesCbc128Diffuser, kAesCbc256Diffuser, kAesCbc128,
                                                              kAesCbc256, kAesXts128, kAesXts256),
                                            ::testing::Values(512u, 4096u)));

TEST(SectorCipher, UnknownMethodsAndShortKeysMakeNoCipher) {
  EXPECT_FALSE(MakeSectorCipher(0x8006, CSecureBuffer(64), 512));
  EXPECT_FALSE(MakeSectorCipher(0x0000, CSecureBuffer(64), 512));
  EXPECT_FALSE(MakeSectorCipher(kAesXts128, CSecureBuffer(16), 512));
  EXPECT_FALSE(MakeSectorCipher(kAesCbc128Diffuser, CSecureBuffer(40), 512));
  EXPECT_TRUE(MakeSectorCipher(kAesCbc128, CSecureBuffer(16), 512));
}

TEST(KeyDerivation, PasswordHashIsSha256TwiceOverUtf16AndRefusesTextThatIsNotUtf8) {
  // "p", a umlaut, the euro sign and U+1F600, a surrogate pair.
  const Bytes utf16 = {'p', 0, 0xe4, 0, 0xac, 0x20, 0x3d, 0xd8, 0x00, 0xde};
  Bytes once(SHA256_DIGEST_LENGTH), twice(SHA256_DIGEST_LENGTH);
  SHA256(utf16.data(), utf16.size(), once.data());
  SHA256(once.data(), once.size(), twice.data());
  auto hash = PasswordHash("p\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80");
  ASSERT_TRUE(hash);
  EXPECT_EQ(Bytes(hash->data(), hash->data() + hash->size()), twice);
  // Overlong "/", a lone continuation byte, an encoded surrogate, cut short,
  // beyond U+10FFFF.
  for (const char* bad : {"\xc0\xaf", "\x80", "\xed\xa0\x80", "\xe2\x82", "\xf4\x90\x80\x80", "ok\xff"}) {
    EXPECT_FALSE(PasswordHash(bad)) << bad;
  }
}

TEST(KeyDerivation, RefusesRecoveryPasswordsOfBadShapes) {
  for (const char* shape : {"000011-000022-000033-000044-000055-000066-000077",
                            "000011-000022-000033-000044-000055-000066-000077-00008",
                            "0000110-00022-000033-000044-000055-000066-000077-000088",
                            "000011 000022 000033 000044 000055 000066 000077 000088",
                            "00001a-000022-000033-000044-000055-000066-000077-000088"}) {
    EXPECT_FALSE(HasRecoveryPasswordShape(shape)) << shape;
    EXPECT_FALSE(ParseRecoveryPassword(shape)) << shape;
  }
}

TEST(CWorkerPool, RunsEveryIndexOnceAndNoLaneTwiceAtATime) {
  for (unsigned lanes : {1u, 3u}) {
    CWorkerPool pool(lanes);
    for (size_t count = 0; count < 350; count += 7) {
      std::vector<std::atomic<int>> runs(count), busy(lanes);
      pool.Run(count, [&](size_t index, unsigned lane) {
        ASSERT_TRUE(index < count && lane < lanes) << index << " " << lane;
        EXPECT_EQ(busy[lane]++, 0) << "lane " << lane << " runs two tasks at once";
        runs[index]++;
        busy[lane]--;
      });
      for (size_t i = 0; i < count; ++i) ASSERT_EQ(runs[i], 1) << "index " << i;
    }
  }
}

}  // namespace
