#include "util/PipeEnds.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

int MovePipeAboveStandardStreams(int fds[2]) {
  for (int end = 0; end < 2; ++end) {
    if (fds[end] > STDERR_FILENO) continue;
    const int moved = fcntl(fds[end], F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    const int error = errno;
    close(fds[end]);
    fds[end] = moved;
    if (moved < 0) {
      close(fds[1 - end]);
      return error;
    }
  }
  return 0;
}
