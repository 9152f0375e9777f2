#include "service/CPipeServerWrapper.h"

#include <unistd.h>

#include "Include/CPipeDataWrapper.h"
#include "ipc/CLibPipeConnectionCreator.h"
#include "service/CPipeServerEvent.h"

namespace {

// The id of every message the service starts itself: below any id a
// connection gives a synchronous request, so a client never takes it for
// the answer to a request of its own.
constexpr unsigned int kServiceMessageId = 1;

}  // namespace

CPipeServerWrapper* CPipeServerWrapper::getInstance() {
  static CPipeServerEvent event;
  static CPipeServerWrapper wrapper(&event);
  return &wrapper;
}

CPipeServerWrapper::CPipeServerWrapper(IIPCEvent* event)
    : running(true), server_(CLibPipeConnectionCreator::createLibPipeServer(event)) {}

CPipeServerWrapper::~CPipeServerWrapper() { delete server_; }

bool CPipeServerWrapper::addClient(std::string name, std::string readPath, int readFlags, std::string writePath,
                                   int writeFlags) {
  if (server_ == nullptr) return false;
  fifos_.push_back(readPath);
  fifos_.push_back(writePath);
  return server_->addConnector(name, readPath, readFlags, writePath, writeFlags);
}

void CPipeServerWrapper::RemoveFifos() {
  for (const std::string& fifo : fifos_) unlink(fifo.c_str());
}

bool CPipeServerWrapper::SendCmd_async(const char* clientName, CCommandDataWrapper<char>* cmd) {
  if (clientName == nullptr || cmd == nullptr || server_ == nullptr) return false;
  IIPCConnector* connector = server_->getConnector(clientName);
  if (connector == nullptr) return false;
  CPipeDataWrapper wrapper;
  wrapper.InitializeWithCmdDataWrapper(cmd);
  return connector->SendMsg_async(wrapper.getMessage(), kBlockSize, kServiceMessageId);
}

bool CPipeServerWrapper::SendCmd_sync(const char* clientName, CCommandDataWrapper<char>* cmd, void* reply,
                                      unsigned int timeout) {
  if (clientName == nullptr || cmd == nullptr || reply == nullptr || server_ == nullptr) return false;
  IIPCConnector* connector = server_->getConnector(clientName);
  if (connector == nullptr) return false;
  CPipeDataWrapper wrapper;
  wrapper.InitializeWithCmdDataWrapper(cmd);
  return connector->SendMsg_sync(wrapper.getMessage(), kBlockSize, reply, kBlockSize, timeout);
}
