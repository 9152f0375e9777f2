#include "platform/Pipes.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "util/PipeEnds.h"

namespace platform {

// macOS has no pipe2, so the ends are made close-on-exec right after.
int MakePipe(int fds[2]) {
  if (pipe(fds) != 0) return errno;
  fcntl(fds[0], F_SETFD, FD_CLOEXEC);
  fcntl(fds[1], F_SETFD, FD_CLOEXEC);
  return MovePipeAboveStandardStreams(fds);
}

// macOS raises SIGPIPE for the whole process, so blocking it in one
// thread is no protection; the descriptor itself is told not to raise it.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t length) {
  fcntl(fd, F_SETNOSIGPIPE, 1);
  return write(fd, buffer, length);
}

}  // namespace platform
