// A registry of connections.  It owns the connections it holds and decides
// when their FIFOs leave the file system.
#ifndef ZQ_IPC_IIPCOBJECT_H_
#define ZQ_IPC_IIPCOBJECT_H_

#include <string>

class IIPCConnector;

class IIPCObject {
 public:
  virtual ~IIPCObject() = default;
  virtual bool AddConnector(IIPCConnector* connector) = 0;
  virtual void RemoveConnector(std::string name) = 0;
  virtual IIPCConnector* GetConnector(std::string name) = 0;
};

#endif  // ZQ_IPC_IIPCOBJECT_H_
