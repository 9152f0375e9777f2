// The client facade: one connection to one server.  Its FIFOs stay in the
// file system when it ends.
#ifndef ZQ_IPC_ILIBPIPECLIENT_H_
#define ZQ_IPC_ILIBPIPECLIENT_H_

#include <string>

#include "ipc/IIPCConnector.h"

class ILibPipeClient {
 public:
  virtual ~ILibPipeClient() = default;
  // Makes and starts the connection, replacing one made before.
  virtual bool addConnector(std::string name, std::string readPath, int readFlags, std::string writePath,
                            int writeFlags) = 0;
  virtual void removeConnector() = 0;
  virtual IIPCConnector* getConnector() = 0;
};

#endif  // ZQ_IPC_ILIBPIPECLIENT_H_
