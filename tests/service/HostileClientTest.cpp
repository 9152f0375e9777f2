// Attacks a local user could try on the service through its FIFOs, each
// tried against the real service.
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/service/ServiceClients.h"
#include "tests/support/FileContents.h"

namespace {

constexpr uint32_t kRefusedMount = 64;    // the mounter's usage status
constexpr uint32_t kRefusedExplorer = 3;  // unsupported
constexpr uid_t kOtherUser = 4242;

using HostileClientTest = ServiceClientTest;

TEST_F(HostileClientTest, ShellMetacharactersInEveryFieldRunNothing) {
  StartWithClients();
  const char* const devices[] = {"disk2s1;touch /tmp/pwned", "$(touch /tmp/pwned)", "`touch /tmp/pwned`",
                                 "../../tmp/pwned", "disk2s1 /tmp/pwned", ".hidden"};
  for (const char* device : devices) {
    SCOPED_TRACE(device);
    EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_CHECK, device)), kResultIsNotBitlocker);
    EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, device)), kRefusedMount);
    EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_EXPLORER, device)), kRefusedExplorer);
  }
  for (const char* mountPoint : {"/mnt;touch /tmp/pwned", "$(touch /tmp/pwned)", "/mnt /tmp/x", "/mnt|sh", "a\\"})
    EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk2s1", mountPoint)), kRefusedMount) << mountPoint;
  EXPECT_TRUE(bundle->Calls().empty()) << "nothing was run for a refused command";
  // A credential may hold anything: it reaches the library whole, the
  // mounter and the explorer on standard input, and never the log.
  const std::string credential = "'; touch /tmp/pwned; echo s3cret '$(id)`id`\"";
  EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk2s1", "/mnt/My\\ Disk", "raw", credential)), 0u);
  EXPECT_EQ(bundle->Calls(), (std::vector<StubCall>{{"is_bitlocker_drive", {""}},
                                                    {"diskutil", {"unmount", "disk2s1"}},
                                                    {"zq-mounter", {"", "/mnt/My Disk", "raw"}}}));
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/zq-mounter.input"), credential + "\n");
  EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_EXPLORER, "disk2s1", credential)), 0u);
  sleep(1);  // the explorer starts in the background
  EXPECT_EQ(bundle->CallsOf("open_bitlocker_device").at(0).arguments.at(1), credential);
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/Zq Norvane Explorer.input"), credential + "\n");

  EXPECT_NE(access("/tmp/pwned", F_OK), 0);
  EXPECT_EQ(ReadFile("/tmp/zqlog.log").find("s3cret"), std::string::npos);
  EXPECT_EQ(RunShell("test $(grep -c refused /tmp/zqlog.log) = " + std::to_string(3 * std::size(devices) + 5)), 0)
      << "one log line per refusal";
}

// Each case is made by a shell line in the test's private volumes folders;
// a refused mount point reaches neither the library, nor diskutil, nor the
// mounter, and nothing is made for it.
TEST_F(HostileClientTest, MountPointsThatCouldRaiseRightsAreRefusedBeforeAnythingIsTouched) {
  StartWithClients();
  const struct {
    const char* setUp;
    const char* word;
    const char* mounterSees;  // nullptr: refused
  } cases[] = {
      {"true", "/usr/local/sbin", nullptr},
      {"true", "/etc/zq-x", nullptr},
      {"ln -s /usr/local/sbin /media/link", "/media/link", nullptr},
      {"mkdir -p /media/real/in && ln -s /media/real /media/hop", "/media/hop/in", nullptr},
      {"mkdir /media/full && touch /media/full/file", "/media/full", nullptr},
      {"mkdir /media/d", "/media/d/../up", nullptr},
      {"true", "media/relative", nullptr},
      {"mkdir /media/theirs && chown 4242 /media/theirs", "/media/theirs", nullptr},
      {"true", "/media/new", "/media/new"},
      {"true", "/media/Ünïcode\\ Disk", "/media/Ünïcode Disk"},
      {"mkdir /mnt/x", "/mnt/x", "/mnt/x"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.word);
    ASSERT_EQ(RunShell(c.setUp), 0);
    bundle->ClearCalls();
    EXPECT_EQ(Ask(DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk2s1", c.word, "raw")), c.mounterSees ? 0 : kRefusedMount);
    if (c.mounterSees) EXPECT_EQ(bundle->CallsOf("zq-mounter").at(0).arguments.at(1), c.mounterSees);
    else EXPECT_TRUE(bundle->Calls().empty());
  }
  for (const char* never : {"/etc/zq-x", "/media/up", "/media/relative", "media/relative"})
    EXPECT_NE(access(never, F_OK), 0) << never;
}

// Whether, within five seconds, every channel path holds a FIFO of `owner`
// that only it may use.
bool ChannelsBelongTo(uid_t owner) {
  return RunShell("for i in $(seq 50); do [ \"$(stat -c '%F %u %a' /tmp/zq_btl_[1-4] | sort -u)\" = 'fifo " +
                  std::to_string(owner) + " 600' ] && exit 0; sleep 0.1; done; exit 1") == 0;
}

// Whether `uid` may neither read nor write any channel FIFO.
bool OpensNoChannel(uid_t uid) {
  return RunShell("setpriv --reuid " + std::to_string(uid) + " --regid " + std::to_string(uid) +
                  " --clear-groups sh -c 'for f in /tmp/zq_btl_[1-4]; do [ -p $f ] && [ ! -r $f ] && [ ! -w $f ] "
                  "|| exit 1; done'") == 0;
}

// Another user's plants at the channel paths are replaced.  The channels
// are the user's at the machine while there is one, root's otherwise, and
// nobody else opens them.
TEST_F(HostileClientTest, ChannelsAreTheUsersAtTheMachineAloneAndPlantsAreReplaced) {
  ASSERT_EQ(RunShell("setpriv --reuid 4242 --regid 4242 --clear-groups sh -c 'touch /tmp/zq_btl_1 && "
                     "mkfifo /tmp/zq_btl_2 && mkdir /tmp/zq_btl_3 && mkfifo /tmp/zq_btl_3/x && "
                     "ln -s /tmp/elsewhere /tmp/zq_btl_4'"),
            0);
  service->Start();
  EXPECT_TRUE(ChannelsBelongTo(0)) << "nobody is at the machine: the channels are root's";
  mainUI = std::make_unique<RawClient>(kMainUIChannel);
  EXPECT_TRUE(Ping(*mainUI));
  mainUI.reset();
  EXPECT_TRUE(OpensNoChannel(kOtherUser));
  const std::string log = ReadFile("/tmp/zqlog.log");
  for (const char* planted : {"/tmp/zq_btl_1 held a file of uid 4242", "/tmp/zq_btl_2 held a FIFO of uid 4242",
                              "/tmp/zq_btl_3 held a folder of uid 4242", "/tmp/zq_btl_4 held a symbolic link of uid 4242"})
    EXPECT_NE(log.find(planted), std::string::npos) << planted;
  {
    ConsoleUserIs console(kOtherUser);
    EXPECT_TRUE(ChannelsBelongTo(kOtherUser));
    const auto served = [] { RawClient mainUI(kMainUIChannel); return Ping(mainUI) ? 0 : 1; };
    EXPECT_EQ(RunAsUser(kOtherUser, served), 0) << "the user at the machine is not served";
    EXPECT_TRUE(OpensNoChannel(kOtherUser + 1));
  }
  EXPECT_TRUE(ChannelsBelongTo(0)) << "nobody at the machine any more: the channels go back to root";
}

// Each plant leaves /tmp/victim, which must stay empty, while the log is
// made anew as root's own file.
TEST_F(HostileClientTest, ALogSomeoneElsePlantedIsReplacedAndNothingIsWrittenThroughIt) {
  for (const char* plant : {"ln -s /tmp/victim /tmp/zqlog.log", "ln /tmp/victim /tmp/zqlog.log",
                            "chown 4242 /tmp/victim && mv /tmp/victim /tmp/zqlog.log && touch /tmp/victim",
                            "mkfifo /tmp/zqlog.log"}) {
    SCOPED_TRACE(plant);
    ASSERT_EQ(RunShell(std::string("rm -f /tmp/zqlog.log /tmp/victim && touch /tmp/victim && ") + plant), 0);
    service = std::make_unique<ServiceProcess>(bundle->bundlePath());
    StartWithClients();
    EXPECT_EQ(ReadFile("/tmp/victim"), "");
    EXPECT_EQ(RunShell("[ \"$(stat -c '%F %u %h' /tmp/zqlog.log)\" = 'regular file 0 1' ]"), 0) << "not root's";
    EXPECT_NE(ReadFile("/tmp/zqlog.log").find("serverEvent - eCOMMAND_CHECK_CONNECTION"), std::string::npos);
  }
}

// A client that floods its channel delays only itself; one that vanishes
// in the middle of an answer, FIFOs and all, is served again on its return.
TEST_F(HostileClientTest, FloodingOrVanishingClientsDoNotStopTheService) {
  StartWithClients();
  for (uint32_t i = 0; i < 500; ++i) explorer->Send(200 + i, MakeRecord(eCOMMAND_CHECK_CONNECTION));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Ping(*mainUI)) << "MainUI is still answered";

  bundle->Answer("zq-mounter.delay", "2");
  ASSERT_TRUE(mainUI->Send(100, DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk2s1")));
  sleep(1);
  mainUI.reset();
  ASSERT_EQ(RunShell("rm -f /tmp/zq_btl_1 /tmp/zq_btl_2"), 0);
  sleep(3);
  EXPECT_TRUE(service->Running());
  mainUI = std::make_unique<RawClient>(kMainUIChannel);
  EXPECT_TRUE(Ping(*mainUI, 10));
}

}  // namespace
