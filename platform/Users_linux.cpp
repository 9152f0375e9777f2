#include "platform/Users.h"

#include <sys/stat.h>
#include <systemd/sd-login.h>

namespace platform {

// The user of the active session on the machine's first seat, as logind
// tells; without logind (a server, a container), the owner of
// /dev/console.
uid_t ConsoleUser() {
  uid_t user = 0;
  if (sd_seat_get_active("seat0", nullptr, &user) >= 0) return user;
  struct stat info;
  return stat("/dev/console", &info) == 0 ? info.st_uid : 0;
}

bool GroupCanBecomeRoot(gid_t group) { return group == 0; }

}  // namespace platform
