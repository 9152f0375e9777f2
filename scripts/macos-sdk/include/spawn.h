// <spawn.h> as on macOS: Darwin closes every descriptor that no file action
// names with a flag, where glibc has a file action for it.
#ifndef ZQ_MACOS_SDK_SPAWN_H_
#define ZQ_MACOS_SDK_SPAWN_H_

#include_next <spawn.h>

#define POSIX_SPAWN_SETEXEC 0x0040
#define POSIX_SPAWN_START_SUSPENDED 0x0080
#define POSIX_SPAWN_CLOEXEC_DEFAULT 0x4000

#ifdef __cplusplus
extern "C" {
#endif
int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* actions, int from)
    __attribute__((unavailable("Linux only")));
#ifdef __cplusplus
}
#endif

#endif  // ZQ_MACOS_SDK_SPAWN_H_
