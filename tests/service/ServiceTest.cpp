// The service on a stub bundle: its answers, forwarding, startup items,
// the installer and the rule that one copy runs.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <thread>

#include "tests/service/ServiceClients.h"
#include "tests/support/FileContents.h"

namespace {

using ServiceTest = ServiceClientTest;

// The whole block of an answer: the id, a 148-byte record of type 8 with
// `result` and `text`, and zeros behind it.
Block Answer(uint32_t msgId, uint32_t result, const std::string& text) {
  Block block{};
  const uint32_t words[] = {msgId, eCOMMAND_RESULT, 0, 148, result, 0};
  std::memcpy(block.data(), words, sizeof words);
  text.copy(reinterpret_cast<char*>(block.data()) + sizeof words, 128);
  return block;
}

TEST_F(ServiceTest, AnswersCarryTheirFrameAndACheckUnmountsABitlockerDevice) {
  StartWithClients();
  ASSERT_TRUE(explorer->Send(4242, MakeRecord(eCOMMAND_CHECK_CONNECTION)));
  EXPECT_EQ(explorer->Receive(5), Answer(4242, kResultServiceThere, ""));
  // /dev/null is no disk: the library is asked with no raw device, and a
  // device that is not BitLocker is left alone.
  bundle->RemoveAnswer("is_bitlocker");
  ASSERT_TRUE(mainUI->Send(17, DeviceRecord(eCOMMAND_BITLOCKER_CHECK, "null")));
  EXPECT_EQ(mainUI->Receive(5), Answer(17, kResultIsNotBitlocker, "null"));
  EXPECT_EQ(bundle->Calls(), (std::vector<StubCall>{{"is_bitlocker_drive", {""}}}));
  bundle->Answer("is_bitlocker", "");
  const std::string unended(32, 'd');
  ASSERT_TRUE(mainUI->Send(18, DeviceRecord(eCOMMAND_BITLOCKER_CHECK, unended)));
  EXPECT_EQ(mainUI->Receive(5), Answer(18, kResultIsBitlocker, unended));
  EXPECT_EQ(bundle->CallsOf("diskutil").at(0).arguments, (std::vector<std::string>{"unmount", unended}));
  EXPECT_EQ(LogMessages().back(), "serverEvent - eCOMMAND_BITLOCKER_CHECK_OVER");
}

// Forwarded commands reach the other client byte for byte and are not
// answered; unknown numbers are ignored without a word.
TEST_F(ServiceTest, ForwardedCommandsReachTheOtherClientAndUnknownNumbersNobody) {
  StartWithClients();
  for (auto [type, byte] : {std::pair{eCOMMAND_TO_FILE_EXPLORER, 'q'}, std::pair{eCOMMAND_TO_MAIN_UI, '\xfe'}}) {
    CCommandDataWrapper<char> record = MakeRecord(type);
    record.simple.arg = byte;
    record.reserved = 77;  // carried as it came
    const bool toExplorer = type == eCOMMAND_TO_FILE_EXPLORER;
    ASSERT_TRUE((toExplorer ? mainUI : explorer)->Send(40, record));
    Block expected{1};  // a forwarded block's id is 1
    std::memcpy(expected.data() + 4, &record, 13);
    EXPECT_EQ((toExplorer ? explorer : mainUI)->Receive(5), std::optional<Block>(expected));
  }
  const size_t logLines = LogMessages().size();
  for (uint32_t type : {0u, 2u, 8u, 13u}) {
    CCommandDataWrapper<char> record = MakeRecord(static_cast<COMMAND_TYPE>(type));
    ASSERT_TRUE(mainUI->Send(50 + type, &record, sizeof record));
  }
  EXPECT_FALSE(mainUI->Receive(3));
  EXPECT_FALSE(explorer->Receive(1));
  EXPECT_EQ(LogMessages().size(), logLines);
  EXPECT_TRUE(Ping(*mainUI)) << "the service still answers";
}

// Each mounter, on a device of its own, waits for the other, so both
// clients are answered 0 only if their mounts overlap.  Exit ends the service at once even while the
// other client's mount runs.
TEST_F(ServiceTest, TwoClientsMountAtTheSameTimeAndExitWaitsForNeither) {
  StartWithClients();
  bundle->Answer("zq-mounter.rendezvous", "2");
  const CCommandDataWrapper<char> mount = DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk7", "/media/disk7");
  const CCommandDataWrapper<char> other = DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk8", "/media/disk8");
  std::thread second([&] { EXPECT_EQ(Result(*explorer, other, 30), 0u); });
  EXPECT_EQ(Result(*mainUI, mount, 30), 0u);
  second.join();

  bundle->RemoveAnswer("zq-mounter.rendezvous");
  bundle->Answer("zq-mounter.delay", "30");
  bundle->ClearCalls();
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

// A bundle that only root can change gets the boot-time item and the
// login item, one that others may change only the login item; disabling
// removes both.  The command has no answer of its own.
TEST_F(ServiceTest, StartupItemsAreWrittenAndRemoved) {
  StartWithClients();
  ASSERT_EQ(RunShell("chmod 777 '" + bundle->bundlePath() + "'"), 0);
  const std::string daemon = "/Library/LaunchDaemons/com.zq.BitlockerServices.plist";
  const std::string agent = "/Library/LaunchAgents/com.zq.Norvane.plist";
  for (const std::string& path : {MakeRootOwnedBundle(), bundle->bundlePath()}) {
    SCOPED_TRACE(path);
    CCommandDataWrapper<char> startup = MakeRecord(eCOMMAND_SET_STARTUP);
    startup.startup.enable = 1;
    path.copy(startup.startup.bundlePath, sizeof startup.startup.bundlePath - 1);
    ASSERT_TRUE(mainUI->Send(80, startup));
    ASSERT_TRUE(Ping(*mainUI));
    EXPECT_EQ(RunShell("python3 -c \"import plistlib,sys; d=plistlib.load(open('" + daemon +
                       "','rb')); sys.exit(d['ProgramArguments'] != ['" + path +
                       "/Contents/MacOS/Zq-NorvaneServices'])\" 2>/dev/null") == 0,
              path != bundle->bundlePath());
    EXPECT_EQ(access(agent.c_str(), F_OK), 0);
    startup.startup.enable = 0;  // removes whatever the path says
    ASSERT_TRUE(mainUI->Send(81, startup));
    ASSERT_TRUE(Ping(*mainUI));
    EXPECT_NE(access(daemon.c_str(), F_OK), 0);
    EXPECT_NE(access(agent.c_str(), F_OK), 0);
  }
  EXPECT_NE(ReadFile("/tmp/zqlog.log").find("eCOMMAND_SET_STARTUP: no boot-time item"), std::string::npos);
}

TEST_F(ServiceTest, InstallerRunsOnceAtLaunch) {
  service->Start();
  for (int i = 0; i < 50 && bundle->CallsOf("installer").empty(); ++i) usleep(100 * 1000);
  const StubCall call{"installer", {"-pkg", bundle->bundlePath() + "/Contents/MacOS/installer.pkg", "-target", "/"}};
  EXPECT_EQ(bundle->CallsOf("installer"), std::vector<StubCall>{call});
  EXPECT_EQ(LogMessages().at(0), "fuseInstall");
}

// A plain start leaves a running copy alone, even a foreign process whose
// name begins like the service's; a start with arguments takes over.
TEST_F(ServiceTest, OneCopyRuns) {
  const std::string impostor = bundle->stubDir() + "/zQ-NORVANE";
  ASSERT_EQ(RunShell("cp /bin/sleep '" + impostor + "'"), 0);
  const pid_t foreign = fork();
  if (foreign == 0) _exit(execl(impostor.c_str(), impostor.c_str(), "30", static_cast<char*>(nullptr)));
  usleep(200 * 1000);
  service->Start();
  EXPECT_EQ(service->WaitForExit(10), std::optional<int>(0)) << "started beside a foreign copy";
  kill(foreign, SIGKILL);
  waitpid(foreign, nullptr, 0);

  service = std::make_unique<ServiceProcess>(bundle->bundlePath());
  StartWithClients();
  ServiceProcess second(bundle->bundlePath()), newer(bundle->bundlePath());
  second.Start();
  EXPECT_EQ(second.WaitForExit(10), std::optional<int>(0));
  EXPECT_TRUE(service->Running());
  newer.Start({"--take-over"});
  EXPECT_EQ(service->WaitForExit(10), std::optional<int>(-1));
  EXPECT_EQ(service->terminatingSignal(), SIGKILL);
  EXPECT_TRUE(newer.Running());
  EXPECT_TRUE(Ping(*mainUI));
}

}  // namespace
