#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "CLibPipeConnectionCreator.h"
#include "IpcTestSupport.h"
#include "PipeFlags.h"

namespace {

// The client process: echoes every request, sends one block of its own,
// and ends when a block reads "quit".
class ClientEvent : public IIPCEvent {
 public:
  void OnCommand_Reply(IIPCConnector* connector, _MSG_DATA_PACKAGE* package, unsigned int len) override {
    if (std::strcmp(reinterpret_cast<char*>(package->payload), "quit") == 0) {
      quit = true;
      return;
    }
    char answer[512] = {};
    std::memcpy(answer, package->payload, len);
    answer[0] = static_cast<char>(std::toupper(answer[0]));
    connector->SendMsg_async(answer, sizeof answer, package->msgId);
  }
  std::atomic<bool> quit{false};
};

[[noreturn]] void RunClient(const std::string& name, const std::string& toClient, const std::string& toServer) {
  ClientEvent event;
  std::unique_ptr<ILibPipeClient> client(CLibPipeConnectionCreator::createLibPipeClient(&event));
  client->addConnector(name, toClient, kPipeReadFlags | kPipeCreateFlag, toServer, kPipeWriteFlags | kPipeCreateFlag);
  std::vector<char> hello = Data("hello from the client");
  for (int i = 0; i < 10 && !client->getConnector()->SendMsg_async(hello.data(), 512, 1); ++i) sleep(1);
  for (int i = 0; i < 30 && !event.quit; ++i) sleep(1);
  client.reset();
  _exit(event.quit ? 0 : 1);
}

TEST(TwoProcesses, ServerAndClientExchangeBlocksAndRequests) {
  FifoDir dir;
  const std::string name = UniqueName("Peer");
  const pid_t child = fork();
  if (child == 0) RunClient(name, dir("toClient"), dir("toServer"));

  RecordingEvent events;
  std::unique_ptr<ILibPipeServer> server(CLibPipeConnectionCreator::createLibPipeServer(&events));
  for (int i = 0; i < 50 && access(dir("toServer").c_str(), F_OK) != 0; ++i) usleep(100 * 1000);
  ASSERT_TRUE(server->addConnector(name, dir("toServer"), kPipeReadFlags, dir("toClient"), kPipeWriteFlags));

  const std::vector<ReceivedMessage> unasked = events.WaitFor(1, 10);
  ASSERT_EQ(unasked.size(), 1u);
  EXPECT_EQ(unasked[0].msgId, 1u);
  EXPECT_STREQ(unasked[0].payload.c_str(), "hello from the client");

  std::vector<char> request = Data("question");
  char reply[512] = {};
  ASSERT_TRUE(server->getConnector(name)->SendMsg_sync(request.data(), 512, reply, sizeof reply, 10));
  EXPECT_STREQ(reply, "Question");

  std::vector<char> quit = Data("quit");
  EXPECT_TRUE(server->getConnector(name)->SendMsg_async(quit.data(), 512, 2));
  int status = -1;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);

  server.reset();
  EXPECT_NE(access(dir("toServer").c_str(), F_OK), 0) << "the server unlinks the FIFOs";
  EXPECT_NE(access(dir("toClient").c_str(), F_OK), 0);
}

}  // namespace
