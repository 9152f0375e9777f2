// One named two-way connection between two processes.
#ifndef ZQ_IPC_IIPCCONNECTOR_H_
#define ZQ_IPC_IIPCCONNECTOR_H_

#include <string>

class IIPCConnector {
 public:
  virtual ~IIPCConnector() = default;

  // Writes one block carrying `msgId` and the first len - 4 bytes of data;
  // every caller passes len 512.  False when nothing could be written.
  virtual bool SendMsg_async(void* data, unsigned int len, unsigned int msgId) = 0;

  // Writes one block with a fresh id and waits up to `timeout` seconds for
  // the block that carries the same id back; its 512 bytes behind the id
  // land in reply.  A timeout also returns true, with reply all zeros.
  virtual bool SendMsg_sync(void* data, unsigned int len, void* reply, unsigned int replyLen,
                            unsigned int timeout) = 0;

  virtual std::string GetName() = 0;
};

#endif  // ZQ_IPC_IIPCCONNECTOR_H_
