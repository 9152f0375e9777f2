// zqctl against the service on a stub bundle: what it sends, what it says
// and with which status it ends.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "FileContents.h"
#include "ServiceTestEnvironment.h"

namespace {

// zqctl's status and what it printed on both outputs.
using Said = std::pair<int, std::string>;

// `setUp` runs in the stub bundle's answer folder first.
struct Case {
  std::string arguments;
  std::string input;
  Said said;
  const char* setUp = "true";
};

class ZqctlTest : public ServiceTestBase {
 protected:
  // Runs zqctl with `arguments` (already quoted for the shell) and `input`
  // on its standard input.
  Said Zqctl(const std::string& arguments, const std::string& input = "") {
    const std::string work = bundle->stubDir();
    std::ofstream(work + "/in", std::ios::binary | std::ios::trunc) << input;
    const int status = RunShell("'" ZQCTL "' " + arguments + " <'" + work + "/in' >'" + work + "/out' 2>&1");
    return {status, ReadFile(work + "/out")};
  }

  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.arguments);
      ASSERT_EQ(RunShell("cd '" + bundle->stubDir() + "' && " + c.setUp), 0);
      EXPECT_EQ(Zqctl(c.arguments, c.input), c.said);
    }
  }

  void StartService() {
    bundle->Answer("diskutil-unmount.stdout", "successful\n");
    service->Start();
    ASSERT_EQ(Zqctl("ping").first, 0);
  }
};

TEST_F(ZqctlTest, EachSubcommandSaysWhatTheServiceAnswered) {
  StartService();
  Expect({{"ping", "", {0, "the service is running\n"}},
          {"check disk2s1", "", {1, "zqctl: disk2s1: not a BitLocker volume\n"}},
          {"--json --as FileExplorer check disk2s1", "",
           {0, "{\"subcommand\":\"check\",\"client\":\"FileExplorer\",\"device\":\"disk2s1\",\"result\":49,"
               "\"text\":\"disk2s1\",\"ok\":true,\"status\":0,\"message\":\"disk2s1: BitLocker volume\"}\n"},
           ": >is_bitlocker"},
          {"mount disk4 '/mnt/a\\ b' raw", "it's me\n", {0, "disk4: mounted at /mnt/a\\ b\n"}}});
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/zq-mounter.input"), "it's me\n");
  Expect({{"mount disk4 /mnt/x raw", "pw\n", {1, "zqctl: mount failed: wrong credential (2)\n"},
           "printf 2 >zq-mounter.exit"},
          {"explore disk4", "pw\n", {1, "zqctl: explore failed: unsupported volume (3)\n"}, "printf 3 >open_status"},
          {"explore disk4", "pw\n", {1, "zqctl: explore failed: the device could not be unmounted first (19)\n"},
           "echo busy >diskutil-unmount.stdout"},
          {"mount disk4 /etc/x raw", "pw\n",
           {1, "zqctl: mount failed: the service refused the request: see /tmp/zqlog.log (64)\n"}}});
}

TEST_F(ZqctlTest, ListenPrintsForwardedBlocks) {
  StartService();
  const std::string heard = bundle->stubDir() + "/listen";
  ASSERT_EQ(RunShell("'" ZQCTL "' --as FileExplorer listen >'" + heard + "' & echo $! >'" + heard + "'.pid"), 0);
  // A block forwarded before the listener has opened its end is dropped,
  // so the byte is sent again until one arrives.
  std::string printed;
  for (int i = 0; i < 100 && printed.empty(); ++i, usleep(100 * 1000), printed = ReadFile(heard))
    EXPECT_TRUE(i % 10 != 0 || Zqctl("to-explorer q").first == 0);
  kill(std::stoi(ReadFile(heard + ".pid")), SIGTERM);
  EXPECT_EQ(printed.substr(0, printed.find('\n') + 1), "block 1: to-explorer 113\n");
}

// Bad input is refused before anything is sent: zqctl never even makes its
// channel's FIFOs.  Without a service, or with a channel of another user's,
// it says so; a service that does not read times it out.
TEST_F(ZqctlTest, BadInputNoServiceAndTimeoutAreTold) {
  Expect({{"frobnicate", "", {2, "zqctl: unknown subcommand 'frobnicate'; see zqctl --help\n"}},
          {"check " + std::string(32, 'd'), "", {2, "zqctl: DEVICE is 32 bytes long; it may be at most 31 bytes\n"}},
          {"to-main 256", "", {2, "zqctl: BYTE must be a number from 0 to 255 or a single character, not '256'\n"}},
          {"--as Finder ping", "", {2, "zqctl: --as takes MainUI or FileExplorer, not 'Finder'\n"}},
          {"check", "", {2, "zqctl: usage: zqctl check DEVICE\n"}},
          {"explore disk4", std::string(128, 'p') + "\n",
           {2, "zqctl: the credential is 128 bytes long; it may be at most 127 bytes\n"}},
          {"explore disk4", "", {2, "zqctl: no credential could be read from standard input\n"}}});
  EXPECT_NE(access("/tmp/zq_btl_2", F_OK), 0);
  Expect({{"--timeout 2 ping", "", {3, "zqctl: no service: the channel could not be opened\n"}},
          {"--timeout 2 ping", "",
           {3, "zqctl: /tmp/zq_btl_1 belongs to uid 4242, who is neither root, nor the user at the machine, nor you: "
               "it is not used\n"},
           "rm -f /tmp/zq_btl_1 && mkfifo /tmp/zq_btl_1 && chown 4242 /tmp/zq_btl_1"}});
  // The service replaces the planted FIFO within its first second; zqctl
  // must not meet it before then.
  ASSERT_EQ(RunShell("rm /tmp/zq_btl_1"), 0);
  StartService();
  kill(service->pid(), SIGSTOP);  // its channel stays open but nobody reads
  Expect({{"--timeout 2 ping", "", {4, "zqctl: timeout: the service did not answer within 2 s\n"}}});
  kill(service->pid(), SIGCONT);
}

}  // namespace
