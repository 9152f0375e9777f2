#include "service/ClientInputChecks.h"

#include <sys/stat.h>

#include <climits>
#include <cstdlib>
#include <cstring>

#include "platform/Users.h"

namespace {

bool IsAsciiAlnum(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); }

// Whether only root, or those who can become root, can change the entry at
// `path`.  A link's own mode bits mean nothing: its folder decides who can
// replace it.  In a sticky folder (/tmp) only an entry's owner can replace
// it, so anyone may write the folder as long as every entry on the path is
// root's, which the walk checks of each entry anyway.
bool OnlyRootCanChange(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0 || info.st_uid != 0) return false;
  if (S_ISLNK(info.st_mode) || (S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0)) return true;
  if ((info.st_mode & S_IWOTH) != 0) return false;
  return (info.st_mode & S_IWGRP) == 0 || platform::GroupCanBecomeRoot(info.st_gid);
}

// The same for an absolute path and every folder above it.
bool OnlyRootCanChangeAnyPart(std::string path) {
  for (;;) {
    if (!OnlyRootCanChange(path)) return false;
    if (path == "/") return true;
    const size_t slash = path.rfind('/');
    path = slash == 0 ? "/" : path.substr(0, slash);
  }
}

}  // namespace

bool IsPlainDeviceName(const std::optional<std::string>& name) {
  if (!name || name->empty() || (*name)[0] == '.') return false;
  for (char c : *name)
    if (!IsAsciiAlnum(c) && std::strchr("._-", c) == nullptr) return false;
  return true;
}

bool IsSingleShellWord(const std::optional<std::string>& word) {
  if (!word) return false;
  for (size_t i = 0; i < word->size(); ++i) {
    const char c = (*word)[i];
    if (c == '\\') {
      // A backslash quotes the next character, whatever it is, except a
      // line end, which the shell would swallow with it.
      if (++i == word->size() || (*word)[i] == '\n') return false;
      continue;
    }
    const bool beyondAscii = (static_cast<unsigned char>(c) & 0x80) != 0;
    if (c == '\0' || (!IsAsciiAlnum(c) && !beyondAscii && std::strchr("._/,:=+@%-", c) == nullptr)) return false;
  }
  return true;
}

const char* DaemonProgramRefusal(const std::string& bundlePath) {
  const std::string program = bundlePath + "/Contents/MacOS/Zq-NorvaneServices";
  char resolved[PATH_MAX];
  struct stat info;
  if (program[0] != '/' || realpath(program.c_str(), resolved) == nullptr || stat(resolved, &info) != 0 ||
      !S_ISREG(info.st_mode))
    return "the service program does not exist in that bundle";
  if (!OnlyRootCanChangeAnyPart(program) || !OnlyRootCanChangeAnyPart(resolved))
    return "the service program or a folder above it is not root's alone";
  return nullptr;
}
