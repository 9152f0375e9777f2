// XOR of whole AES blocks, a word at a time: the sector ciphers XOR every
// byte they decrypt at least once, so a byte loop here would cost as much
// as the AES itself.
#ifndef ZQ_ENGINE_BLOCKXOR_H_
#define ZQ_ENGINE_BLOCKXOR_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace bitlocker {

constexpr size_t kAesBlock = 16;

// data[i] ^= mask[i] for one block.
inline void XorBlock(uint8_t* data, const uint8_t* mask) {
  uint64_t d[2], m[2];
  std::memcpy(d, data, kAesBlock);
  std::memcpy(m, mask, kAesBlock);
  d[0] ^= m[0];
  d[1] ^= m[1];
  std::memcpy(data, d, kAesBlock);
}

// data[i] ^= mask[i] for `size` bytes, a multiple of the block size.
inline void XorBlocks(uint8_t* data, const uint8_t* mask, size_t size) {
  for (size_t at = 0; at < size; at += kAesBlock) XorBlock(data + at, mask + at);
}

}  // namespace bitlocker

#endif  // ZQ_ENGINE_BLOCKXOR_H_
