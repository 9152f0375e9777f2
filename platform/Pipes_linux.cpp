#include "platform/Pipes.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>

#include "util/PipeEnds.h"

namespace platform {

int MakePipe(int fds[2]) {
  if (pipe2(fds, O_CLOEXEC) != 0) return errno;
  return MovePipeAboveStandardStreams(fds);
}

// SIGPIPE is blocked in this thread for the write, and a SIGPIPE that the
// write raised is taken back before it is unblocked.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t length) {
  sigset_t sigpipe, saved;
  sigemptyset(&sigpipe);
  sigaddset(&sigpipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &sigpipe, &saved);
  sigset_t pendingBefore;
  sigpending(&pendingBefore);
  const bool alreadyPending = sigismember(&pendingBefore, SIGPIPE);

  const ssize_t written = write(fd, buffer, length);
  const int writeErrno = errno;
  if (written == -1 && writeErrno == EPIPE && !alreadyPending) {
    const timespec noWait = {0, 0};
    while (sigtimedwait(&sigpipe, nullptr, &noWait) == -1 && errno == EINTR) {
    }
  }
  pthread_sigmask(SIG_SETMASK, &saved, nullptr);
  errno = writeErrno;
  return written;
}

}  // namespace platform
