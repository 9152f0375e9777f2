// Startup key (.BEK) files: a metadata header followed by external key
// entries, each a key identifier with a 256-bit key in the clear.
#ifndef ZQ_ENGINE_STARTUPKEYFILE_H_
#define ZQ_ENGINE_STARTUPKEYFILE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/CSecureBuffer.h"
#include "engine/Guid.h"

namespace bitlocker {

struct StartupKey {
  Guid id;  // matches the key identifier of the protector it opens
  CSecureBuffer key;
};

// The keys of a .BEK file's contents; nullopt when the contents are not a
// startup key file or hold no 256-bit key.
std::optional<std::vector<StartupKey>> ParseStartupKeyFile(const uint8_t* data, size_t size);

// Reads and parses the .BEK file at `path`, with the rights of the user at
// the machine when this process is root (UserFileReader.h).  nullopt also
// when that user may not read it.  Sets *ioError when the file opened but
// could not be read.
std::optional<std::vector<StartupKey>> ReadStartupKeyFile(const std::string& path, bool* ioError);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_STARTUPKEYFILE_H_
