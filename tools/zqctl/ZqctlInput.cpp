#include "tools/zqctl/ZqctlInput.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>

#include "bitlocker/MountPoint.h"
#include "platform/Users.h"
#include "service/ClientInputChecks.h"
#include "util/Utf8.h"

namespace {

bool IsPlainInWord(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c >= 0x80 ||
         (c != '\0' && std::strchr("._/,:=+@%-", c) != nullptr);
}

// A whole number in `base` no larger than `limit`, without a sign.
bool IsNumber(const std::string& text, int base, unsigned long limit) {
  if (text.empty() || text[0] == '-' || text[0] == '+') return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long value = std::strtoul(text.c_str(), &end, base);
  return errno == 0 && *end == '\0' && value <= limit;
}

}  // namespace

bool CheckDevice(const std::string& word, std::string* name, std::string* error) {
  *name = word.rfind("/dev/", 0) == 0 ? word.substr(5) : word;
  if (!IsPlainDeviceName(*name)) {
    *error = "'" + word + "' is not a device name";
    return false;
  }
  struct stat info;
  if (stat(("/dev/" + *name).c_str(), &info) != 0 || !S_ISBLK(info.st_mode)) {
    *error = "'" + word + "' is not a device on this machine";
    return false;
  }
  return true;
}

std::string AbsolutePath(const std::string& word) {
  std::string whole = word;
  if (word.empty() || word[0] != '/') {
    char folder[PATH_MAX];
    whole = std::string(getcwd(folder, sizeof folder) != nullptr ? folder : "") + "/" + word;
  }
  std::string path;
  std::istringstream parts(whole);
  for (std::string part; std::getline(parts, part, '/');)
    if (!part.empty() && part != ".") path += "/" + part;
  return path.empty() ? "/" : path;
}

bool CheckMountPoint(const std::string& typed, std::string* path, std::string* word, std::string* error) {
  if (!IsValidUtf8(typed) || typed.find('\n') != std::string::npos) {
    *error = "the mount point '" + typed + "' is not one line of UTF-8 text";
    return false;
  }
  *path = AbsolutePath(typed);
  *error = MountPointRefusal(*path, platform::ConsoleUser(), MountedFolder::kReleasedFirst);
  *word = ShellWordOf(*path);
  return error->empty();
}

std::string ShellWordOf(const std::string& path) {
  std::string word;
  for (char c : path) {
    if (!IsPlainInWord(static_cast<unsigned char>(c))) word += '\\';
    word += c;
  }
  return word;
}

bool CheckMountOptions(const std::string& options, std::string* error) {
  std::istringstream list(options);
  for (std::string option; std::getline(list, option, ',');) {
    const size_t equals = option.find('=');
    const std::string key = option.substr(0, equals), value = equals == std::string::npos ? "" : option.substr(equals + 1);
    const bool owner = key == "uid" || key == "gid";
    if (equals != std::string::npos && (owner || key == "umask")) {
      if (owner ? IsNumber(value, 10, 0xFFFFFFFEul) : IsNumber(value, 8, 0777)) continue;
      *error = "bad value in mount option '" + option + "': " + key +
               (owner ? " takes a whole number from 0 to 4294967294" : " takes an octal number from 0 to 777");
      return false;
    }
    if (option != "raw" && option != "ro" && !option.empty()) {
      *error = "unknown mount option '" + option + "' (known: raw, ro, uid=N, gid=N, umask=OOO)";
      return false;
    }
  }
  return true;
}

std::string CredentialForService(const std::string& typed) {
  struct stat info;
  if (typed.empty() || typed[0] == '/' || stat(typed.c_str(), &info) != 0 || !S_ISREG(info.st_mode)) return typed;
  return AbsolutePath(typed);
}
