// The server facade: connections by name, every new message of every
// connection handed to one event.
#ifndef ZQ_IPC_ILIBPIPESERVER_H_
#define ZQ_IPC_ILIBPIPESERVER_H_

#include <string>

#include "ipc/IIPCConnector.h"

class ILibPipeServer {
 public:
  // Ending the facade unlinks every connection's FIFOs and closes them.
  virtual ~ILibPipeServer() = default;
  // Makes and starts a connection that reads readPath and writes
  // writePath; false when the name is taken.
  virtual bool addConnector(std::string name, std::string readPath, int readFlags, std::string writePath,
                            int writeFlags) = 0;
  virtual void removeConnector(std::string name) = 0;
  virtual void removeAllConnector() = 0;
  virtual IIPCConnector* getConnector(std::string name) = 0;
};

#endif  // ZQ_IPC_ILIBPIPESERVER_H_
