// The block that travels on a FIFO: a 32-bit message id, then the payload.
// Exactly 512 bytes of it are written and read; an id of 0 means no
// message and is never sent.
#ifndef ZQ_IPC_MSGDATAPACKAGE_H_
#define ZQ_IPC_MSGDATAPACKAGE_H_

#include <semaphore.h>

#include <cstdint>

constexpr unsigned kBlockSize = 512;
constexpr unsigned kPayloadSize = kBlockSize - 4;

struct _MSG_DATA_PACKAGE {
  uint32_t msgId;
  unsigned char payload[kBlockSize];
};

// What a connection keeps for each synchronous request that waits.
struct __MSG_MAPPING__ {
  sem_t* semaphore;
  unsigned char replyData[kBlockSize + 1];
};

#endif  // ZQ_IPC_MSGDATAPACKAGE_H_
