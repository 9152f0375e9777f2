// Making a new BitLocker volume on a device or image file: a Windows 7 style
// header, three metadata copies with their validation, a password, a
// recovery password and optionally a startup key protector, and the data
// area encrypted.
//
// The metadata copies and the stored first sectors lie together at the end
// of the target, so that a file system made on the volume later can end
// before them: dataSize says where.
#ifndef ZQ_ENGINE_VOLUMECREATION_H_
#define ZQ_ENGINE_VOLUMECREATION_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "bitlocker/BitlockerStatus.h"
#include "engine/CSecureBuffer.h"
#include "engine/Guid.h"
#include "engine/IByteSource.h"
#include "engine/SectorCipher.h"

namespace bitlocker {

struct NewVolume {
  uint16_t method = kAesXts128;  // AES-XTS or AES-CBC without diffuser, 128 or 256 bits
  std::string password;          // UTF-8, not empty
  std::string description;       // shown by readers, e.g. "HOST 2024-05-01"
  uint64_t creationTime = 0;     // FILETIME
  // Every sector of the data area is written as encrypted zeros; without,
  // only the first sectors are, and the rest keeps the target's old bytes.
  bool wipe = true;
  // Told, on the thread that calls CreateVolume, how many bytes of the data
  // area the wipe has written out of all of them: once as it starts and
  // after each chunk.  Returning false stops the creation there; it then
  // fails with the header unwritten.
  std::function<bool(uint64_t written, uint64_t total)> wipeProgress;
  // When set, the volume also gets a startup key protector, and this is
  // given its identifier and the contents of its .BEK file before anything
  // is written to the target; creation stops when it returns false with
  // *why said.
  std::function<bool(const Guid& id, const CSecureBuffer& startupKeyFile, std::string* why)> saveStartupKey;
};

struct CreatedVolume {
  Guid volumeId;
  std::string recoveryPassword;  // generated: 48 digits in eight dashed groups
  uint64_t dataSize = 0;         // bytes at the volume's start free for a file system
};

// The smallest target a volume is made on.
constexpr uint64_t kMinimumNewVolumeSize = 8 * 1024 * 1024;

// Writes a new volume over the whole of `target`, which must be writable,
// with 512-byte sectors.  The first sectors are cleared before anything
// else and the header is written last, so a target whose creation fails or
// is stopped part way does not look like a volume, not even an older one.  Returns kOk with
// *created filled, or the reason in *why.
Status CreateVolume(const std::shared_ptr<const IByteSource>& target, const NewVolume& request,
                    CreatedVolume* created, std::string* why);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_VOLUMECREATION_H_
