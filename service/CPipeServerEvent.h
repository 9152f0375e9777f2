// The service's receiver of client requests: decodes each command record,
// carries the command out, answers on the same connection with the
// request's message id, and passes commands 11 and 12 on to the other
// client.
#ifndef ZQ_SERVICE_CPIPESERVEREVENT_H_
#define ZQ_SERVICE_CPIPESERVEREVENT_H_

#include "ipc/IIPCEvent.h"

class CPipeServerEvent : public IIPCEvent {
 public:
  CPipeServerEvent() = default;
  ~CPipeServerEvent() override = default;

  // Runs on the reading thread of the connection the block arrived on.
  void OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int len) override;
};

#endif  // ZQ_SERVICE_CPIPESERVEREVENT_H_
