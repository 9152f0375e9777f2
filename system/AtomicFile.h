// Replacing a file's contents so that readers see the old file or the new
// one, never a part of either.
#ifndef ZQ_SYSTEM_ATOMICFILE_H_
#define ZQ_SYSTEM_ATOMICFILE_H_

#include <sys/types.h>

#include <string>

// Writes `contents` to a new file in the folder of `path` and renames it
// over `path`, making missing folders on the way (mode 0755).  The new
// file has exactly `mode`, whatever the umask.  On failure the temporary
// file is removed and any earlier file at `path` stays as it was.
bool WriteFileAtomically(const std::string& path, const std::string& contents, mode_t mode);

#endif  // ZQ_SYSTEM_ATOMICFILE_H_
