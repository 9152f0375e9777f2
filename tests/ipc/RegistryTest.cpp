#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>

#include "CLibPipeConnectionCreator.h"
#include "IpcTestSupport.h"
#include "PipeFlags.h"

namespace {

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The reading thread makes its FIFO within a moment of starting.
bool WaitForFifo(const std::string& path) {
  for (int i = 0; i < 30 && !Exists(path); ++i) usleep(100 * 1000);
  return Exists(path);
}

TEST(Registries, ServerKeepsOneConnectionPerNameAndUnlinksItsFifos) {
  EXPECT_EQ(CLibPipeConnectionCreator::createLibPipeServer(nullptr), nullptr);
  EXPECT_EQ(CLibPipeConnectionCreator::createLibPipeClient(nullptr), nullptr);
  TempDir dir;
  RecordingEvent events;
  std::unique_ptr<ILibPipeServer> server(CLibPipeConnectionCreator::createLibPipeServer(&events));
  const std::string name = UniqueName("Main"), other = UniqueName("Other");
  // The peer makes the FIFOs; the server only opens them.
  ASSERT_EQ(RunShell("mkfifo '" + dir("in") + "' '" + dir("out") + "' '" + dir("b1") + "' '" + dir("b2") + "'"), 0);
  ASSERT_TRUE(server->addConnector(name, dir("in"), kPipeReadFlags, dir("out"), kPipeWriteFlags));
  IIPCConnector* first = server->getConnector(name);
  ASSERT_NE(first, nullptr);
  EXPECT_FALSE(server->addConnector(name, dir("in2"), kPipeReadFlags, dir("out2"), kPipeWriteFlags));
  EXPECT_EQ(server->getConnector(name), first);
  EXPECT_EQ(server->getConnector("nobody"), nullptr);

  server->removeConnector("nobody");
  EXPECT_TRUE(Exists(dir("in")));
  server->removeConnector(name);
  EXPECT_EQ(server->getConnector(name), nullptr);
  EXPECT_FALSE(Exists(dir("in")));
  EXPECT_FALSE(Exists(dir("out")));

  // Ending the server unlinks the FIFOs of the connections it still has.
  ASSERT_TRUE(server->addConnector(other, dir("b1"), kPipeReadFlags, dir("b2"), kPipeWriteFlags));
  server.reset();
  EXPECT_FALSE(Exists(dir("b1")));
  EXPECT_FALSE(Exists(dir("b2")));
}

TEST(Registries, ClientReplacesItsConnectionAndLeavesItsFifos) {
  TempDir dir;
  RecordingEvent events;
  std::unique_ptr<ILibPipeClient> client(CLibPipeConnectionCreator::createLibPipeClient(&events));
  EXPECT_EQ(client->getConnector(), nullptr);
  const std::string name = UniqueName("Client");
  ASSERT_TRUE(client->addConnector(name, dir("c1"), kPipeReadFlags | kPipeCreateFlag, dir("c2"),
                                   kPipeWriteFlags | kPipeCreateFlag));
  IIPCConnector* first = client->getConnector();
  ASSERT_TRUE(client->addConnector(name, dir("d1"), kPipeReadFlags | kPipeCreateFlag, dir("d2"),
                                   kPipeWriteFlags | kPipeCreateFlag));
  EXPECT_NE(client->getConnector(), first);
  EXPECT_EQ(client->getConnector()->GetName(), name);
  ASSERT_TRUE(WaitForFifo(dir("d1")));
  client.reset();
  EXPECT_TRUE(Exists(dir("c1")));
  EXPECT_TRUE(Exists(dir("d1")));
}

}  // namespace
