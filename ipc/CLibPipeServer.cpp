#include "ipc/CLibPipeServer.h"

bool CLibPipeServer::addConnector(std::string name, std::string readPath, int readFlags, std::string writePath,
                                  int writeFlags) {
  auto* connector = new CPipeConnector(name);
  connector->initPipeConnection(readPath.c_str(), readFlags, writePath.c_str(), writeFlags);
  if (registry_.AddConnector(connector)) return true;
  // The name is taken: the connection the registry refused is not kept.
  delete connector;
  return false;
}
