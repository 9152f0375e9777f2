#include "ipc/CPipeClient.h"

CPipeClient::~CPipeClient() { delete connector_; }

bool CPipeClient::AddConnector(IIPCConnector* connector) {
  if (connector == nullptr) return false;
  if (connector_ != nullptr) replaced_.emplace_back(connector_);
  connector_ = static_cast<CPipeConnector*>(connector);
  connector_->SetMsgHander(event_);
  return true;
}

void CPipeClient::RemoveConnector(std::string) {
  delete connector_;
  connector_ = nullptr;
}

IIPCConnector* CPipeClient::GetConnector(std::string) { return connector_; }
