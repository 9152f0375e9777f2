// Reading a file that a credential names with the rights of the person who
// gave it.  The engine runs as root in the service and the mounter, so a
// startup key file is never opened with root's rights there: a user who
// cannot read a key file must not unlock the volume it protects.
#ifndef ZQ_ENGINE_USERFILEREADER_H_
#define ZQ_ENGINE_USERFILEREADER_H_

#include <cstddef>
#include <string>

#include "engine/CSecureBuffer.h"

namespace bitlocker {

enum class UserRead {
  kRead,
  kRefused,    // that user may not open it, or it is a link or no file
  kTooLarge,   // larger than the most asked for
  kIoError,    // opened, but the reading failed
};

// The contents of the file at `path`, at most `maxSize` bytes, as the user
// at the machine may read them when this process is root (a child that has
// become that user opens it, without following a link, and hands the
// bytes back), and as this process's own user otherwise.
UserRead ReadFileAsUser(const std::string& path, size_t maxSize, CSecureBuffer* contents);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_USERFILEREADER_H_
