// The explorer's connection to the service, as the client "FileExplorer":
// it makes the client's two FIFOs, prints every command the main
// application forwards to it, and tells its owner when to end.
#ifndef ZQ_EXPLORER_CEXPLORERCLIENT_H_
#define ZQ_EXPLORER_CEXPLORERCLIENT_H_

#include <condition_variable>
#include <cstdio>
#include <memory>
#include <string>
#include <mutex>

#include "ipc/IIPCEvent.h"
#include "ipc/ILibPipeClient.h"

class CExplorerClient : public IIPCEvent {
 public:
  // The byte of a forwarded command that ends the explorer.
  static constexpr unsigned char kQuitByte = 'q';

  explicit CExplorerClient(FILE* out);
  ~CExplorerClient() override;
  CExplorerClient(const CExplorerClient&) = delete;
  CExplorerClient& operator=(const CExplorerClient&) = delete;

  // Makes the FIFOs and starts the connection; false with the reason in
  // *why, also when a FIFO belongs to a user the explorer must not trust.
  bool Connect(std::string* why);

  // Whether the service answers a connection check within `seconds`.
  bool ServiceAnswers(unsigned seconds);

  // Waits up to `seconds` for a forwarded quit command; true once it came.
  bool WaitForQuit(unsigned seconds);

  void OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int len) override;

 private:
  FILE* out_;
  std::unique_ptr<ILibPipeClient> client_;
  std::mutex mutex_;
  std::condition_variable quitArrived_;
  bool quit_ = false;
};

#endif  // ZQ_EXPLORER_CEXPLORERCLIENT_H_
