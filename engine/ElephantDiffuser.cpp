#include "engine/ElephantDiffuser.h"

#include <cstring>

#include "engine/Bytes.h"

namespace bitlocker {
namespace {

constexpr size_t kMaxWords = 4096 / 4;
constexpr size_t kCyclesA = 5;
constexpr size_t kCyclesB = 3;
constexpr unsigned kRotationsA[4] = {9, 0, 13, 0};
constexpr unsigned kRotationsB[4] = {0, 10, 0, 25};

inline uint32_t RotateLeft(uint32_t value, unsigned bits) {
  return bits == 0 ? value : (value << bits) | (value >> (32 - bits));
}

void LoadWords(const uint8_t* sector, size_t n, uint32_t* words) {
  for (size_t i = 0; i < n; ++i) words[i] = LoadLe32(sector + 4 * i);
}

void StoreWords(const uint32_t* words, size_t n, uint8_t* sector) {
  for (size_t i = 0; i < n; ++i) StoreLe32(words[i], sector + 4 * i);
}

// Diffuser A mixes each word with the words two and five places before it,
// diffuser B with those two and five places after it, the sector wrapping
// round.  Decryption adds the mix running forwards; encryption subtracts it
// running backwards.  Indexes wrap by comparison: a division per word would
// cost more than the mixing itself.
inline size_t Before(size_t i, size_t by, size_t n) { return i >= by ? i - by : i + n - by; }
inline size_t After(size_t i, size_t by, size_t n) { return i + by < n ? i + by : i + by - n; }

inline uint32_t MixA(const uint32_t* d, size_t n, size_t i) {
  return d[Before(i, 2, n)] ^ RotateLeft(d[Before(i, 5, n)], kRotationsA[i & 3]);
}

inline uint32_t MixB(const uint32_t* d, size_t n, size_t i) {
  return d[After(i, 2, n)] ^ RotateLeft(d[After(i, 5, n)], kRotationsB[i & 3]);
}

}  // namespace

// The hot path of reading: each new word depends on the new word two
// places before, so the last five results are carried in registers instead
// of going through memory, four words (one round of rotations) at a time.
void DiffuserADecrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  uint32_t back5 = d[n - 5], back4 = d[n - 4], back3 = d[n - 3], back2 = d[n - 2], back1 = d[n - 1];
  for (size_t cycle = 0; cycle < kCyclesA; ++cycle) {
    for (size_t i = 0; i < n; i += 4) {
      uint32_t w0 = d[i] + (back2 ^ RotateLeft(back5, kRotationsA[0]));
      uint32_t w1 = d[i + 1] + (back1 ^ RotateLeft(back4, kRotationsA[1]));
      uint32_t w2 = d[i + 2] + (w0 ^ RotateLeft(back3, kRotationsA[2]));
      uint32_t w3 = d[i + 3] + (w1 ^ RotateLeft(back2, kRotationsA[3]));
      d[i] = w0;
      d[i + 1] = w1;
      d[i + 2] = w2;
      d[i + 3] = w3;
      back5 = back1;
      back4 = w0;
      back3 = w1;
      back2 = w2;
      back1 = w3;
    }
  }
  StoreWords(d, n, sector);
}

// Encryption runs backwards and reads words before the one it changes,
// which this cycle has not touched yet except where the sector wraps round
// at its start; above that, the four words of a round are computed together
// from words not yet changed.
void DiffuserAEncrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  for (size_t cycle = 0; cycle < kCyclesA; ++cycle) {
    size_t i = n - 4;
    for (; i >= 8; i -= 4) {
      uint32_t w0 = d[i] - (d[i - 2] ^ RotateLeft(d[i - 5], kRotationsA[0]));
      uint32_t w1 = d[i + 1] - (d[i - 1] ^ RotateLeft(d[i - 4], kRotationsA[1]));
      uint32_t w2 = d[i + 2] - (d[i] ^ RotateLeft(d[i - 3], kRotationsA[2]));
      uint32_t w3 = d[i + 3] - (d[i + 1] ^ RotateLeft(d[i - 2], kRotationsA[3]));
      d[i] = w0;
      d[i + 1] = w1;
      d[i + 2] = w2;
      d[i + 3] = w3;
    }
    for (i += 4; i-- > 0;) d[i] -= MixA(d, n, i);
  }
  StoreWords(d, n, sector);
}

// Diffuser B reads words after the one it changes, which this cycle has not
// touched yet except where the sector wraps round; away from the wrap the
// four rotations of a round are unrolled with constant indexes.
void DiffuserBDecrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  size_t unwrapped = n - 8;  // the rounds that start here reach past the end
  for (size_t cycle = 0; cycle < kCyclesB; ++cycle) {
    size_t i = 0;
    for (; i < unwrapped; i += 4) {
      d[i] += d[i + 2] ^ RotateLeft(d[i + 5], kRotationsB[0]);
      d[i + 1] += d[i + 3] ^ RotateLeft(d[i + 6], kRotationsB[1]);
      d[i + 2] += d[i + 4] ^ RotateLeft(d[i + 7], kRotationsB[2]);
      d[i + 3] += d[i + 5] ^ RotateLeft(d[i + 8], kRotationsB[3]);
    }
    for (; i < n; ++i) d[i] += MixB(d, n, i);
  }
  StoreWords(d, n, sector);
}

// Encryption's counterpart of diffuser A's decryption: running backwards,
// each new word depends on the new word two places after, so the five words
// after the round being computed are carried in registers.
void DiffuserBEncrypt(uint8_t* sector, size_t size) {
  uint32_t d[kMaxWords];
  size_t n = size / 4;
  LoadWords(sector, n, d);
  uint32_t next4 = d[0], next5 = d[1], next6 = d[2], next7 = d[3], next8 = d[4];
  for (size_t cycle = 0; cycle < kCyclesB; ++cycle) {
    for (size_t i = n; i > 0;) {
      i -= 4;
      uint32_t w3 = d[i + 3] - (next5 ^ RotateLeft(next8, kRotationsB[3]));
      uint32_t w2 = d[i + 2] - (next4 ^ RotateLeft(next7, kRotationsB[2]));
      uint32_t w1 = d[i + 1] - (w3 ^ RotateLeft(next6, kRotationsB[1]));
      uint32_t w0 = d[i] - (w2 ^ RotateLeft(next5, kRotationsB[0]));
      d[i] = w0;
      d[i + 1] = w1;
      d[i + 2] = w2;
      d[i + 3] = w3;
      next8 = next4;
      next7 = w3;
      next6 = w2;
      next5 = w1;
      next4 = w0;
    }
  }
  StoreWords(d, n, sector);
}

}  // namespace bitlocker
