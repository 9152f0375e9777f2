#include "engine/Guid.h"

#include <cstdio>
#include <cstring>

namespace bitlocker {

const Guid kBitlockerVolumeGuid = {{0x3b, 0xd6, 0x67, 0x49, 0x29, 0x2e, 0xd8, 0x4a,
                                    0x83, 0x99, 0xf6, 0xa3, 0x39, 0xe3, 0xd0, 0x01}};
const Guid kEncryptOnWriteVolumeGuid = {{0x3b, 0x4d, 0xa8, 0x92, 0x80, 0xdd, 0x0e, 0x4d,
                                         0x9e, 0x4e, 0xb1, 0xe3, 0x28, 0x4e, 0xae, 0xd8}};

Guid Guid::FromBytes(const uint8_t* p) {
  Guid guid;
  std::memcpy(guid.bytes.data(), p, guid.bytes.size());
  return guid;
}

std::string Guid::ToString() const {
  const uint8_t* b = bytes.data();
  char text[37];
  std::snprintf(text, sizeof(text),
                "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x",
                b[3], b[2], b[1], b[0], b[5], b[4], b[7], b[6], b[8], b[9], b[10], b[11], b[12],
                b[13], b[14], b[15]);
  return text;
}

}  // namespace bitlocker
