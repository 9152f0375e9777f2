#include "platform/Users.h"

#include <sys/stat.h>

namespace platform {

uid_t ConsoleUser() {
  struct stat info;
  return stat("/dev/console", &info) == 0 ? info.st_uid : 0;
}

bool GroupCanBecomeRoot(gid_t group) {
  constexpr gid_t kAdminGroup = 80;
  return group == 0 || group == kAdminGroup;
}

}  // namespace platform
