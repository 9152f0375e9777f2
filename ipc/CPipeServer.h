// The server side's registry: any number of connections by name.  Removing
// a connection unlinks its FIFOs, then closes it.
#ifndef ZQ_IPC_CPIPESERVER_H_
#define ZQ_IPC_CPIPESERVER_H_

#include <map>
#include <string>

#include "ipc/CPipeConnector.h"
#include "ipc/IIPCEvent.h"
#include "ipc/IIPCObject.h"

class CPipeServer : public IIPCObject {
 public:
  explicit CPipeServer(IIPCEvent* event) : event_(event) {}
  ~CPipeServer() override { CloseAllConnector(); }
  CPipeServer(const CPipeServer&) = delete;
  CPipeServer& operator=(const CPipeServer&) = delete;

  // False for a null connection or a name already held; the connection is
  // then left as it is.
  bool AddConnector(IIPCConnector* connector) override;
  void RemoveConnector(std::string name) override;
  IIPCConnector* GetConnector(std::string name) override;
  void CloseAllConnector();

 private:
  std::map<std::string, CPipeConnector*> connectors_;
  IIPCEvent* event_;
};

#endif  // ZQ_IPC_CPIPESERVER_H_
