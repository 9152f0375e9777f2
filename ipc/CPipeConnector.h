// A connection made of two FIFOs: a reading thread takes one block a
// second from the read end and hands it either to the synchronous send
// that waits for its id or, as a new message, to the handler.
#ifndef ZQ_IPC_CPIPECONNECTOR_H_
#define ZQ_IPC_CPIPECONNECTOR_H_

#include <pthread.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>

#include "ipc/CMutexLocker.h"
#include "ipc/CPipeWrapper.h"
#include "ipc/IIPCConnector.h"
#include "ipc/IIPCEvent.h"
#include "ipc/MsgDataPackage.h"

class CPipeConnector : public IIPCConnector {
 public:
  explicit CPipeConnector(std::string name);
  // Stops the reading thread (within a moment) and closes both ends; the
  // FIFOs stay in the file system.
  ~CPipeConnector() override;
  CPipeConnector(const CPipeConnector&) = delete;
  CPipeConnector& operator=(const CPipeConnector&) = delete;

  // Names both ends, starts the reading thread and tries once to open the
  // write end.  A second call does nothing.  Always true.
  bool initPipeConnection(const char* readPath, int readFlags, const char* writePath, int writeFlags);
  bool initReadMsgThread();
  bool initSendMsg();
  void SetMsgHander(IIPCEvent* handler);

  bool SendMsg_async(void* data, unsigned int len, unsigned int msgId) override;
  bool SendMsg_sync(void* data, unsigned int len, void* reply, unsigned int replyLen, unsigned int timeout) override;
  std::string GetName() override { return name_; }

  void ClosePipe();
  // Unlinks both FIFOs; the write end's result.
  int DeletePipe();

  static void* ReadMsgThread(void* connection);
  void HandleMessage(char* block, unsigned int len);

 private:
  // Opens the write end if it is not open yet, or again when the peer made
  // its FIFO anew; whether it is open.  Needs writeLock_.
  bool EnsureWriteOpen();
  // Writes one block through the write end, opening it first if needed.
  bool WriteBlock(const _MSG_DATA_PACKAGE& package, unsigned int len);
  // Sleeps one second, or less when the connection is being destroyed.
  void Pause();

  std::atomic<IIPCEvent*> handler_{nullptr};
  pthread_t thread_{};
  CPipeWrapper writeEnd_;
  CPipeWrapper readEnd_;
  std::string name_;
  std::atomic<bool> running_{true};
  bool initialized_ = false;
  bool threadStarted_ = false;
  std::atomic<bool> writeOpen_{false};
  std::map<int, __MSG_MAPPING__> pending_;
  CMutexLocker lock_;
  int nextMessageId_ = 16;

  std::mutex writeLock_;  // one writer of the write end at a time
  std::mutex pauseLock_;
  std::condition_variable pauseEnded_;
};

#endif  // ZQ_IPC_CPIPECONNECTOR_H_
