// Mounts on Linux: the mount table of /proc/self/mountinfo, which wakes a
// poll on every change, and lazy unmounts.
#include <fcntl.h>
#include <poll.h>
#include <sys/mount.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

#include "MountSystem.h"
#include "MountTable.h"

const char kStagingRoot[] = "/run/zq-mounter";

int MountIdAt(const std::string& path) {
  const std::optional<MountEntry> top = TopMountAt(ReadMountTable(), path);
  return top ? top->id : -1;
}

void DetachMount(const std::string& path) { umount2(path.c_str(), MNT_DETACH); }

void WaitForUnmountOrStop(int mountId, int wakeFd, const sigset_t& stopSignals) {
  const int signalFd = signalfd(-1, &stopSignals, SFD_CLOEXEC);
  const int mountTable = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  pollfd watched[3] = {{wakeFd, POLLIN, 0}, {signalFd, POLLIN, 0}, {mountTable, POLLPRI, 0}};
  for (;;) {
    // The table is looked at on every change, and once a second besides.
    if (!HasMount(ReadMountTable(), mountId)) break;
    if (poll(watched, 3, 1000) < 0 && errno != EINTR) break;
    if ((watched[0].revents | watched[1].revents) != 0) break;
  }
  if (signalFd >= 0) close(signalFd);
  if (mountTable >= 0) close(mountTable);
}
