// The open(2) flags of a connection's two FIFO ends.  The create bit is
// never handed to open(2): it asks for the FIFO to be made first.
#ifndef ZQ_IPC_PIPEFLAGS_H_
#define ZQ_IPC_PIPEFLAGS_H_

#include <fcntl.h>

constexpr int kPipeReadFlags = O_RDONLY | O_NONBLOCK;
constexpr int kPipeWriteFlags = O_WRONLY | O_NONBLOCK;
constexpr int kPipeCreateFlag = O_CREAT;

#endif  // ZQ_IPC_PIPEFLAGS_H_
