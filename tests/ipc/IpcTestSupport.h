// Shared pieces of the IPC tests: connection names of their own and a
// handler that records what reaches it.
#ifndef ZQ_TESTS_IPC_IPCTESTSUPPORT_H_
#define ZQ_TESTS_IPC_IPCTESTSUPPORT_H_

#include <unistd.h>

#include <condition_variable>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "IIPCEvent.h"
#include "TempDir.h"

// A connection name no other test process uses: semaphore names are
// system-wide and built from it.
inline std::string UniqueName(const char* base) { return base + std::to_string(getpid()); }

struct ReceivedMessage {
  uint32_t msgId;
  std::string payload;  // all 508 bytes
  IIPCConnector* connector;
};

class RecordingEvent : public IIPCEvent {
 public:
  // With `echoAfterSeconds` zero or more, also answers every message with
  // its own payload and id after that long, as the service answers.
  explicit RecordingEvent(int echoAfterSeconds = -1) : echoAfterSeconds_(echoAfterSeconds) {}

  void OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int len) override {
    {
      std::lock_guard<std::mutex> guard(lock_);
      messages_.push_back({package->msgId, std::string(reinterpret_cast<char*>(package->payload), len), connector});
      arrived_.notify_all();
    }
    if (echoAfterSeconds_ < 0) return;
    sleep(echoAfterSeconds_);
    connector->SendMsg_async(package->payload, kBlockSize, package->msgId);
  }

  // Waits up to `seconds` for at least `count` messages; returns them all.
  std::vector<ReceivedMessage> WaitFor(size_t count, int seconds) {
    std::unique_lock<std::mutex> guard(lock_);
    arrived_.wait_for(guard, std::chrono::seconds(seconds), [&] { return messages_.size() >= count; });
    return messages_;
  }

 private:
  const int echoAfterSeconds_;
  std::mutex lock_;
  std::condition_variable arrived_;
  std::vector<ReceivedMessage> messages_;
};

#endif  // ZQ_TESTS_IPC_IPCTESTSUPPORT_H_
