#include "mounter/MountRequest.h"

#include <cerrno>
#include <cstdlib>
#include <sstream>

namespace {

// A whole unsigned number in `base` no larger than `limit`.
bool ParseNumber(const std::string& text, int base, unsigned long limit, unsigned long* value) {
  if (text.empty() || text[0] == '-' || text[0] == '+') return false;
  char* end = nullptr;
  errno = 0;
  *value = std::strtoul(text.c_str(), &end, base);
  return errno == 0 && *end == '\0' && *value <= limit;
}

bool ApplyOption(const std::string& option, MountRequest* request, std::string* error) {
  const size_t equals = option.find('=');
  const std::string key = option.substr(0, equals);
  const std::string value = equals == std::string::npos ? "" : option.substr(equals + 1);
  unsigned long number = 0;
  if (option == "raw") {
    request->raw = true;
  } else if (option == "ro") {
    request->readOnly = true;
  } else if (key == "uid" && ParseNumber(value, 10, 0xFFFFFFFEul, &number)) {
    request->uid = static_cast<uid_t>(number);
    request->uidGiven = true;
  } else if (key == "gid" && ParseNumber(value, 10, 0xFFFFFFFEul, &number)) {
    request->gid = static_cast<gid_t>(number);
    request->gidGiven = true;
  } else if (key == "umask" && ParseNumber(value, 8, 0777, &number)) {
    request->umask = static_cast<mode_t>(number);
  } else {
    *error = "unknown or malformed option \"" + option + "\"";
    return false;
  }
  return true;
}

}  // namespace

bool ParseMountRequest(const std::vector<std::string>& words, MountRequest* request, std::string* error) {
  if (words.size() != 3) {
    *error = "expected 3 words (RAW_DEVICE MOUNT_POINT OPTIONS), got " + std::to_string(words.size());
    return false;
  }
  *request = MountRequest();
  request->rawDevice = words[0];
  request->mountPoint = words[1];
  if (request->rawDevice.empty() || request->mountPoint.empty()) {
    *error = "the device and the mount point must not be empty";
    return false;
  }
  std::istringstream options(words[2]);
  for (std::string option; std::getline(options, option, ',');) {
    if (!option.empty() && !ApplyOption(option, request, error)) return false;
  }
  return true;
}

bool SettleOwner(uid_t consoleUser, gid_t consoleGroup, MountRequest* request, std::string* error) {
  if (!request->uidGiven) request->uid = consoleUser;
  if (!request->gidGiven) request->gid = consoleGroup;
  // Files that show as root's on a disk the user brought would pass every
  // check that trusts an owner, and the user chose every byte of them.
  for (const char* option : {request->uidGiven && request->uid == 0 ? "uid=0" : nullptr,
                             request->gidGiven && request->gid == 0 ? "gid=0" : nullptr}) {
    if (option != nullptr && consoleUser != 0) {
      *error = std::string("the option ") + option +
               " would make what is served look like root's; only root at the machine may ask for it";
      return false;
    }
  }
  if (request->uid != 0 && request->uid != consoleUser) {
    *error = "uid=" + std::to_string(request->uid) + " is neither root nor the user at the machine (uid " +
             std::to_string(consoleUser) + ")";
    return false;
  }
  if (request->gid != 0 && request->gid != consoleGroup) {
    *error = "gid=" + std::to_string(request->gid) + " is neither root's group nor that of the user at the machine (gid " +
             std::to_string(consoleGroup) + ")";
    return false;
  }
  return true;
}
