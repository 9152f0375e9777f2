// From a credential to the full volume encryption key: find the protectors
// the credential can open, open the volume master key, and with it the key
// that encrypts the data.
#ifndef ZQ_ENGINE_UNLOCK_H_
#define ZQ_ENGINE_UNLOCK_H_

#include <optional>
#include <string>
#include <vector>

#include "bitlocker/BitlockerStatus.h"
#include "engine/AesCcm.h"
#include "engine/Credential.h"
#include "engine/FveMetadata.h"

namespace bitlocker {

// Tries the copies in order, so that a copy whose keys are damaged gives way
// to the next.  On success fills *fullVolumeKey (method and key bytes) and
// *copyUsed (the index of the copy that opened); otherwise says why in
// *why.  Nothing secret outlives a failed call.
Status UnlockFullVolumeKey(const std::vector<FveMetadataBlock>& copies,
                           const Credential& credential, UnwrappedKey* fullVolumeKey,
                           size_t* copyUsed, std::string* why);

// The volume master key that `credential` opens in `copy`, unchecked
// against the copy's validation; nullopt when no protector opens with it.
std::optional<CSecureBuffer> OpenVolumeMasterKey(const FveMetadataBlock& copy, const Credential& credential);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_UNLOCK_H_
