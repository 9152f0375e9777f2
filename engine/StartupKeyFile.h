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

// The method a startup key is stored with, in its file and in its protector.
constexpr uint16_t kMethodExternalKey = 0x2002;

// "ExternalKey" in UTF-16LE with its terminating zero, the name Windows
// gives startup keys in their files and protectors.
CSecureBuffer ExternalKeyName();

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

// The contents of a .BEK file holding `key` as Windows writes one: a
// metadata header named by the key's identifier, then one external key
// entry with the name "ExternalKey" and the key.  `creationTime` is a
// FILETIME.
CSecureBuffer FormatStartupKeyFile(const Guid& id, const CSecureBuffer& key, uint64_t creationTime);

// The name Windows gives that file: the identifier in upper case, ".BEK".
std::string StartupKeyFileName(const Guid& id);

}  // namespace bitlocker

#endif  // ZQ_ENGINE_STARTUPKEYFILE_H_
