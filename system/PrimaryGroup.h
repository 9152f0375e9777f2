// The primary group of a user, for a child that becomes that user and for
// what is served to them.
#ifndef ZQ_SYSTEM_PRIMARYGROUP_H_
#define ZQ_SYSTEM_PRIMARYGROUP_H_

#include <sys/types.h>

// The group of `user` in the user database; a user without an entry gets
// the group of the same number, never root's.
gid_t PrimaryGroupOf(uid_t user);

#endif  // ZQ_SYSTEM_PRIMARYGROUP_H_
