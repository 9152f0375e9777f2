#include "ipc/CPipeServer.h"

bool CPipeServer::AddConnector(IIPCConnector* connector) {
  auto* pipe = static_cast<CPipeConnector*>(connector);
  if (pipe == nullptr || connectors_.count(pipe->GetName()) != 0) return false;
  pipe->SetMsgHander(event_);
  connectors_.emplace(pipe->GetName(), pipe);
  return true;
}

void CPipeServer::RemoveConnector(std::string name) {
  const auto found = connectors_.find(name);
  if (found == connectors_.end()) return;
  found->second->DeletePipe();
  delete found->second;
  connectors_.erase(found);
}

IIPCConnector* CPipeServer::GetConnector(std::string name) {
  const auto found = connectors_.find(name);
  return found == connectors_.end() ? nullptr : found->second;
}

void CPipeServer::CloseAllConnector() {
  while (!connectors_.empty()) RemoveConnector(connectors_.begin()->first);
}
