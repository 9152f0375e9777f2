// Sector decryption for every method, sector size and key size, against
// sectors encrypted here with OpenSSL directly, one sector at a time.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include "ElephantDiffuser.h"
#include "SectorCipher.h"

using namespace bitlocker;

namespace {

std::vector<uint8_t> RandomBytes(size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> bytes(size);
  for (auto& byte : bytes) byte = static_cast<uint8_t>(random());
  return bytes;
}

std::vector<uint8_t> Le128(uint64_t value) {
  std::vector<uint8_t> bytes(16, 0);
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  return bytes;
}

// One OpenSSL encryption call with a fresh context.
std::vector<uint8_t> Encrypt(const EVP_CIPHER* cipher, const uint8_t* key, const uint8_t* iv,
                             std::vector<uint8_t> data) {
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  EVP_EncryptInit_ex(ctx, cipher, nullptr, key, iv);
  EVP_CIPHER_CTX_set_padding(ctx, 0);
  int length = 0;
  EVP_EncryptUpdate(ctx, data.data(), &length, data.data(), static_cast<int>(data.size()));
  EVP_CIPHER_CTX_free(ctx);
  return data;
}

// An encryption method and a sector size.
using Case = std::tuple<uint16_t, uint32_t>;

// Encrypts `plain` (whole sectors starting at byte `offset`) the way the
// method writes them.
std::vector<uint8_t> EncryptSectors(const Case& c, const std::vector<uint8_t>& keyData,
                                    uint64_t offset, const std::vector<uint8_t>& plain) {
  const auto [method, sectorSize] = c;
  bool aes256 = method == kAesCbc256Diffuser || method == kAesCbc256 || method == kAesXts256;
  const EVP_CIPHER* ecb = aes256 ? EVP_aes_256_ecb() : EVP_aes_128_ecb();
  std::vector<uint8_t> out;
  for (size_t at = 0; at < plain.size(); at += sectorSize) {
    uint64_t sectorOffset = offset + at;
    std::vector<uint8_t> sector(plain.begin() + at, plain.begin() + at + sectorSize);
    if (method == kAesXts128 || method == kAesXts256) {
      std::vector<uint8_t> tweak = Le128(sectorOffset / sectorSize);
      sector = Encrypt(aes256 ? EVP_aes_256_xts() : EVP_aes_128_xts(), keyData.data(), tweak.data(),
                       sector);
    } else {
      if (method == kAesCbc128Diffuser || method == kAesCbc256Diffuser) {
        std::vector<uint8_t> low = Le128(sectorOffset), high = low;
        high[15] = 0x80;
        std::vector<uint8_t> sectorKey = Encrypt(ecb, keyData.data() + 32, nullptr, low);
        std::vector<uint8_t> upper = Encrypt(ecb, keyData.data() + 32, nullptr, high);
        sectorKey.insert(sectorKey.end(), upper.begin(), upper.end());
        for (size_t i = 0; i < sector.size(); ++i) sector[i] ^= sectorKey[i % 32];
        DiffuserAEncrypt(sector.data(), sector.size());
        DiffuserBEncrypt(sector.data(), sector.size());
      }
      std::vector<uint8_t> iv = Encrypt(ecb, keyData.data(), nullptr, Le128(sectorOffset));
      sector = Encrypt(aes256 ? EVP_aes_256_cbc() : EVP_aes_128_cbc(), keyData.data(), iv.data(),
                       sector);
    }
    out.insert(out.end(), sector.begin(), sector.end());
  }
  return out;
}

class SectorCipherTest : public ::testing::TestWithParam<Case> {};

// Sectors encrypted here decrypt back, in runs of the lengths that the
// ciphers' batching could get wrong (one sector, a pair, odd counts, runs
// across batch boundaries), each starting where the one before ended, from
// an odd sector whose number needs more than 32 bits, in a buffer that is
// not aligned for AES blocks.
TEST_P(SectorCipherTest, DecryptsRunsOfAnyLengthFromAnySector) {
  const auto [method, sectorSize] = GetParam();
  std::vector<uint8_t> keyData = RandomBytes(64, method * 31 + sectorSize);
  const std::vector<size_t> runs = {1, 2, 7, 1, 33, 2, 64, 129, 7, 1, 300};
  size_t sectors = 0;
  for (size_t run : runs) sectors += run;
  const uint64_t offset = ((1ULL << 40) + 3) * sectorSize;
  std::vector<uint8_t> plain = RandomBytes(sectors * sectorSize, method);
  std::vector<uint8_t> encrypted = EncryptSectors(GetParam(), keyData, offset, plain);
  std::vector<uint8_t> buffer(encrypted.size() + 1);
  uint8_t* data = buffer.data() + 1;
  std::memcpy(data, encrypted.data(), encrypted.size());

  auto cipher = MakeSectorCipher(method, CSecureBuffer(keyData.data(), keyData.size()), sectorSize);
  ASSERT_TRUE(cipher);
  size_t at = 0;
  for (size_t run : runs) {
    ASSERT_TRUE(cipher->Decrypt(offset + at * sectorSize, data + at * sectorSize, run));
    at += run;
  }
  for (size_t k = 0; k < sectors; ++k) {
    ASSERT_EQ(0, std::memcmp(data + k * sectorSize, plain.data() + k * sectorSize, sectorSize))
        << "sector " << k << " of the runs";
  }
}

INSTANTIATE_TEST_SUITE_P(EveryMethod, SectorCipherTest,
                         ::testing::Combine(::testing::Values(kAesCbc128Diffuser, kAesCbc256Diffuser, kAesCbc128,
                                                              kAesCbc256, kAesXts128, kAesXts256),
                                            ::testing::Values(512u, 4096u)));

TEST(SectorCipher, UnknownMethodsAndShortKeysMakeNoCipher) {
  CSecureBuffer key64(64), key16(16);
  EXPECT_FALSE(MakeSectorCipher(0x8006, key64, 512));
  EXPECT_FALSE(MakeSectorCipher(0x0000, key64, 512));
  EXPECT_FALSE(MakeSectorCipher(kAesXts128, key16, 512));
  EXPECT_FALSE(MakeSectorCipher(kAesCbc128Diffuser, CSecureBuffer(40), 512));
  EXPECT_TRUE(MakeSectorCipher(kAesCbc128, key16, 512));
}

}  // namespace
