#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <memory>

#include "ServiceTestEnvironment.h"
#include "StubBundle.h"

namespace {

constexpr int kAnswerSeconds = 5;

class ServiceTest : public ServiceTestBase {
 protected:
  // Starts the service with both clients present and waits until MainUI
  // is served.
  void StartWithClients() {
    mainUI = std::make_unique<RawClient>(kMainUIChannel);
    explorer = std::make_unique<RawClient>(kFileExplorerChannel);
    service->Start();
    ASSERT_TRUE(Ping(*mainUI)) << "the service did not answer";
    bundle->ClearCalls();
  }

  bool Ping(RawClient& client) {
    if (!client.Send(99, MakeRecord(eCOMMAND_CHECK_CONNECTION))) return false;
    const std::optional<Block> answer = client.Receive(kAnswerSeconds);
    return answer && ResultOf(*answer) == kResultServiceThere;
  }

  static uint32_t Word(const Block& block, size_t offset) {
    uint32_t value;
    std::memcpy(&value, block.data() + offset, sizeof value);
    return value;
  }
  static uint32_t ResultOf(const Block& block) { return Word(block, 4 + 12); }
  static std::string TextOf(const Block& block) {
    return std::string(reinterpret_cast<const char*>(block.data()) + 4 + 20);
  }

  // Checks the fixed frame of an answer: the id, a 148-byte record of type 8
  // and zeros behind it.
  static void ExpectAnswerFrame(const Block& block, uint32_t msgId) {
    EXPECT_EQ(Word(block, 0), msgId);
    EXPECT_EQ(Word(block, 4), static_cast<uint32_t>(eCOMMAND_RESULT));
    EXPECT_EQ(Word(block, 8), 0u);
    EXPECT_EQ(Word(block, 12), 148u);
    EXPECT_EQ(Word(block, 20), 0u);
    for (size_t i = 4 + 148; i < block.size(); ++i) ASSERT_EQ(block[i], 0) << "byte " << i;
  }

  void UnmountSucceeds() {
    bundle->Answer("is_bitlocker", "");
    bundle->Answer("diskutil-unmount.stdout", "Volume unmounted successfully\n");
  }

  std::unique_ptr<RawClient> mainUI, explorer;
};

TEST_F(ServiceTest, CheckAnswersWithTheDeviceNameAndUnmountsABitlockerDevice) {
  StartWithClients();
  ASSERT_TRUE(explorer->Send(4242, MakeRecord(eCOMMAND_CHECK_CONNECTION)));
  std::optional<Block> answer = explorer->Receive(kAnswerSeconds);
  ASSERT_TRUE(answer);
  ExpectAnswerFrame(*answer, 4242);
  EXPECT_EQ(ResultOf(*answer), 55u);
  EXPECT_EQ(LogMessages().back(), "serverEvent - eCOMMAND_CHECK_CONNECTION");

  CCommandDataWrapper<char> check = MakeRecord(eCOMMAND_BITLOCKER_CHECK);
  std::strcpy(check.check.deviceName, "disk2s1");
  ASSERT_TRUE(mainUI->Send(17, check));
  answer = mainUI->Receive(kAnswerSeconds);
  ASSERT_TRUE(answer);
  ExpectAnswerFrame(*answer, 17);
  EXPECT_EQ(ResultOf(*answer), 50u);
  EXPECT_EQ(TextOf(*answer), "disk2s1");
  EXPECT_TRUE(bundle->CallsOf("diskutil").empty());

  bundle->Answer("is_bitlocker", "");
  UnmountSucceeds();
  std::memset(check.check.deviceName, 'd', sizeof check.check.deviceName);  // no terminator
  ASSERT_TRUE(mainUI->Send(18, check));
  answer = mainUI->Receive(kAnswerSeconds);
  ASSERT_TRUE(answer);
  ExpectAnswerFrame(*answer, 18);
  EXPECT_EQ(ResultOf(*answer), 49u);
  EXPECT_EQ(TextOf(*answer), std::string(32, 'd'));
  EXPECT_EQ(bundle->CallsOf("diskutil").at(0).arguments, (std::vector<std::string>{"unmount", std::string(32, 'd')}));

  std::vector<std::string> log = LogMessages();
  ASSERT_GE(log.size(), 4u);
  EXPECT_EQ(std::vector<std::string>(log.end() - 4, log.end()),
            (std::vector<std::string>{"serverEvent - eCOMMAND_BITLOCKER_CHECK",
                                      "serverEvent - eCOMMAND_BITLOCKER_CHECK_OVER",
                                      "serverEvent - eCOMMAND_BITLOCKER_CHECK",
                                      "serverEvent - eCOMMAND_BITLOCKER_CHECK_OVER"}));
}

TEST_F(ServiceTest, ForwardedCommandsReachTheOtherClientByteForByte) {
  StartWithClients();
  CCommandDataWrapper<char> toExplorer = MakeRecord(eCOMMAND_TO_FILE_EXPLORER);
  toExplorer.simple.arg = 'q';
  toExplorer.reserved = 77;  // carried as it came
  ASSERT_TRUE(mainUI->Send(40, toExplorer));
  std::optional<Block> forwarded = explorer->Receive(kAnswerSeconds);
  ASSERT_TRUE(forwarded);
  Block expected{};
  expected[0] = 1;
  std::memcpy(expected.data() + 4, &toExplorer, 13);
  EXPECT_EQ(*forwarded, expected);

  CCommandDataWrapper<char> toMain = MakeRecord(eCOMMAND_TO_MAIN_UI);
  toMain.simple.arg = 0xfe;
  ASSERT_TRUE(explorer->Send(41, toMain));
  forwarded = mainUI->Receive(kAnswerSeconds);
  ASSERT_TRUE(forwarded);
  std::memcpy(expected.data() + 4, &toMain, 13);
  EXPECT_EQ(*forwarded, expected);
  EXPECT_FALSE(explorer->Receive(2)) << "the sender gets no answer";
}

TEST_F(ServiceTest, UnknownNumbersAreIgnoredSilently) {
  StartWithClients();
  const size_t logLines = LogMessages().size();
  for (uint32_t type : {0u, 2u, 8u, 13u}) {
    CCommandDataWrapper<char> record = MakeRecord(static_cast<COMMAND_TYPE>(type));
    ASSERT_TRUE(mainUI->Send(50 + type, &record, sizeof record));
  }
  EXPECT_FALSE(mainUI->Receive(5));
  EXPECT_EQ(LogMessages().size(), logLines);
  EXPECT_TRUE(Ping(*mainUI)) << "the service still answers";
}

TEST_F(ServiceTest, TwoClientsMountAtTheSameTime) {
  StartWithClients();
  UnmountSucceeds();
  // Each mounter waits for the other: both answer 0 only if they overlap.
  bundle->Answer("zq-mounter.rendezvous", "2");
  CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
  std::strcpy(mount.mount.deviceName, "disk7");
  std::strcpy(mount.mount.mountArg2, "/media/disk7");
  ASSERT_TRUE(mainUI->Send(60, mount));
  ASSERT_TRUE(explorer->Send(61, mount));
  const std::optional<Block> first = mainUI->Receive(30);
  const std::optional<Block> second = explorer->Receive(30);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(ResultOf(*first), 0u);
  EXPECT_EQ(ResultOf(*second), 0u);
}

TEST_F(ServiceTest, ExitEndsTheServiceAtOnceEvenWhileTheOtherClientMounts) {
  StartWithClients();
  UnmountSucceeds();
  bundle->Answer("zq-mounter.delay", "30");
  CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
  std::strcpy(mount.mount.deviceName, "disk7");
  std::strcpy(mount.mount.mountArg2, "/media/disk7");
  ASSERT_TRUE(explorer->Send(69, mount));
  for (int i = 0; i < 50 && bundle->CallsOf("zq-mounter").empty(); ++i) usleep(100 * 1000);
  ASSERT_EQ(bundle->CallsOf("zq-mounter").size(), 1u) << "the mount did not start";
  ASSERT_TRUE(mainUI->Send(70, MakeRecord(eCOMMAND_EXIT)));
  EXPECT_EQ(service->WaitForExit(5), std::optional<int>(0)) << "exit waited for the mount";
  EXPECT_FALSE(mainUI->Receive(1)) << "exit has no answer";
  for (const char* fifo : {"/tmp/zq_btl_1", "/tmp/zq_btl_2", "/tmp/zq_btl_3", "/tmp/zq_btl_4"})
    EXPECT_NE(access(fifo, F_OK), 0) << fifo;
  EXPECT_EQ(LogMessages().back(), "serverEvent - eCOMMAND_EXIT");
}

TEST_F(ServiceTest, StartupItemsAreWrittenAndRemoved) {
  StartWithClients();
  const std::string installed = MakeRootOwnedBundle();
  CCommandDataWrapper<char> startup = MakeRecord(eCOMMAND_SET_STARTUP);
  startup.startup.enable = 1;
  std::strcpy(startup.startup.bundlePath, installed.c_str());
  ASSERT_TRUE(mainUI->Send(80, startup));
  const std::string daemon = "/Library/LaunchDaemons/com.zq.BitlockerServices.plist";
  const std::string agent = "/Library/LaunchAgents/com.zq.Norvane.plist";
  ASSERT_TRUE(WaitForPath(agent, kAnswerSeconds));
  EXPECT_EQ(RunShell("python3 -c \"import plistlib,sys; d=plistlib.load(open('" + daemon +
                     "','rb')); sys.exit(d['ProgramArguments'] != ['" + installed +
                     "/Contents/MacOS/Zq-NorvaneServices'])\""),
            0);
  EXPECT_FALSE(mainUI->Receive(1)) << "startup has no answer";

  startup.startup.enable = 0;  // removes whatever the path says
  ASSERT_TRUE(mainUI->Send(81, startup));
  for (int i = 0; i < 50 && access(agent.c_str(), F_OK) == 0; ++i) usleep(100 * 1000);
  EXPECT_NE(access(daemon.c_str(), F_OK), 0);
  EXPECT_NE(access(agent.c_str(), F_OK), 0);
}

TEST_F(ServiceTest, InstallerRunsOnceAtLaunch) {
  service->Start();
  for (int i = 0; i < 50 && bundle->CallsOf("installer").empty(); ++i) usleep(100 * 1000);
  const std::vector<StubCall> calls = bundle->CallsOf("installer");
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{
                                    "-pkg", bundle->bundlePath() + "/Contents/MacOS/installer.pkg", "-target", "/"}));
  EXPECT_EQ(LogMessages().at(0), "fuseInstall");
}

// The single-copy rule.
TEST_F(ServiceTest, PlainStartLeavesARunningCopyAlone) {
  StartWithClients();
  ServiceProcess second(bundle->bundlePath());
  second.Start();
  EXPECT_EQ(second.WaitForExit(10), std::optional<int>(0));
  EXPECT_TRUE(service->Running());
  EXPECT_TRUE(Ping(*mainUI));
}

TEST_F(ServiceTest, StartWithArgumentsTakesOver) {
  StartWithClients();
  ServiceProcess newer(bundle->bundlePath());
  newer.Start({"--take-over"});
  EXPECT_EQ(service->WaitForExit(10), std::optional<int>(-1));
  EXPECT_EQ(service->terminatingSignal(), SIGKILL);
  EXPECT_TRUE(newer.Running());
  EXPECT_TRUE(Ping(*mainUI));
}

TEST_F(ServiceTest, AForeignProcessWithALeadingPartOfTheNameCounts) {
  const std::string impostor = bundle->stubDir() + "/zQ-NORVANE";
  ASSERT_EQ(RunShell("cp /bin/sleep '" + impostor + "'"), 0);
  ServiceProcess foreign(bundle->bundlePath());
  const pid_t pid = fork();
  if (pid == 0) {
    execl(impostor.c_str(), impostor.c_str(), "30", static_cast<char*>(nullptr));
    _exit(126);
  }
  usleep(200 * 1000);
  service->Start();
  EXPECT_EQ(service->WaitForExit(10), std::optional<int>(0));
  kill(pid, SIGKILL);
}

}  // namespace
