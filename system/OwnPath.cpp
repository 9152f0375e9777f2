#include "system/OwnPath.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "platform/Rename.h"

namespace {

// A name found taken, by chance or by someone racing us, is tried anew
// this often.
constexpr int kTries = 16;

// `prefix` and 16 hexadecimal digits from the system's random source, so
// that nobody can take the name in advance; empty, with errno set, when
// the source fails.
std::string UnpredictableName(const std::string& prefix) {
  unsigned char bytes[8];
  if (getentropy(bytes, sizeof bytes) != 0) return std::string();
  std::string name = prefix;
  char digits[3];
  for (unsigned char byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", byte);
    name += digits;
  }
  return name;
}

// Frees `name` of the folder standing there: an empty one is removed, one
// that holds anything is moved aside.  0 also when the folder has gone or
// is no folder any more: the caller's rename replaces that.
int MoveFolderAside(int folder, const std::string& name) {
  if (unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT || errno == ENOTDIR) return 0;
  if (errno != ENOTEMPTY && errno != EEXIST) return errno;
  for (int i = 0; i < kTries; ++i) {
    const std::string aside = UnpredictableName(name + ".refused.");
    if (aside.empty()) return errno;
    const int error = platform::RenameWithoutReplacing(folder, name.c_str(), folder, aside.c_str());
    if (error != EEXIST) return error == ENOENT ? 0 : error;
  }
  return EEXIST;
}

// Has `make` make the file under a fresh temporary name beside `name`:
// that name, or the empty string with *error set.
std::string MakeTemporary(int folder, const std::string& name, const MakeOwnFile& make, int* error) {
  for (int i = 0; i < kTries; ++i) {
    const std::string temporary = UnpredictableName("." + name + ".new.");
    if (temporary.empty()) {
      *error = errno;
      return temporary;
    }
    *error = make(folder, temporary.c_str());
    if (*error == 0) return temporary;
    if (*error != EEXIST) {
      unlinkat(folder, temporary.c_str(), 0);
      return std::string();
    }
  }
  return std::string();
}

}  // namespace

int PutOwnFileAt(const std::string& path, const MakeOwnFile& make) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash + 1 == path.size()) return EINVAL;
  const std::string name = path.substr(slash + 1);
  const int folder = open(slash == 0 ? "/" : path.substr(0, slash).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return errno;
  int error = 0;
  const std::string temporary = MakeTemporary(folder, name, make, &error);
  for (int i = 0; !temporary.empty() && i < kTries; ++i) {
    // rename(2) replaces a file, a FIFO or a link in one step, but no folder.
    if (renameat(folder, temporary.c_str(), folder, name.c_str()) == 0) {
      error = 0;
      break;
    }
    error = errno;
    if (error != EISDIR && error != ENOTEMPTY && error != EEXIST) break;
    if ((error = MoveFolderAside(folder, name)) != 0) break;
    error = EISDIR;
  }
  if (error != 0 && !temporary.empty()) unlinkat(folder, temporary.c_str(), 0);
  close(folder);
  return error;
}
