#include "system/PrimaryGroup.h"

#include <pwd.h>

gid_t PrimaryGroupOf(uid_t user) {
  struct passwd entry;
  struct passwd* found = nullptr;
  char text[4096];
  return getpwuid_r(user, &entry, text, sizeof text, &found) == 0 && found != nullptr ? found->pw_gid : user;
}
