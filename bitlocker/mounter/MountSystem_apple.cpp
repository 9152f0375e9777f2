// Mounts on macOS: statfs and getmntinfo for the mount table, which is
// looked at once a second, and forced unmounts.
#include <poll.h>
#include <sys/mount.h>
#include <sys/param.h>

#include <cerrno>
#include <cstring>

#include "MountSystem.h"

// hier(7) gives /var/run to files that describe the running system.
const char kStagingRoot[] = "/var/run/zq-mounter";

namespace {

// Apple documents f_fsid only as the file system's id, not whether two
// mounts may share one; its first word is taken as the mount's id, and a
// mount elsewhere with the same id counts as still mounted.
int IdOf(const struct statfs& info) { return info.f_fsid.val[0]; }

bool AnyStopSignalPending(const sigset_t& stopSignals) {
  sigset_t pending;
  sigpending(&pending);
  for (int signal = 1; signal < NSIG; ++signal) {
    if (sigismember(&stopSignals, signal) == 1 && sigismember(&pending, signal) == 1) return true;
  }
  return false;
}

bool IsMounted(int mountId) {
  struct statfs* table = nullptr;
  const int count = getmntinfo(&table, MNT_NOWAIT);
  for (int i = 0; i < count; ++i) {
    if (IdOf(table[i]) == mountId) return true;
  }
  return false;
}

}  // namespace

int MountIdAt(const std::string& path) {
  struct statfs info;
  if (statfs(path.c_str(), &info) != 0 || path != info.f_mntonname) return -1;
  return IdOf(info);
}

void DetachMount(const std::string& path) { unmount(path.c_str(), MNT_FORCE); }

void WaitForUnmountOrStop(int mountId, int wakeFd, const sigset_t& stopSignals) {
  pollfd woken = {wakeFd, POLLIN, 0};
  while (IsMounted(mountId) && !AnyStopSignalPending(stopSignals)) {
    if (poll(&woken, 1, 1000) < 0 && errno != EINTR) break;
    if (woken.revents != 0) break;
  }
}
