// Attacks a local user could try on the service through its FIFOs, each
// tried against the real service.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <memory>

#include "FileContents.h"
#include "ServiceTestEnvironment.h"
#include "StubBundle.h"

namespace {

constexpr char kPwned[] = "/tmp/pwned";
constexpr uint32_t kRefusedMount = 64;     // the mounter's usage status
constexpr uint32_t kRefusedExplorer = 3;   // unsupported

uint32_t ResultOf(const Block& block) {
  uint32_t value;
  std::memcpy(&value, block.data() + 16, sizeof value);
  return value;
}

class HostileClientTest : public ServiceTestBase {
 protected:
  void SetUp() override {
    ServiceTestBase::SetUp();
    if (IsSkipped()) return;
    bundle->Answer("diskutil-unmount.stdout", "successful\n");
    bundle->Answer("is_bitlocker", "");
  }
  void StartWithClient() {
    client = std::make_unique<RawClient>(kMainUIChannel);
    service->Start();
    ASSERT_TRUE(Ping(*client));
    bundle->ClearCalls();
  }

  bool Ping(RawClient& with, int seconds = 5) {
    return with.Send(7, MakeRecord(eCOMMAND_CHECK_CONNECTION)) && with.Receive(seconds).has_value();
  }

  std::optional<uint32_t> Ask(const CCommandDataWrapper<char>& record) {
    if (!client->Send(33, record)) return std::nullopt;
    const std::optional<Block> answer = client->Receive(10);
    if (!answer) return std::nullopt;
    return ResultOf(*answer);
  }

  std::unique_ptr<RawClient> client;
};

TEST_F(HostileClientTest, ShellMetacharactersInEveryFieldRunNothing) {
  StartWithClient();
  const char* const devices[] = {"disk2s1;touch /tmp/pwned", "$(touch /tmp/pwned)", "`touch /tmp/pwned`",
                                 "../../tmp/pwned", "disk2s1 /tmp/pwned", ".hidden"};
  for (const char* device : devices) {
    CCommandDataWrapper<char> check = MakeRecord(eCOMMAND_BITLOCKER_CHECK);
    std::strcpy(check.check.deviceName, device);
    EXPECT_EQ(Ask(check), std::optional<uint32_t>(50)) << device;
    CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
    std::strcpy(mount.mount.deviceName, device);
    EXPECT_EQ(Ask(mount), std::optional<uint32_t>(kRefusedMount)) << device;
    CCommandDataWrapper<char> open = MakeRecord(eCOMMAND_BITLOCKER_EXPLORER);
    std::strcpy(open.explorer.deviceName, device);
    EXPECT_EQ(Ask(open), std::optional<uint32_t>(kRefusedExplorer)) << device;
  }
  for (const char* mountPoint : {"/mnt;touch /tmp/pwned", "$(touch /tmp/pwned)", "/mnt /tmp/x", "/mnt|sh", "a\\"}) {
    CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
    std::strcpy(mount.mount.deviceName, "disk2s1");
    std::strcpy(mount.mount.mountArg2, mountPoint);
    EXPECT_EQ(Ask(mount), std::optional<uint32_t>(kRefusedMount)) << mountPoint;
  }
  EXPECT_TRUE(bundle->Calls().empty()) << "nothing was run for a refused command";
  EXPECT_NE(access(kPwned, F_OK), 0);
  const std::string log = ReadFile("/tmp/zqlog.log");
  size_t refusals = 0;
  for (size_t at = log.find("refused"); at != std::string::npos; at = log.find("refused", at + 1)) ++refusals;
  EXPECT_EQ(refusals, 3 * std::size(devices) + 5) << "one log line per refusal";
}

// Each case is made by a shell line in the test's private volumes folders;
// a refused mount point reaches neither the library, nor diskutil, nor the
// mounter, and nothing is made for it.
TEST_F(HostileClientTest, MountPointsThatCouldRaiseRightsAreRefusedBeforeAnythingIsTouched) {
  StartWithClient();
  struct Case {
    const char* setUp;
    const char* word;
    const char* mounterSees;  // nullptr: refused
  };
  const Case cases[] = {
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
  for (const Case& param : cases) {
    SCOPED_TRACE(param.word);
    ASSERT_EQ(RunShell(param.setUp), 0);
    bundle->ClearCalls();
    CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
    std::strcpy(mount.mount.deviceName, "disk2s1");
    std::strcpy(mount.mount.mountArg2, param.word);
    std::strcpy(mount.mount.mountArg3, "raw");
    if (param.mounterSees == nullptr) {
      EXPECT_EQ(Ask(mount), std::optional<uint32_t>(kRefusedMount));
      EXPECT_TRUE(bundle->Calls().empty());
    } else {
      EXPECT_EQ(Ask(mount), std::optional<uint32_t>(0));
      EXPECT_EQ(bundle->CallsOf("zq-mounter").at(0).arguments.at(1), param.mounterSees);
    }
  }
  for (const char* never : {"/etc/zq-x", "/media/up", "/media/relative", "media/relative"})
    EXPECT_NE(access(never, F_OK), 0) << never;
  EXPECT_NE(ReadFile("/tmp/zqlog.log").find("refused eCOMMAND_BITLOCKER_MOUNT: the mount point /media/full is not empty"),
            std::string::npos);
}

TEST_F(HostileClientTest, CredentialsMayHoldAnythingAndNeverReachTheLog) {
  StartWithClient();
  const std::string credential = "'; touch /tmp/pwned; echo '$(id)`id`\"";
  CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
  std::strcpy(mount.mount.deviceName, "disk2s1");
  std::strcpy(mount.mount.mountArg2, "/mnt/My\\ Disk");
  std::strcpy(mount.mount.mountArg3, "raw");
  std::strcpy(mount.mount.mountArg4, credential.c_str());
  EXPECT_EQ(Ask(mount), std::optional<uint32_t>(0));
  EXPECT_EQ(bundle->CallsOf("zq-mounter").at(0).arguments, (std::vector<std::string>{"", "/mnt/My Disk", "raw"}));
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/zq-mounter.input"), credential + "\n");
  CCommandDataWrapper<char> open = MakeRecord(eCOMMAND_BITLOCKER_EXPLORER);
  std::strcpy(open.explorer.deviceName, "disk2s1");
  std::strcpy(open.explorer.explorerArg2, credential.c_str());
  EXPECT_EQ(Ask(open), std::optional<uint32_t>(0));
  sleep(1);
  EXPECT_NE(access(kPwned, F_OK), 0);
  EXPECT_EQ(ReadFile("/tmp/zqlog.log").find("touch"), std::string::npos);
}

constexpr uid_t kOtherUser = 4242;
const char* const kChannelPaths[] = {"/tmp/zq_btl_1", "/tmp/zq_btl_2", "/tmp/zq_btl_3", "/tmp/zq_btl_4"};

// Whether every channel path holds a FIFO of `owner` that only it may use.
bool ChannelsBelongTo(uid_t owner) {
  for (const char* path : kChannelPaths) {
    struct stat info;
    if (lstat(path, &info) != 0 || !S_ISFIFO(info.st_mode) || info.st_uid != owner || (info.st_mode & 07777) != 0600)
      return false;
  }
  return true;
}

// 0 when `uid` can open no channel FIFO, for reading or for writing.
int OpensNoChannel() {
  for (const char* path : kChannelPaths)
    for (int flags : {O_RDONLY | O_NONBLOCK, O_WRONLY | O_NONBLOCK})
      if (open(path, flags) != -1 || errno != EACCES) return 1;
  return 0;
}

TEST_F(HostileClientTest, AnotherUsersPlantsAtTheChannelsAreReplacedAndTheyOpenNone) {
  ASSERT_EQ(RunAsUser(kOtherUser,
                      [] {
                        const bool planted = mkfifo("/tmp/zq_btl_2", 0666) == 0 &&
                                             close(open("/tmp/zq_btl_1", O_CREAT | O_WRONLY, 0666)) == 0 &&
                                             symlink("/tmp/elsewhere", "/tmp/zq_btl_4") == 0 &&
                                             mkdir("/tmp/zq_btl_3", 0777) == 0 && mkfifo("/tmp/zq_btl_3/x", 0666) == 0;
                        return planted ? 0 : 1;
                      }),
            0);
  service->Start();
  for (int i = 0; i < 50 && !ChannelsBelongTo(0); ++i) usleep(100 * 1000);
  EXPECT_TRUE(ChannelsBelongTo(0)) << "nobody is at the machine: the channels are root's";
  client = std::make_unique<RawClient>(kMainUIChannel);
  EXPECT_TRUE(Ping(*client));
  EXPECT_EQ(RunAsUser(kOtherUser, OpensNoChannel), 0);
  const std::string log = ReadFile("/tmp/zqlog.log");
  for (const char* planted : {"/tmp/zq_btl_1 held a file of uid 4242", "/tmp/zq_btl_2 held a FIFO of uid 4242",
                              "/tmp/zq_btl_3 held a folder of uid 4242", "/tmp/zq_btl_4 held a symbolic link of uid 4242"})
    EXPECT_NE(log.find(planted), std::string::npos) << planted;
}

TEST_F(HostileClientTest, TheUserAtTheMachineIsServedAndNoOtherUser) {
  {
    ConsoleUserIs console(kOtherUser);
    service->Start();
    for (int i = 0; i < 50 && !ChannelsBelongTo(kOtherUser); ++i) usleep(100 * 1000);
    EXPECT_TRUE(ChannelsBelongTo(kOtherUser));
    EXPECT_EQ(RunAsUser(kOtherUser,
                        [] {
                          RawClient mainUI(kMainUIChannel);
                          return mainUI.Send(7, MakeRecord(eCOMMAND_CHECK_CONNECTION)) && mainUI.Receive(5) ? 0 : 1;
                        }),
              0)
        << "the user at the machine is not served";
    EXPECT_EQ(RunAsUser(kOtherUser + 1, OpensNoChannel), 0);
  }
  // Nobody at the machine any more: the channels go back to root.
  for (int i = 0; i < 50 && !ChannelsBelongTo(0); ++i) usleep(100 * 1000);
  EXPECT_TRUE(ChannelsBelongTo(0));
  EXPECT_EQ(RunAsUser(kOtherUser, OpensNoChannel), 0);
}

// Each plant leaves /tmp/victim, which must stay empty, while the log is
// made anew as root's own file.
TEST_F(HostileClientTest, ALogSomeoneElsePlantedIsReplacedAndNothingIsWrittenThroughIt) {
  const char* const plants[] = {"ln -s /tmp/victim /tmp/zqlog.log", "ln /tmp/victim /tmp/zqlog.log",
                                "chown 4242 /tmp/victim && mv /tmp/victim /tmp/zqlog.log && touch /tmp/victim",
                                "mkfifo /tmp/zqlog.log"};
  for (const char* plant : plants) {
    SCOPED_TRACE(plant);
    ASSERT_EQ(RunShell(std::string("rm -f /tmp/zqlog.log /tmp/victim && touch /tmp/victim && ") + plant), 0);
    service = std::make_unique<ServiceProcess>(bundle->bundlePath());
    StartWithClient();
    EXPECT_EQ(ReadFile("/tmp/victim"), "");
    struct stat log;
    ASSERT_EQ(lstat("/tmp/zqlog.log", &log), 0);
    EXPECT_TRUE(S_ISREG(log.st_mode) && log.st_uid == 0 && log.st_nlink == 1);
    EXPECT_NE(ReadFile("/tmp/zqlog.log").find("serverEvent - eCOMMAND_CHECK_CONNECTION"), std::string::npos);
  }
}

TEST_F(HostileClientTest, ForeignWritableBundleGetsTheLoginItemButNoBootTimeItem) {
  StartWithClient();
  RunShell("chmod 777 '" + bundle->bundlePath() + "'");
  CCommandDataWrapper<char> startup = MakeRecord(eCOMMAND_SET_STARTUP);
  startup.startup.enable = 1;
  std::strcpy(startup.startup.bundlePath, bundle->bundlePath().c_str());
  ASSERT_TRUE(client->Send(90, startup));
  EXPECT_TRUE(Ping(*client));  // the startup command was handled before the ping
  EXPECT_NE(access("/Library/LaunchDaemons/com.zq.BitlockerServices.plist", F_OK), 0);
  EXPECT_EQ(access("/Library/LaunchAgents/com.zq.Norvane.plist", F_OK), 0);
  EXPECT_NE(ReadFile("/tmp/zqlog.log").find("eCOMMAND_SET_STARTUP: no boot-time item"), std::string::npos);
}

TEST_F(HostileClientTest, ClientThatVanishesAndReturnsIsServedAgain) {
  StartWithClient();
  bundle->Answer("zq-mounter.delay", "2");
  CCommandDataWrapper<char> mount = MakeRecord(eCOMMAND_BITLOCKER_MOUNT);
  std::strcpy(mount.mount.deviceName, "disk2s1");
  ASSERT_TRUE(client->Send(100, mount));
  sleep(1);
  // Gone in the middle of the answer: FIFOs closed and removed.
  client.reset();
  ASSERT_EQ(RunShell("rm -f /tmp/zq_btl_1 /tmp/zq_btl_2"), 0);
  sleep(3);
  EXPECT_TRUE(service->Running());
  // Back, with its FIFOs made anew.
  client = std::make_unique<RawClient>(kMainUIChannel);
  EXPECT_TRUE(Ping(*client, 10));
}

TEST_F(HostileClientTest, AFloodingClientDelaysOnlyItself) {
  StartWithClient();
  RawClient flooder(kFileExplorerChannel);
  ASSERT_TRUE(flooder.Send(1, MakeRecord(eCOMMAND_CHECK_CONNECTION)));
  for (int i = 0; i < 500; ++i) flooder.Send(static_cast<uint32_t>(200 + i), MakeRecord(eCOMMAND_CHECK_CONNECTION));
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(Ping(*client)) << "MainUI is still answered";
}

}  // namespace
