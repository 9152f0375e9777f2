// The receiver of every new message of a connection.  It is called on the
// connection's reading thread with the block (the id, then the payload,
// then one zero byte) and the payload length, 508.
#ifndef ZQ_IPC_IIPCEVENT_H_
#define ZQ_IPC_IIPCEVENT_H_

#include "ipc/IIPCConnector.h"
#include "ipc/MsgDataPackage.h"

class IIPCEvent {
 public:
  virtual ~IIPCEvent() = default;
  virtual void OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int len) = 0;
};

#endif  // ZQ_IPC_IIPCEVENT_H_
