#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <thread>

#include "CPipeConnector.h"
#include "PipeFlags.h"
#include "TempDir.h"

namespace {

struct ReceivedMessage {
  uint32_t msgId;
  std::string payload;  // all 508 bytes
  IIPCConnector* connector;
};

// Records what reaches it; with `echoAfterSeconds` zero or more, also
// answers every message with its own payload and id after that long, as the
// service answers.
class RecordingEvent : public IIPCEvent {
 public:
  explicit RecordingEvent(int echoAfterSeconds = -1) : echoAfterSeconds_(echoAfterSeconds) {}

  void OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int len) override {
    std::lock_guard<std::mutex> guard(lock_);
    messages_.push_back({package->msgId, std::string(reinterpret_cast<char*>(package->payload), len), connector});
    if (echoAfterSeconds_ < 0) return;
    sleep(echoAfterSeconds_);
    connector->SendMsg_async(package->payload, kBlockSize, package->msgId);
  }

  // Every message so far, once there are `count` of them or `seconds` passed.
  std::vector<ReceivedMessage> WaitFor(size_t count, int seconds) {
    for (int i = 0; i < seconds * 10 && Messages().size() < count; ++i) usleep(100 * 1000);
    return Messages();
  }

 private:
  std::vector<ReceivedMessage> Messages() {
    std::lock_guard<std::mutex> guard(lock_);
    return messages_;
  }

  const int echoAfterSeconds_;
  std::mutex lock_;
  std::vector<ReceivedMessage> messages_;
};

// Two connections wired to each other through two FIFOs; the handlers
// outlive both.
class ConnectorPair : public testing::Test {
 protected:
  void SetUp() override {
    far->initPipeConnection(dir("toFar").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("toNear").c_str(),
                            kPipeWriteFlags | kPipeCreateFlag);
    near->initPipeConnection(dir("toNear").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("toFar").c_str(),
                             kPipeWriteFlags | kPipeCreateFlag);
    // The peer's reading thread opens its end within a moment.
    for (int i = 0; i < 30 && !near->initSendMsg(); ++i) usleep(100 * 1000);
  }
  TempDir dir;
  std::string pid = std::to_string(getpid());
  RecordingEvent nearEvents, farEvents, farEcho{2};
  std::unique_ptr<CPipeConnector> near = std::make_unique<CPipeConnector>("near" + pid);
  std::unique_ptr<CPipeConnector> far = std::make_unique<CPipeConnector>("far" + pid);
};

TEST_F(ConnectorPair, BlocksWaitForALateHandlerAndCarry508Bytes) {
  std::string data = std::string(508, 'd') + "ZZZZ";             // the Zs lie beyond what a block carries
  ASSERT_TRUE(near->SendMsg_async(data.data(), kBlockSize, 0));  // id 0 is no message
  ASSERT_TRUE(near->SendMsg_async(data.data(), kBlockSize, 5));
  sleep(1);
  far->SetMsgHander(&farEvents);
  const std::vector<ReceivedMessage> received = farEvents.WaitFor(2, 2);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].msgId, 5u);
  EXPECT_EQ(received[0].payload, data.substr(0, 508));
  EXPECT_EQ(received[0].connector, far.get());
}

// A timeout is success with a zero reply; the reply that comes later is a
// new message, and the first request's id is 16.
TEST_F(ConnectorPair, ReplyAfterTheTimeoutReachesTheHandlerAsANewMessage) {
  far->SetMsgHander(&farEcho);
  near->SetMsgHander(&nearEvents);
  std::string request = "slow", reply(kBlockSize, 'x');
  request.resize(kBlockSize);
  ASSERT_TRUE(near->SendMsg_sync(request.data(), kBlockSize, reply.data(), kBlockSize, 1));
  EXPECT_EQ(reply, std::string(kBlockSize, '\0'));
  EXPECT_NE(access(("/dev/shm/sem.zq_sem_" + pid + "_16_").c_str(), F_OK), 0) << "the semaphore outlived its request";
  const std::vector<ReceivedMessage> late = nearEvents.WaitFor(1, 10);
  ASSERT_EQ(late.size(), 1u);
  EXPECT_EQ(late[0].msgId, 16u);
  EXPECT_EQ(late[0].payload, request.substr(0, 508));
}

int ThreadCount() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  while (readdir(tasks) != nullptr) ++count;
  closedir(tasks);
  return count;
}

TEST(CPipeConnector, DestroyingAConnectionStillWaitingForItsFifoEndsItsThread) {
  TempDir dir;
  std::thread([] {}).join();  // sanitizers start helper threads of their own with the first thread
  const int threads = ThreadCount();
  auto connector = std::make_unique<CPipeConnector>("waiting" + std::to_string(getpid()));
  connector->initPipeConnection(dir("never").c_str(), kPipeReadFlags, dir("nor").c_str(), kPipeWriteFlags);
  sleep(1);
  EXPECT_EQ(ThreadCount(), threads + 1);
  connector.reset();
  EXPECT_EQ(ThreadCount(), threads) << "the reading thread ended with its connection";
}

}  // namespace
