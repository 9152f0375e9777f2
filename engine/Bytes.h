// Little-endian loads and stores: every number on a BitLocker volume is
// stored least significant byte first.
#ifndef ZQ_ENGINE_BYTES_H_
#define ZQ_ENGINE_BYTES_H_

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace bitlocker {

// On a little-endian machine the hot loads and stores below are plain
// copies; the byte-by-byte form is left for the others.
constexpr bool kLittleEndianHost = __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__;

inline uint16_t LoadLe16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

inline uint32_t LoadLe32(const uint8_t* p) {
  if (kLittleEndianHost) {
    uint32_t value;
    std::memcpy(&value, p, sizeof(value));
    return value;
  }
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline void StoreLe16(uint16_t value, uint8_t* p) {
  p[0] = static_cast<uint8_t>(value);
  p[1] = static_cast<uint8_t>(value >> 8);
}

inline void StoreLe32(uint32_t value, uint8_t* p) {
  if (kLittleEndianHost) {
    std::memcpy(p, &value, sizeof(value));
    return;
  }
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline uint64_t LoadLe64(const uint8_t* p) {
  if (kLittleEndianHost) {
    uint64_t value;
    std::memcpy(&value, p, sizeof(value));
    return value;
  }
  return static_cast<uint64_t>(LoadLe32(p)) | (static_cast<uint64_t>(LoadLe32(p + 4)) << 32);
}

inline void StoreLe64(uint64_t value, uint8_t* p) {
  if (kLittleEndianHost) {
    std::memcpy(p, &value, sizeof(value));
    return;
  }
  for (int i = 0; i < 8; ++i) p[i] = static_cast<uint8_t>(value >> (8 * i));
}

// Writes `value` as 16 little-endian bytes (the upper eight are zero), the
// form in which sector offsets and numbers enter the ciphers.
inline void StoreLe128(uint64_t value, uint8_t* p) {
  StoreLe64(value, p);
  StoreLe64(0, p + 8);
}

// A number as "0x" and lower-case hex digits, for offsets in messages.
inline std::string Hex(uint64_t value) {
  char text[24];
  std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(value));
  return text;
}

}  // namespace bitlocker

#endif  // ZQ_ENGINE_BYTES_H_
