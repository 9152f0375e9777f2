// The client side's registry: one connection.  Its FIFOs stay in the file
// system when it ends.
#ifndef ZQ_IPC_CPIPECLIENT_H_
#define ZQ_IPC_CPIPECLIENT_H_

#include <memory>
#include <string>
#include <vector>

#include "ipc/CPipeConnector.h"
#include "ipc/IIPCEvent.h"
#include "ipc/IIPCObject.h"

class CPipeClient : public IIPCObject {
 public:
  explicit CPipeClient(IIPCEvent* event) : event_(event) {}
  ~CPipeClient() override;
  CPipeClient(const CPipeClient&) = delete;
  CPipeClient& operator=(const CPipeClient&) = delete;

  // Makes `connector` the connection.  One held before stays open and
  // running, outside the registry, until the registry ends.
  bool AddConnector(IIPCConnector* connector) override;
  // Closes and destroys the connection; the name is not looked at.
  void RemoveConnector(std::string name) override;
  IIPCConnector* GetConnector(std::string name) override;

 private:
  CPipeConnector* connector_ = nullptr;
  std::vector<std::unique_ptr<CPipeConnector>> replaced_;
  IIPCEvent* event_;
};

#endif  // ZQ_IPC_CPIPECLIENT_H_
