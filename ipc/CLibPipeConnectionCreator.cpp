#include "ipc/CLibPipeConnectionCreator.h"

#include "ipc/CLibPipeClient.h"
#include "ipc/CLibPipeServer.h"

ILibPipeServer* CLibPipeConnectionCreator::createLibPipeServer(IIPCEvent* event) {
  return event == nullptr ? nullptr : new CLibPipeServer(event);
}

ILibPipeClient* CLibPipeConnectionCreator::createLibPipeClient(IIPCEvent* event) {
  return event == nullptr ? nullptr : new CLibPipeClient(event);
}
