// The service's single owner of its connections to the client applications.
//
// It makes the IPC server facade with the command dispatcher as the receiver
// of every incoming message, adds one named channel per client, sends
// command records to a client by name, and holds the flag that keeps the
// main loop running.
#ifndef ZQ_SERVICE_CPIPESERVERWRAPPER_H_
#define ZQ_SERVICE_CPIPESERVERWRAPPER_H_

#include <atomic>
#include <string>
#include <vector>

#include "Include/CommandData.h"

class IIPCEvent;
class ILibPipeServer;

class CPipeServerWrapper {
 public:
  // The process-wide instance, made on first use together with the command
  // dispatcher; both end at process exit, the wrapper first.
  static CPipeServerWrapper* getInstance();

  explicit CPipeServerWrapper(IIPCEvent* event);
  ~CPipeServerWrapper();
  CPipeServerWrapper(const CPipeServerWrapper&) = delete;
  CPipeServerWrapper& operator=(const CPipeServerWrapper&) = delete;

  // Adds the channel of one client: the service reads readPath and writes
  // writePath.
  bool addClient(std::string name, std::string readPath, int readFlags, std::string writePath, int writeFlags);

  // Sends one record to a client as a block with message id 1, without
  // waiting.  False for a null argument or an unknown client.
  bool SendCmd_async(const char* clientName, CCommandDataWrapper<char>* cmd);

  // Sends one record and waits up to `timeout` seconds for the client's
  // answer, copied into the 512 bytes of `reply`.  A timeout also returns
  // true, with reply all zeros.
  bool SendCmd_sync(const char* clientName, CCommandDataWrapper<char>* cmd, void* reply, unsigned int timeout);

  // Unlinks the FIFOs of every channel added, leaving the connections
  // open: what ending the process must do when a channel's thread may
  // still be busy with a command and cannot be waited for.
  void RemoveFifos();

  // Cleared by the exit command; the main loop ends when it falls.
  std::atomic<bool> running;

 private:
  ILibPipeServer* server_;
  std::vector<std::string> fifos_;
};

#endif  // ZQ_SERVICE_CPIPESERVERWRAPPER_H_
