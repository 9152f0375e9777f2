#include "CPipeConnector.h"

#include <dirent.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <optional>
#include <thread>

#include "IpcTestSupport.h"
#include "PipeFlags.h"

namespace {

// Two connections wired to each other through two FIFOs.
class ConnectorPair : public testing::Test {
 protected:
  void Connect(bool connectPeer = true) {
    if (connectPeer) ConnectFar();
    near->initPipeConnection(dir("toNear").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("toFar").c_str(),
                             kPipeWriteFlags | kPipeCreateFlag);
    // The peer's reading thread opens its end within a moment.
    for (int i = 0; connectPeer && i < 30 && !near->initSendMsg(); ++i) usleep(100 * 1000);
  }
  void ConnectFar() {
    far->initPipeConnection(dir("toFar").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("toNear").c_str(),
                            kPipeWriteFlags | kPipeCreateFlag);
  }
  // A synchronous request from the near side: the whole reply, or nullopt
  // when the send failed.
  std::optional<std::string> Ask(const std::string& text, unsigned timeout) {
    std::string data = text, reply(kBlockSize, 'x');
    data.resize(kBlockSize);
    if (!near->SendMsg_sync(data.data(), kBlockSize, reply.data(), kBlockSize, timeout)) return std::nullopt;
    return reply;
  }
  // A handler for `side` that outlives both connections.
  RecordingEvent& HandlerOn(CPipeConnector& side, int echoAfterSeconds = -1) {
    side.SetMsgHander(&handlers_.emplace_back(echoAfterSeconds));
    return handlers_.back();
  }
  void TearDown() override {
    near.reset();
    far.reset();
  }

  TempDir dir;
  std::list<RecordingEvent> handlers_;
  std::unique_ptr<CPipeConnector> near = std::make_unique<CPipeConnector>(UniqueName("near"));
  std::unique_ptr<CPipeConnector> far = std::make_unique<CPipeConnector>(UniqueName("far"));
};

TEST_F(ConnectorPair, BlocksWaitForALateHandlerAndCarry508Bytes) {
  Connect();
  std::string data = "hello";
  data.resize(508);
  data += "ZZZZ";  // beyond what a block carries
  ASSERT_TRUE(near->SendMsg_async(data.data(), kBlockSize, 0));  // id 0 is no message
  ASSERT_TRUE(near->SendMsg_async(data.data(), kBlockSize, 5));
  sleep(1);
  const std::vector<ReceivedMessage> received = HandlerOn(*far).WaitFor(1, 5);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].msgId, 5u);
  EXPECT_EQ(received[0].payload, data.substr(0, 508));
  EXPECT_EQ(received[0].connector, far.get());
}

TEST_F(ConnectorPair, SyncRequestsGetTheirRepliesWithIdsFrom16) {
  Connect();
  RecordingEvent& echo = HandlerOn(*far, 0);
  for (std::string text : {"first", "second"}) EXPECT_EQ(Ask(text, 5), text + std::string(kBlockSize - text.size(), 0));
  const std::vector<ReceivedMessage> requests = echo.WaitFor(2, 1);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].msgId, 16u);
  EXPECT_EQ(requests[1].msgId, 17u);
}

TEST_F(ConnectorPair, ReplyAfterTheTimeoutReachesTheHandlerAsANewMessage) {
  Connect();
  HandlerOn(*far, 2);
  RecordingEvent& nearEvents = HandlerOn(*near);
  EXPECT_EQ(Ask("slow", 1), std::string(kBlockSize, '\0')) << "a timeout is success with a zero reply";
  EXPECT_NE(access(("/dev/shm/sem.zq_sem_" + std::to_string(getpid()) + "_16_").c_str(), F_OK), 0);
  const std::vector<ReceivedMessage> late = nearEvents.WaitFor(1, 10);
  ASSERT_EQ(late.size(), 1u);
  EXPECT_EQ(late[0].msgId, 16u);
  EXPECT_EQ(late[0].payload.substr(0, 4), "slow");
}

TEST_F(ConnectorPair, SendsFailWhenThePeerNeverReadsAndTakeNoId) {
  Connect(false);
  EXPECT_FALSE(near->SendMsg_async(std::string(kBlockSize, '\0').data(), kBlockSize, 3));
  EXPECT_EQ(Ask("lost", 2), std::nullopt);
  ConnectFar();
  RecordingEvent& echo = HandlerOn(*far, 0);
  ASSERT_TRUE(Ask("found", 5));
  EXPECT_EQ(echo.WaitFor(1, 1).at(0).msgId, 16u);
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
  auto connector = std::make_unique<CPipeConnector>(UniqueName("waiting"));
  connector->initPipeConnection(dir("never").c_str(), kPipeReadFlags, dir("nor").c_str(), kPipeWriteFlags);
  sleep(1);
  EXPECT_EQ(ThreadCount(), threads + 1);
  connector.reset();
  EXPECT_EQ(ThreadCount(), threads) << "the reading thread ended with its connection";
}

}  // namespace
