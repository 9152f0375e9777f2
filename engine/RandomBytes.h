// Secret random bytes for new keys, salts, nonces and identifiers, from the
// operating system's generator.
#ifndef ZQ_ENGINE_RANDOMBYTES_H_
#define ZQ_ENGINE_RANDOMBYTES_H_

#include <cstddef>
#include <optional>

#include "engine/CSecureBuffer.h"

namespace bitlocker {

// `size` random bytes; nullopt with errno set when the generator fails.
std::optional<CSecureBuffer> RandomBytes(size_t size);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_RANDOMBYTES_H_
