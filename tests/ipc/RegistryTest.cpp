#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>

#include "CLibPipeConnectionCreator.h"
#include "IpcTestSupport.h"
#include "PipeFlags.h"

namespace {

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

TEST(Registries, ServerKeepsOneConnectionPerNameAndUnlinksItsFifos) {
  TempDir dir;
  RecordingEvent events;
  std::unique_ptr<ILibPipeServer> server(CLibPipeConnectionCreator::createLibPipeServer(&events));
  const std::string name = UniqueName("Main");
  // The peer makes the FIFOs; the server only opens them.
  ASSERT_EQ(RunShell("cd '" + dir.path() + "' && mkfifo in out b1 b2"), 0);
  ASSERT_TRUE(server->addConnector(name, dir("in"), kPipeReadFlags, dir("out"), kPipeWriteFlags));
  IIPCConnector* first = server->getConnector(name);
  ASSERT_NE(first, nullptr);
  EXPECT_FALSE(server->addConnector(name, dir("in2"), kPipeReadFlags, dir("out2"), kPipeWriteFlags));
  EXPECT_EQ(server->getConnector(name), first);
  server->removeConnector(name);
  EXPECT_EQ(server->getConnector(name), nullptr);
  EXPECT_FALSE(Exists(dir("in")) || Exists(dir("out")));

  // Ending the server unlinks the FIFOs of the connections it still has.
  ASSERT_TRUE(server->addConnector(UniqueName("Other"), dir("b1"), kPipeReadFlags, dir("b2"), kPipeWriteFlags));
  server.reset();
  EXPECT_FALSE(Exists(dir("b1")) || Exists(dir("b2")));
}

TEST(Registries, ClientReplacesItsConnectionAndLeavesItsFifos) {
  TempDir dir;
  RecordingEvent events;
  std::unique_ptr<ILibPipeClient> client(CLibPipeConnectionCreator::createLibPipeClient(&events));
  const std::string name = UniqueName("Client");
  IIPCConnector* first = nullptr;
  for (const char* fifo : {"c", "d"}) {
    ASSERT_TRUE(client->addConnector(name, dir(fifo) + "1", kPipeReadFlags | kPipeCreateFlag, dir(fifo) + "2",
                                     kPipeWriteFlags | kPipeCreateFlag));
    if (first == nullptr) first = client->getConnector();
  }
  EXPECT_NE(client->getConnector(), first);
  EXPECT_EQ(client->getConnector()->GetName(), name);
  // The reading thread makes its FIFO within a moment of starting.
  for (int i = 0; i < 30 && !Exists(dir("d1")); ++i) usleep(100 * 1000);
  client.reset();
  EXPECT_TRUE(Exists(dir("c1")) && Exists(dir("d1")));
}

}  // namespace
