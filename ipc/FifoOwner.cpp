#include "ipc/FifoOwner.h"

#include <sys/stat.h>
#include <unistd.h>

#include "platform/Users.h"

std::string FifoOwnerRefusal(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) return std::string();
  if (info.st_uid == 0 || info.st_uid == platform::ConsoleUser() || info.st_uid == getuid()) return std::string();
  return path + " belongs to uid " + std::to_string(info.st_uid) +
         ", who is neither root, nor the user at the machine, nor you: it is not used";
}
