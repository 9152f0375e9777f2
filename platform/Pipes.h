// Pipes between this process and its children, and writing to a reader
// that may have gone away.
#ifndef ZQ_PLATFORM_PIPES_H_
#define ZQ_PLATFORM_PIPES_H_

#include <sys/types.h>

#include <cstddef>

namespace platform {

// Makes a pipe whose two ends are close-on-exec from the start and lie above
// the three standard streams.  Returns 0 or an errno value.
int MakePipe(int fds[2]);

// Writes like write(2), except that a reader that has gone away costs
// EPIPE and never a SIGPIPE for this process.
ssize_t WriteWithoutSigpipe(int fd, const void* buffer, size_t length);

}  // namespace platform

#endif  // ZQ_PLATFORM_PIPES_H_
