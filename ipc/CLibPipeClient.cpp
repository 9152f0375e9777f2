#include "ipc/CLibPipeClient.h"

bool CLibPipeClient::addConnector(std::string name, std::string readPath, int readFlags, std::string writePath,
                                  int writeFlags) {
  name_ = name;
  auto* connector = new CPipeConnector(name);
  connector->initPipeConnection(readPath.c_str(), readFlags, writePath.c_str(), writeFlags);
  return registry_.AddConnector(connector);
}
