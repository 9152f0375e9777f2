#include "ElephantDiffuser.h"

#include <cstring>

#include "Bytes.h"

namespace bitlocker {
namespace {

constexpr size_t kMaxWords = 4096 / 4;
constexpr size_t kCyclesA = 5;
constexpr size_t kCyclesB = 3;
constexpr unsigned kRotationsA[4] = {9, 0, 13, 0};
constexpr unsigned kRotationsB[4] = {0, 10, 0, 25};

uint32_t RotateLeft(uint32_t value, unsigned bits) {
  return bits == 0 ? value : (value << bits) | (value >> (32 - bits));
}

void LoadWords(const uint8_t* sector, size_t n, uint32_t* words) {
  for (size_t i = 0; i < n; ++i) words[i] = LoadLe32(sector + 4 * i);
}

void StoreWords(const uint32_t* words, size_t n, uint8_t* sector) {
  for (size_t i = 0; i < n; ++i) {
    for (int b = 0; b < 4; ++b) sector[4 * i + b] = static_cast<uint8_t>(words[i] >> (8 * b));
  }
}

// Diffuser A mixes each word with the words two and five places before it,
// diffuser B with those two and five places after it.
uint32_t MixA(const uint32_t* d, size_t n, size_t i) {
  return d[(i + n - 2) % n] ^ RotateLeft(d[(i + n - 5) % n], kRotationsA[i % 4]);
}

uint32_t MixB(const uint32_t* d, size_t n, size_t i) {
  return d[(i + 2) % n] ^ RotateLeft(d[(i + 5) % n], kRotationsB[i % 4]);
}

}  // namespace

void DiffuserADecrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  for (size_t i = 0; i < kCyclesA * n; ++i) d[i % n] += MixA(d, n, i % n);
  StoreWords(d, n, sector);
}

void DiffuserAEncrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  for (size_t i = kCyclesA * n; i-- > 0;) d[i % n] -= MixA(d, n, i % n);
  StoreWords(d, n, sector);
}

void DiffuserBDecrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  for (size_t i = 0; i < kCyclesB * n; ++i) d[i % n] += MixB(d, n, i % n);
  StoreWords(d, n, sector);
}

void DiffuserBEncrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  for (size_t i = kCyclesB * n; i-- > 0;) d[i % n] -= MixB(d, n, i % n);
  StoreWords(d, n, sector);
}

}  // namespace bitlocker
