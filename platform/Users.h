// Who is at the machine, and which groups count as root.
#ifndef ZQ_PLATFORM_USERS_H_
#define ZQ_PLATFORM_USERS_H_

#include <sys/types.h>

namespace platform {

// The user at the machine (root when nobody is logged in at it): on macOS
// the owner of /dev/console; on Linux the user of the active session of
// seat0 as systemd-logind reports it, else the owner of /dev/console.
uid_t ConsoleUser();

// Whether the members of this group can already become root, so that a
// file only they may change is as safe as one only root may change: the
// group wheel (gid 0), and on macOS the group admin (gid 80), which owns
// /Applications.
bool GroupCanBecomeRoot(gid_t group);

}  // namespace platform

#endif  // ZQ_PLATFORM_USERS_H_
