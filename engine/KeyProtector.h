// The volume master key protectors of a volume, and opening each kind.
#ifndef ZQ_ENGINE_KEYPROTECTOR_H_
#define ZQ_ENGINE_KEYPROTECTOR_H_

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "engine/CSecureBuffer.h"
#include "engine/FveMetadata.h"
#include "engine/Guid.h"

namespace bitlocker {

enum ProtectionType : uint16_t {
  kProtectionClearKey = 0x0000,
  kProtectionTpm = 0x0100,
  kProtectionStartupKey = 0x0200,
  kProtectionTpmAndPin = 0x0500,
  kProtectionRecoveryPassword = 0x0800,
  kProtectionSmartCard = 0x1000,
  kProtectionPassword = 0x2000,
};

struct KeyProtector {
  Guid id;
  uint16_t protection = 0;
  uint64_t modified = 0;  // FILETIME
  std::vector<MetadataEntry> properties;
};

// The volume master key entries of `metadata`, in order; malformed ones are
// left out.
std::vector<KeyProtector> ListKeyProtectors(const FveMetadata& metadata);

// "password", "recovery password", ... or "protection 0x1234".
std::string ProtectionName(uint16_t protection);

// Remembers the stretched keys of one unlock attempt by salt, so that copies
// of the metadata sharing a salt cost the stretch once.
using StretchCache = std::map<std::vector<uint8_t>, CSecureBuffer>;

// Opens a password or recovery password protector with the secret's hash
// (PasswordHash or RecoveryPasswordHash).  Returns the volume master key,
// or nullopt when the secret is wrong.
std::optional<CSecureBuffer> OpenWithSecretHash(const KeyProtector& protector,
                                                const CSecureBuffer& hash, StretchCache* cache);

// Opens a startup key protector with the 256-bit key of a .BEK file.
std::optional<CSecureBuffer> OpenWithExternalKey(const KeyProtector& protector,
                                                 const CSecureBuffer& key);

// Opens a clear key protector with the key it carries.
std::optional<CSecureBuffer> OpenWithClearKey(const KeyProtector& protector);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_KEYPROTECTOR_H_
