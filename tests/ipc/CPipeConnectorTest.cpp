#include "CPipeConnector.h"

#include <dirent.h>
#include <unistd.h>

#include <gtest/gtest.h>

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
    near = std::make_unique<CPipeConnector>(nearName);
    far = std::make_unique<CPipeConnector>(UniqueName("far"));
    if (connectPeer) ConnectFar();
    ConnectNear();
    // The peer's reading thread opens its end within a moment.
    for (int i = 0; connectPeer && i < 30 && !near->initSendMsg(); ++i) usleep(100 * 1000);
  }
  void ConnectNear() {
    near->initPipeConnection(dir("toNear").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("toFar").c_str(),
                             kPipeWriteFlags | kPipeCreateFlag);
  }
  void ConnectFar() {
    far->initPipeConnection(dir("toFar").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("toNear").c_str(),
                            kPipeWriteFlags | kPipeCreateFlag);
  }
  // A synchronous request from the near side: the whole reply, or nullopt
  // when the send failed.
  std::optional<std::string> Ask(const std::string& text, unsigned timeout) {
    std::vector<char> data = Data(text);
    char reply[512];
    std::memset(reply, 'x', sizeof reply);
    if (!near->SendMsg_sync(data.data(), 512, reply, sizeof reply, timeout)) return std::nullopt;
    return std::string(reply, sizeof reply);
  }
  // A handler for `side` that outlives both connections.
  RecordingEvent& HandlerOn(CPipeConnector& side, int echoAfterSeconds = -1) {
    handlers_.push_back(std::make_unique<RecordingEvent>(echoAfterSeconds));
    side.SetMsgHander(handlers_.back().get());
    return *handlers_.back();
  }
  void TearDown() override {
    near.reset();
    far.reset();
  }

  TempDir dir;
  std::string nearName = UniqueName("near");
  std::vector<std::unique_ptr<RecordingEvent>> handlers_;
  std::unique_ptr<CPipeConnector> near, far;
};

TEST_F(ConnectorPair, AsyncBlockReachesThePeersHandler) {
  Connect();
  RecordingEvent& events = HandlerOn(*far);
  std::vector<char> data = Data("hello");
  std::memset(data.data() + 508, 'Z', 4);  // beyond what a block carries
  ASSERT_TRUE(near->SendMsg_async(data.data(), 512, 0));  // id 0 is no message
  ASSERT_TRUE(near->SendMsg_async(data.data(), 512, 5));
  const std::vector<ReceivedMessage> received = events.WaitFor(1, 5);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].msgId, 5u);
  EXPECT_EQ(received[0].len, 508u);
  EXPECT_EQ(received[0].payload, std::string(data.data(), 508));
  EXPECT_EQ(received[0].connector, far.get());
}

TEST_F(ConnectorPair, SyncRequestsGetTheirRepliesWithIdsFrom16) {
  Connect();
  RecordingEvent& echo = HandlerOn(*far, 0);
  for (const char* text : {"first", "second"}) EXPECT_EQ(Ask(text, 5), std::string(Data(text).data(), 512));
  const std::vector<ReceivedMessage> requests = echo.WaitFor(2, 1);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].msgId, 16u);
  EXPECT_EQ(requests[1].msgId, 17u);
}

TEST_F(ConnectorPair, UnansweredRequestTimesOutAsSuccessAndLeavesNothingBehind) {
  Connect();
  RecordingEvent& silent = HandlerOn(*far);
  EXPECT_EQ(Ask("anyone?", 1), std::string(512, '\0'));
  EXPECT_NE(access(("/dev/shm/sem.zq_sem_" + nearName + "_16_").c_str(), F_OK), 0);
  EXPECT_EQ(Ask("anyone?", 0), std::string(512, '\0')) << "timeout 0: one try, no wait";
  const std::vector<ReceivedMessage> requests = silent.WaitFor(2, 5);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[1].msgId, 17u) << "a timed-out request still used its id";
}

TEST_F(ConnectorPair, LateReplyReachesTheHandlerAsANewMessage) {
  Connect();
  HandlerOn(*far, 3);
  RecordingEvent& nearEvents = HandlerOn(*near);
  EXPECT_EQ(Ask("slow", 1), std::string(512, '\0'));
  const std::vector<ReceivedMessage> late = nearEvents.WaitFor(1, 10);
  ASSERT_EQ(late.size(), 1u);
  EXPECT_EQ(late[0].msgId, 16u);
  EXPECT_EQ(late[0].payload.substr(0, 4), "slow");
}

TEST_F(ConnectorPair, BlockWaitsForALateHandler) {
  Connect();
  ASSERT_TRUE(near->SendMsg_async(Data("early").data(), 512, 9));
  sleep(2);
  RecordingEvent& events = HandlerOn(*far);
  const std::vector<ReceivedMessage> received = events.WaitFor(1, 5);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].msgId, 9u);
}

TEST_F(ConnectorPair, SendsFailWhenThePeerNeverReads) {
  Connect(false);
  EXPECT_FALSE(near->SendMsg_async(Data("lost").data(), 512, 3));
  EXPECT_EQ(Ask("lost", 2), std::nullopt);
  // The failed request took no id: once the peer reads, the first is 16.
  ConnectFar();
  RecordingEvent& echo = HandlerOn(*far, 0);
  ASSERT_TRUE(Ask("found", 5));
  EXPECT_EQ(echo.WaitFor(1, 1).at(0).msgId, 16u);
}

TEST_F(ConnectorPair, PeerThatMakesItsFifosAnewIsServedAgain) {
  Connect();
  HandlerOn(*far, 0);
  EXPECT_EQ(Ask("before", 5).value_or("").c_str(), std::string("before"));

  // The near side restarts: its FIFOs are removed and made anew.
  near.reset();
  ASSERT_EQ(RunShell("rm '" + dir("toNear") + "' '" + dir("toFar") + "'"), 0);
  near = std::make_unique<CPipeConnector>(nearName);
  ConnectNear();
  EXPECT_EQ(Ask("after", 6).value_or("").c_str(), std::string("after"));
}

TEST(CPipeConnector, RefusesToSendBeforeItIsInitializedOrWithNullBuffers) {
  CPipeConnector connector(UniqueName("lonely"));
  char data[512] = {}, reply[512];
  EXPECT_FALSE(connector.SendMsg_async(data, 512, 1));
  EXPECT_FALSE(connector.SendMsg_sync(data, 512, reply, 512, 1));
  TempDir dir;
  connector.initPipeConnection(dir("r").c_str(), kPipeReadFlags | kPipeCreateFlag, dir("w").c_str(),
                               kPipeWriteFlags | kPipeCreateFlag);
  EXPECT_FALSE(connector.SendMsg_async(nullptr, 512, 1));
  EXPECT_FALSE(connector.SendMsg_sync(nullptr, 512, reply, 512, 1));
  EXPECT_FALSE(connector.SendMsg_sync(data, 512, nullptr, 512, 1));
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
