// Makes the library's facades.  The caller owns what it gets and ends it
// through the interface.
#ifndef ZQ_IPC_CLIBPIPECONNECTIONCREATOR_H_
#define ZQ_IPC_CLIBPIPECONNECTIONCREATOR_H_

#include "ipc/IIPCEvent.h"
#include "ipc/ILibPipeClient.h"
#include "ipc/ILibPipeServer.h"

class CLibPipeConnectionCreator {
 public:
  // Null for a null event.
  static ILibPipeServer* createLibPipeServer(IIPCEvent* event);
  static ILibPipeClient* createLibPipeClient(IIPCEvent* event);
};

#endif  // ZQ_IPC_CLIBPIPECONNECTIONCREATOR_H_
