#include "ipc/CPipeConnector.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>
#include <mutex>
#include <thread>

#include "ipc/PipeFlags.h"
#include "tests/support/TempDir.h"

namespace {

// Records the id and the payload of every message that reaches it.
class RecordingEvent : public IIPCEvent {
 public:
  using Message = std::pair<uint32_t, std::string>;

  void OnCommand_Reply(IIPCConnector*, _MSG_DATA_PACKAGE* package, unsigned int len) override {
    std::lock_guard<std::mutex> guard(lock_);
    messages_.emplace_back(package->msgId, std::string(reinterpret_cast<char*>(package->payload), len));
  }

  // Every message so far, once there are `count` of them or `seconds` passed.
  std::vector<Message> WaitFor(size_t count, int seconds) {
    for (int i = 0; i < seconds * 10 && Messages().size() < count; ++i) usleep(100 * 1000);
    return Messages();
  }

 private:
  std::vector<Message> Messages() {
    std::lock_guard<std::mutex> guard(lock_);
    return messages_;
  }

  std::mutex lock_;
  std::vector<Message> messages_;
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
  std::string block = std::string(508, 'd') + "ZZZZ";  // the Zs lie beyond what a block carries
  RecordingEvent nearEvents, farEvents;
  std::unique_ptr<CPipeConnector> near = std::make_unique<CPipeConnector>("near" + pid);
  std::unique_ptr<CPipeConnector> far = std::make_unique<CPipeConnector>("far" + pid);
};

TEST_F(ConnectorPair, BlocksWaitForALateHandlerAndCarry508Bytes) {
  ASSERT_TRUE(near->SendMsg_async(block.data(), kBlockSize, 0));  // id 0 is no message
  ASSERT_TRUE(near->SendMsg_async(block.data(), kBlockSize, 5));
  sleep(1);
  far->SetMsgHander(&farEvents);
  EXPECT_EQ(farEvents.WaitFor(2, 2), (std::vector<RecordingEvent::Message>{{5, block.substr(0, 508)}}));
}

// A timeout is success with a zero reply; the reply that comes later is a
// new message.  The first request's id is 16.
TEST_F(ConnectorPair, ReplyAfterTheTimeoutReachesTheHandlerAsANewMessage) {
  far->SetMsgHander(&farEvents);
  near->SetMsgHander(&nearEvents);
  std::string reply(kBlockSize, 'x');
  ASSERT_TRUE(near->SendMsg_sync(block.data(), kBlockSize, reply.data(), kBlockSize, 1));
  EXPECT_EQ(reply, std::string(kBlockSize, '\0'));
  EXPECT_NE(access(("/dev/shm/sem.zq_sem_" + pid + "_16_").c_str(), F_OK), 0) << "the semaphore outlived its request";
  const std::vector<RecordingEvent::Message> request{{16, block.substr(0, 508)}};
  ASSERT_EQ(farEvents.WaitFor(1, 1), request);
  ASSERT_TRUE(far->SendMsg_async(block.data(), kBlockSize, 16));
  EXPECT_EQ(nearEvents.WaitFor(1, 5), request);
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
