#ifndef ZQ_IPC_CLIBPIPECLIENT_H_
#define ZQ_IPC_CLIBPIPECLIENT_H_

#include <string>

#include "ipc/CPipeClient.h"
#include "ipc/ILibPipeClient.h"

class CLibPipeClient : public ILibPipeClient {
 public:
  explicit CLibPipeClient(IIPCEvent* event) : registry_(event) {}

  bool addConnector(std::string name, std::string readPath, int readFlags, std::string writePath,
                    int writeFlags) override;
  void removeConnector() override { registry_.RemoveConnector(name_); }
  IIPCConnector* getConnector() override { return registry_.GetConnector(name_); }

 private:
  std::string name_;
  CPipeClient registry_;
};

#endif  // ZQ_IPC_CLIBPIPECLIENT_H_
