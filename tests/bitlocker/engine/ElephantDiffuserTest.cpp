// The Elephant diffuser: the reading direction agrees with a plain
// transcription of the published definition, and each pass undoes its
// inverse.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "ElephantDiffuser.h"

using namespace bitlocker;

namespace {

std::vector<uint8_t> RandomSector(size_t size, unsigned seed) {
  std::mt19937 random(seed);
  std::vector<uint8_t> sector(size);
  for (auto& byte : sector) byte = static_cast<uint8_t>(random());
  return sector;
}

uint32_t Rotl(uint32_t v, int r) { return r == 0 ? v : (v << r) | (v >> (32 - r)); }

// Decryption as the definition writes it: over i = 0 .. cycles*n - 1,
// d[i mod n] += d[(i + a) mod n] XOR rotl(d[(i + b) mod n], R[i mod 4]),
// with a, b = -2, -5 for A (5 cycles) and +2, +5 for B (3 cycles).
std::vector<uint8_t> DefinitionDecrypt(std::vector<uint8_t> sector, bool diffuserA) {
  const long n = static_cast<long>(sector.size() / 4);
  std::vector<uint32_t> d(n);
  for (long i = 0; i < n; ++i) {
    d[i] = sector[4 * i] | sector[4 * i + 1] << 8 | sector[4 * i + 2] << 16 |
           static_cast<uint32_t>(sector[4 * i + 3]) << 24;
  }
  const int ra[4] = {9, 0, 13, 0}, rb[4] = {0, 10, 0, 25};
  const long cycles = diffuserA ? 5 : 3, a = diffuserA ? -2 : 2, b = diffuserA ? -5 : 5;
  auto mod = [n](long i) { return ((i % n) + n) % n; };
  for (long i = 0; i < cycles * n; ++i) {
    d[mod(i)] += d[mod(i + a)] ^ Rotl(d[mod(i + b)], diffuserA ? ra[i % 4] : rb[i % 4]);
  }
  for (long i = 0; i < n; ++i) {
    for (int k = 0; k < 4; ++k) sector[4 * i + k] = static_cast<uint8_t>(d[i] >> (8 * k));
  }
  return sector;
}

TEST(ElephantDiffuser, DecryptionMatchesTheDefinitionAndEncryptionUndoesIt) {
  for (size_t size : {512u, 1024u, 4096u}) {
    for (unsigned seed = 1; seed <= 3; ++seed) {
      SCOPED_TRACE(size);
      const std::vector<uint8_t> sector = RandomSector(size, seed);
      std::vector<uint8_t> a = sector, b = sector;
      DiffuserADecrypt(a.data(), a.size());
      DiffuserBDecrypt(b.data(), b.size());
      EXPECT_EQ(a, DefinitionDecrypt(sector, true));
      EXPECT_EQ(b, DefinitionDecrypt(sector, false));
      DiffuserAEncrypt(a.data(), a.size());
      DiffuserBEncrypt(b.data(), b.size());
      EXPECT_EQ(a, sector);
      EXPECT_EQ(b, sector);
    }
  }
}

}  // namespace
