// Turning what a user knows into the 256-bit keys that open key protectors:
// the password and recovery password hashes and the salted key stretch.
#ifndef ZQ_ENGINE_KEYDERIVATION_H_
#define ZQ_ENGINE_KEYDERIVATION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "engine/CSecureBuffer.h"

namespace bitlocker {

constexpr size_t kSaltSize = 16;
constexpr uint64_t kStretchRounds = 0x100000;

// UTF-8 to UTF-16 little-endian bytes, characters beyond the basic plane as
// surrogate pairs.  Returns nullopt for text that is not valid UTF-8.
std::optional<CSecureBuffer> Utf8ToUtf16Le(std::string_view utf8);

// SHA-256(SHA-256(UTF-16LE(password))); nullopt when the password is not
// valid UTF-8.
std::optional<CSecureBuffer> PasswordHash(std::string_view utf8Password);

// True when `text` has the shape of a recovery password: 48 digits, either
// unbroken or as eight groups of six joined by dashes.  Says nothing of
// whether the digits are valid.
bool HasRecoveryPasswordShape(std::string_view text);

// The 16-byte key that a recovery password spells: each group of six digits
// must be a multiple of 11 below 720896, and holds group / 11 as a 16-bit
// little-endian value.  Returns nullopt for a malformed or invalid password.
std::optional<CSecureBuffer> ParseRecoveryPassword(std::string_view text);

// The recovery password that spells a 16-byte recovery key, as eight dashed
// groups of six digits; the inverse of ParseRecoveryPassword.
std::string FormatRecoveryPassword(const CSecureBuffer& recoveryKey);

// SHA-256 of the 16-byte recovery key.
CSecureBuffer RecoveryPasswordHash(const CSecureBuffer& recoveryKey);

// The salted stretch: `rounds` times, SHA-256 over the 88-byte record
// (last hash, initial hash, salt, 64-bit little-endian round count), the
// last hash and the count starting at zero.  Returns the final hash.
CSecureBuffer StretchKey(const CSecureBuffer& initialHash, const uint8_t* salt,
                         uint64_t rounds = kStretchRounds);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_KEYDERIVATION_H_
