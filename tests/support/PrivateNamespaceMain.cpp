// Runs the service tests in namespaces of their own: a private /tmp,
// /Library, /etc/systemd/system, /var/log, /dev/shm and volumes folders, so
// that FIFOs, the logs, the startup items, the systemd unit, the named
// semaphores and the mount points never meet those of another test or of a
// service running on the machine, and a private process table, so that the
// single-copy rule sees only this test's services.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>

#include "tests/support/ServiceTestEnvironment.h"

namespace {

std::string unavailable;

}  // namespace

const std::string& ServiceTestsUnavailable() { return unavailable; }

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  unavailable = geteuid() != 0 ? "the service tests need root (private mount and process namespaces)"
                : unshare(CLONE_NEWNS | CLONE_NEWPID) != 0 ? "unshare of the mount and process namespaces failed"
                                                           : "";
  if (!unavailable.empty()) return RUN_ALL_TESTS();
  const pid_t child = fork();
  if (child == 0) {
    bool made = mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    mkdir("/etc/systemd", 0755);  // on a machine without systemd
    for (const char* folder : {"/media", "/mnt", "/run/media", "/Library", "/etc/systemd/system", "/var/log"}) {
      mkdir(folder, 0755);  // a folder that cannot be made fails its mount
      made = made && mount("tmpfs", folder, "tmpfs", 0, "mode=0755") == 0;
    }
    if (!made || mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") != 0 ||
        mount("tmpfs", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0 ||
        mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
      std::perror("private /tmp, /Library, /etc/systemd/system, /var/log, /dev/shm, volumes folders and /proc");
      _exit(1);
    }
    _exit(RUN_ALL_TESTS());
  }
  int status = 0;
  waitpid(child, &status, 0);
  // The process namespace died with the child, so nothing may start a task
  // in it any more: leave without the exit handlers, whose leak check would.
  std::fflush(nullptr);
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}
