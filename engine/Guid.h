// A GUID as BitLocker stores it: 16 bytes, the first three fields little-endian.
#ifndef ZQ_ENGINE_GUID_H_
#define ZQ_ENGINE_GUID_H_

#include <array>
#include <cstdint>
#include <string>

namespace bitlocker {

struct Guid {
  std::array<uint8_t, 16> bytes{};

  static Guid FromBytes(const uint8_t* p);

  // The usual text form, lower case: "4967d63b-2e29-4ad8-8399-f6a339e3d001".
  std::string ToString() const;

  bool operator==(const Guid& other) const { return bytes == other.bytes; }
  bool operator!=(const Guid& other) const { return bytes != other.bytes; }
};

// The identifier that marks BitLocker and BitLocker To Go volume headers.
extern const Guid kBitlockerVolumeGuid;
// The identifier in the same place on volumes that were encrypted on write,
// "used space only": 92a84d3b-dd80-4d0e-9e4e-b1e3284eaed8.
extern const Guid kEncryptOnWriteVolumeGuid;

}  // namespace bitlocker

#endif  // ZQ_ENGINE_GUID_H_
