// zqctl against the service on a stub bundle: what it sends, what it says
// and with which status it ends.
#include <signal.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "FileContents.h"
#include "ServiceTestEnvironment.h"

namespace {

// `setUp` runs in the stub bundle's answer folder; `said` is what zqctl
// prints on both outputs.
struct Case {
  const char* setUp;
  std::string arguments;
  std::string input;
  int status;
  std::string said;
};

class ZqctlTest : public ServiceTestBase {
 protected:
  // Runs zqctl with `arguments` (already quoted for the shell) and `input`
  // on its standard input; its status, and in `said` its outputs.
  int Zqctl(const std::string& arguments, const std::string& input, std::string* said) {
    const std::string work = bundle->stubDir();
    std::ofstream(work + "/in", std::ios::binary | std::ios::trunc) << input;
    const int status = RunShell("'" ZQCTL "' " + arguments + " <'" + work + "/in' >'" + work + "/out' 2>&1");
    *said = ReadFile(work + "/out");
    return status;
  }

  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.arguments);
      ASSERT_EQ(RunShell("cd '" + bundle->stubDir() + "' && " + c.setUp), 0);
      std::string said;
      EXPECT_EQ(Zqctl(c.arguments, c.input, &said), c.status);
      EXPECT_EQ(said, c.said);
    }
  }

  void StartService() {
    bundle->Answer("diskutil-unmount.stdout", "successful\n");
    service->Start();
    std::string said;
    ASSERT_EQ(Zqctl("ping", "", &said), 0) << said;
    bundle->ClearCalls();
  }
};

TEST_F(ZqctlTest, EachSubcommandSaysWhatTheServiceAnswered) {
  StartService();
  Expect({{"true", "ping", "", 0, "the service is running\n"},
          {"true", "check disk2s1", "", 1, "zqctl: disk2s1: not a BitLocker volume\n"},
          {": >is_bitlocker", "--json --as FileExplorer check disk2s1", "", 0,
           "{\"subcommand\":\"check\",\"client\":\"FileExplorer\",\"device\":\"disk2s1\",\"result\":49,"
           "\"text\":\"disk2s1\",\"ok\":true,\"status\":0,\"message\":\"disk2s1: BitLocker volume\"}\n"},
          {"true", "mount disk4 '/mnt/a\\ b' raw", "it's me\n", 0, "disk4: mounted at /mnt/a\\ b\n"}});
  EXPECT_EQ(bundle->CallsOf("zq-mounter").at(0).arguments, (std::vector<std::string>{"", "/mnt/a b", "raw"}));
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/zq-mounter.input"), "it's me\n");
  Expect({{"printf 2 >zq-mounter.exit", "mount disk4 /mnt/x raw", "pw\n", 1, "zqctl: mount failed: wrong credential (2)\n"},
          {"printf 5 >zq-mounter.exit", "mount disk4 /mnt/x raw", "pw\n", 1,
           "zqctl: mount failed: the volume opened but could not be mounted (5)\n"},
          {"printf 3 >open_status", "explore disk4", "pw\n", 1, "zqctl: explore failed: unsupported volume (3)\n"},
          {"echo busy >diskutil-unmount.stdout", "explore disk4", "pw\n", 1,
           "zqctl: explore failed: the device could not be unmounted first (19)\n"},
          {"true", "mount disk4 /etc/x raw", "pw\n", 1,
           "zqctl: mount failed: the service refused the request: see /tmp/zqlog.log (64)\n"}});
}

TEST_F(ZqctlTest, ListenPrintsForwardedBlocks) {
  StartService();
  const std::string listenOut = bundle->stubDir() + "/listen";
  const pid_t listener = fork();
  if (listener == 0) {
    freopen(listenOut.c_str(), "w", stdout);
    execl(ZQCTL, "zqctl", "--as", "FileExplorer", "listen", static_cast<char*>(nullptr));
    _exit(126);
  }
  // A block forwarded before the listener has opened its end is dropped,
  // so the byte is sent again until one arrives.
  std::string printed, said;
  for (int i = 0; i < 100 && printed.empty(); ++i, usleep(100 * 1000), printed = ReadFile(listenOut))
    EXPECT_TRUE(i % 10 != 0 || Zqctl("to-explorer q", "", &said) == 0) << said;
  kill(listener, SIGTERM);
  EXPECT_EQ(printed.substr(0, printed.find('\n') + 1), "block 1: to-explorer 113\n");
}

// Bad input is refused before anything is sent: zqctl never even makes its
// channel's FIFOs.  Without a service, or with a channel of another user's,
// it says so; a service that does not read times it out.
TEST_F(ZqctlTest, BadInputNoServiceAndTimeoutAreTold) {
  Expect({{"true", "frobnicate", "", 2, "zqctl: unknown subcommand 'frobnicate'; see zqctl --help\n"},
          {"true", "check " + std::string(32, 'd'), "", 2, "zqctl: DEVICE is 32 bytes long; it may be at most 31 bytes\n"},
          {"true", "to-main 256", "", 2, "zqctl: BYTE must be a number from 0 to 255 or a single character, not '256'\n"},
          {"true", "--as Finder ping", "", 2, "zqctl: --as takes MainUI or FileExplorer, not 'Finder'\n"},
          {"true", "check", "", 2, "zqctl: usage: zqctl check DEVICE\n"},
          {"true", "startup maybe", "", 2, "zqctl: usage: zqctl startup on BUNDLE | zqctl startup off\n"},
          {"true", "explore disk4", std::string(128, 'p') + "\n", 2,
           "zqctl: the credential is 128 bytes long; it may be at most 127 bytes\n"},
          {"true", "explore disk4", "", 2, "zqctl: no credential could be read from standard input\n"}});
  EXPECT_NE(access("/tmp/zq_btl_2", F_OK), 0);
  Expect({{"true", "--timeout 2 ping", "", 3, "zqctl: no service: the channel could not be opened\n"},
          {"rm -f /tmp/zq_btl_1 && mkfifo /tmp/zq_btl_1 && chown 4242 /tmp/zq_btl_1", "--timeout 2 ping", "", 3,
           "zqctl: /tmp/zq_btl_1 belongs to uid 4242, who is neither root, nor the user at the machine, nor you: it is "
           "not used\n"}});
  StartService();
  kill(service->pid(), SIGSTOP);  // its channel stays open but nobody reads
  Expect({{"true", "--timeout 2 ping", "", 4, "zqctl: timeout: the service did not answer within 2 s\n"}});
  kill(service->pid(), SIGCONT);
}

}  // namespace
