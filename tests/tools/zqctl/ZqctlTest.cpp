#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "FileContents.h"
#include "ServiceTestEnvironment.h"
#include "StubBundle.h"

namespace {

struct ZqctlRun {
  int status;
  std::string out;
  std::string err;
};

class ZqctlTest : public ServiceTestBase {
 protected:
  void SetUp() override {
    ServiceTestBase::SetUp();
    if (IsSkipped()) return;
    work = bundle->stubDir();
  }

  // Runs zqctl with `arguments` (already quoted for the shell) and `input`
  // on its standard input.
  ZqctlRun Zqctl(const std::string& arguments, const std::string& input = "") {
    std::ofstream(work + "/in", std::ios::binary | std::ios::trunc) << input;
    const int status = RunShell("'" ZQCTL "' " + arguments + " <'" + work + "/in' >'" + work + "/out' 2>'" + work +
                                "/err'");
    return {status, ReadFile(work + "/out"), ReadFile(work + "/err")};
  }

  void StartService() {
    service->Start();
    const ZqctlRun ping = Zqctl("ping");
    ASSERT_EQ(ping.status, 0) << ping.err;
    bundle->ClearCalls();
  }

  std::string work;
};

TEST_F(ZqctlTest, PingAndCheckPrintForAPersonAndAsJson) {
  StartService();
  EXPECT_EQ(Zqctl("ping").out, "the service is running\n");

  ZqctlRun run = Zqctl("check disk2s1");
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.err, "zqctl: disk2s1: not a BitLocker volume\n");

  bundle->Answer("is_bitlocker", "");
  bundle->Answer("diskutil-unmount.stdout", "successful\n");
  run = Zqctl("--json --as FileExplorer check disk2s1");
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.out,
            "{\"subcommand\":\"check\",\"client\":\"FileExplorer\",\"device\":\"disk2s1\",\"result\":49,"
            "\"text\":\"disk2s1\",\"ok\":true,\"status\":0,\"message\":\"disk2s1: BitLocker volume\"}\n");
}

TEST_F(ZqctlTest, MountAndExploreSendTheCredentialFromStandardInputAndNameEachResult) {
  StartService();
  bundle->Answer("is_bitlocker", "");
  bundle->Answer("diskutil-unmount.stdout", "successful\n");
  ZqctlRun run = Zqctl("mount disk4 '/mnt/a\\ b' raw", "it's me\n");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, "disk4: mounted at /mnt/a\\ b\n");
  EXPECT_EQ(bundle->CallsOf("zq-mounter").at(0).arguments, (std::vector<std::string>{"", "/mnt/a b", "raw"}));
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/zq-mounter.input"), "it's me\n");

  struct Case {
    const char* answerFile;
    const char* answer;
    const char* arguments;
    const char* said;
  };
  const Case cases[] = {
      {"zq-mounter.exit", "2", "mount disk4 /mnt/x raw", "zqctl: mount failed: wrong credential (2)\n"},
      {"zq-mounter.exit", "5", "mount disk4 /mnt/x raw",
       "zqctl: mount failed: the volume opened but could not be mounted (5)\n"},
      {"open_status", "3", "explore disk4", "zqctl: explore failed: unsupported volume (3)\n"},
      {"diskutil-unmount.stdout", "busy\n", "explore disk4",
       "zqctl: explore failed: the device could not be unmounted first (19)\n"},
      {"is_bitlocker", "", "mount disk4 /etc/x raw", "zqctl: mount failed: the service refused the request: see /tmp/zqlog.log (64)\n"},
  };
  for (const Case& c : cases) {
    bundle->Answer(c.answerFile, c.answer);
    run = Zqctl(c.arguments, "secret\n");
    EXPECT_EQ(run.status, 1) << c.arguments;
    EXPECT_EQ(run.err, c.said);
  }
  run = Zqctl("--json mount disk4 /mnt/x raw", "wrong\n");
  EXPECT_NE(run.out.find("\"result\":19,"), std::string::npos) << run.out;
}

TEST_F(ZqctlTest, ListenPrintsForwardedBlocks) {
  StartService();
  const std::string listenOut = work + "/listen";
  const pid_t listener = fork();
  if (listener == 0) {
    freopen(listenOut.c_str(), "w", stdout);
    execl(ZQCTL, "zqctl", "--as", "FileExplorer", "listen", static_cast<char*>(nullptr));
    _exit(126);
  }
  // A block forwarded before the listener has opened its end is dropped,
  // so the byte is sent again until one arrives.
  std::string printed;
  for (int i = 0; i < 100 && printed.empty(); ++i) {
    if (i % 10 == 0) {
      EXPECT_EQ(Zqctl("to-explorer q").status, 0);
    }
    usleep(100 * 1000);
    printed = ReadFile(listenOut);
  }
  kill(listener, SIGTERM);
  EXPECT_EQ(printed.substr(0, printed.find('\n') + 1), "block 1: to-explorer 113\n");
}

TEST_F(ZqctlTest, BadInputIsRefusedBeforeAnythingIsSent) {
  struct Case {
    std::string arguments;
    std::string message;
  };
  const Case cases[] = {
      {"frobnicate", "zqctl: unknown subcommand 'frobnicate'; see zqctl --help\n"},
      {"check " + std::string(32, 'd'), "zqctl: DEVICE is 32 bytes long; it may be at most 31 bytes\n"},
      {"to-main 256", "zqctl: BYTE must be a number from 0 to 255 or a single character, not '256'\n"},
      {"--as Finder ping", "zqctl: --as takes MainUI or FileExplorer, not 'Finder'\n"},
      {"check", "zqctl: usage: zqctl check DEVICE\n"},
      {"startup maybe", "zqctl: usage: zqctl startup on BUNDLE | zqctl startup off\n"},
  };
  for (const Case& c : cases) {
    const ZqctlRun run = Zqctl(c.arguments);
    EXPECT_EQ(run.status, 2) << c.arguments;
    EXPECT_EQ(run.err, c.message) << c.arguments;
  }
  const ZqctlRun tooLong = Zqctl("explore disk4", std::string(128, 'p') + "\n");
  EXPECT_EQ(tooLong.status, 2);
  EXPECT_EQ(tooLong.err, "zqctl: the credential is 128 bytes long; it may be at most 127 bytes\n");
  EXPECT_EQ(Zqctl("explore disk4").status, 2) << "no credential at all";
  // Nothing was sent: zqctl never even made its channel's FIFOs.
  EXPECT_NE(access("/tmp/zq_btl_2", F_OK), 0);
}

TEST_F(ZqctlTest, NoServiceAndTimeoutAreTold) {
  ZqctlRun run = Zqctl("--timeout 2 ping");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "zqctl: no service: the channel could not be opened\n");

  ASSERT_EQ(RunShell("rm -f /tmp/zq_btl_1 && mkfifo /tmp/zq_btl_1 && chown 4242 /tmp/zq_btl_1"), 0);
  run = Zqctl("--timeout 2 ping");
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.err, "zqctl: /tmp/zq_btl_1 belongs to uid 4242, who is neither root, nor the user at the machine, nor "
                     "you: it is not used\n");

  StartService();
  kill(service->pid(), SIGSTOP);  // its channel stays open but nobody reads
  run = Zqctl("--timeout 2 ping");
  kill(service->pid(), SIGCONT);
  EXPECT_EQ(run.status, 4);
  EXPECT_EQ(run.err, "zqctl: timeout: the service did not answer within 2 s\n");
}

}  // namespace
