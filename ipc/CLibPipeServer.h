#ifndef ZQ_IPC_CLIBPIPESERVER_H_
#define ZQ_IPC_CLIBPIPESERVER_H_

#include "ipc/CPipeServer.h"
#include "ipc/ILibPipeServer.h"

class CLibPipeServer : public ILibPipeServer {
 public:
  explicit CLibPipeServer(IIPCEvent* event) : registry_(event) {}

  bool addConnector(std::string name, std::string readPath, int readFlags, std::string writePath,
                    int writeFlags) override;
  void removeConnector(std::string name) override { registry_.RemoveConnector(name); }
  void removeAllConnector() override { registry_.CloseAllConnector(); }
  IIPCConnector* getConnector(std::string name) override { return registry_.GetConnector(name); }

 private:
  CPipeServer registry_;
};

#endif  // ZQ_IPC_CLIBPIPESERVER_H_
