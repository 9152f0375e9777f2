#include "engine/Unlock.h"

#include <optional>

#include "engine/KeyDerivation.h"
#include "engine/KeyProtector.h"
#include "engine/StartupKeyFile.h"

namespace bitlocker {
namespace {

// The secret a credential amounts to, prepared once for every copy.
struct Secret {
  uint16_t protection = kProtectionClearKey;
  CSecureBuffer hash;                   // password and recovery password
  std::vector<StartupKey> startupKeys;  // startup key file
  StretchCache stretched;
};

Status PrepareSecret(const Credential& credential, Secret* secret, std::string* why) {
  switch (credential.kind()) {
    case Credential::Kind::kClearKey:
      secret->protection = kProtectionClearKey;
      return Status::kOk;
    case Credential::Kind::kPassword: {
      secret->protection = kProtectionPassword;
      auto hash = PasswordHash(credential.text());
      if (!hash) {
        *why = "the password is not valid UTF-8 text";
        return Status::kWrongCredential;
      }
      secret->hash = std::move(*hash);
      return Status::kOk;
    }
    case Credential::Kind::kRecoveryPassword: {
      secret->protection = kProtectionRecoveryPassword;
      auto key = ParseRecoveryPassword(credential.text());
      if (!key) {
        *why = "not a valid recovery password: each group of six digits must be a multiple of 11 "
               "below 720896";
        return Status::kWrongCredential;
      }
      secret->hash = RecoveryPasswordHash(*key);
      return Status::kOk;
    }
    case Credential::Kind::kStartupKeyFile: {
      secret->protection = kProtectionStartupKey;
      bool ioError = false;
      auto keys = ReadStartupKeyFile(credential.text(), &ioError);
      if (ioError) {
        *why = "cannot read the startup key file " + credential.text();
        return Status::kIoError;
      }
      if (!keys) {
        *why = credential.text() + " is not a startup key file that the user at the machine may read";
        return Status::kWrongCredential;
      }
      secret->startupKeys = std::move(*keys);
      return Status::kOk;
    }
  }
  return Status::kWrongCredential;
}

std::optional<CSecureBuffer> OpenProtector(const KeyProtector& protector, Secret* secret) {
  switch (secret->protection) {
    case kProtectionClearKey:
      return OpenWithClearKey(protector);
    case kProtectionPassword:
    case kProtectionRecoveryPassword:
      return OpenWithSecretHash(protector, secret->hash, &secret->stretched);
    case kProtectionStartupKey:
      // A file names the protector it belongs to; try that one first, but
      // let the MAC decide, so a renamed protector still opens.
      for (int matching = 1; matching >= 0; --matching) {
        for (const auto& key : secret->startupKeys) {
          if ((key.id == protector.id) != static_cast<bool>(matching)) continue;
          if (auto vmk = OpenWithExternalKey(protector, key.key)) return vmk;
        }
      }
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<UnwrappedKey> OpenFullVolumeKey(const FveMetadata& metadata,
                                              const CSecureBuffer& volumeMasterKey) {
  for (const auto& entry : metadata.entries) {
    if (entry.type != kEntryFullVolumeKey || entry.valueType != kValueAesCcmKey) continue;
    if (auto key = UnwrapKeyEntry(entry, volumeMasterKey)) return key;
  }
  return std::nullopt;
}

}  // namespace

std::optional<CSecureBuffer> OpenVolumeMasterKey(const FveMetadataBlock& copy, const Credential& credential) {
  Secret secret;
  std::string why;
  if (PrepareSecret(credential, &secret, &why) != Status::kOk) return std::nullopt;
  for (const auto& protector : ListKeyProtectors(copy.metadata)) {
    if (protector.protection != secret.protection) continue;
    if (auto volumeMasterKey = OpenProtector(protector, &secret)) return volumeMasterKey;
  }
  return std::nullopt;
}

Status UnlockFullVolumeKey(const std::vector<FveMetadataBlock>& copies,
                           const Credential& credential, UnwrappedKey* fullVolumeKey,
                           size_t* copyUsed, std::string* why) {
  Secret secret;
  Status prepared = PrepareSecret(credential, &secret, why);
  if (prepared != Status::kOk) return prepared;

  bool anyProtector = false;
  bool openedButDamaged = false;
  bool digestWrong = false;
  for (size_t index = 0; index < copies.size(); ++index) {
    const FveMetadata& metadata = copies[index].metadata;
    for (const auto& protector : ListKeyProtectors(metadata)) {
      if (protector.protection != secret.protection) continue;
      anyProtector = true;
      auto volumeMasterKey = OpenProtector(protector, &secret);
      if (!volumeMasterKey) continue;
      // A copy whose SHA-256 does not hold was changed by someone without
      // the master key: another copy may still be whole.
      if (copies[index].validation && !DigestMatches(*copies[index].validation, *volumeMasterKey)) {
        digestWrong = true;
        break;
      }
      if (auto key = OpenFullVolumeKey(metadata, *volumeMasterKey)) {
        *fullVolumeKey = std::move(*key);
        *copyUsed = index;
        return Status::kOk;
      }
      openedButDamaged = true;
    }
  }
  if (!anyProtector) {
    *why = "the volume has no " + ProtectionName(secret.protection) + " protector";
  } else if (digestWrong) {
    *why = "the volume master key opened, but the metadata's SHA-256 validation is wrong";
    return Status::kUnsupported;
  } else if (openedButDamaged) {
    *why = "the volume master key opened, but the full volume encryption key is damaged";
    return Status::kUnsupported;
  } else {
    *why = std::string("the ") + CredentialKindName(credential.kind()) + " does not open the volume";
  }
  return Status::kWrongCredential;
}

}  // namespace bitlocker
