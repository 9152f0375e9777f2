// Attacks a local user could try on how the service starts: a program on
// the user's own disk made to start as root at boot, and a process named
// like the service that keeps it from starting.
#include <grp.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/service/ServiceClients.h"
#include "tests/support/FileContents.h"

namespace {

constexpr uid_t kUser = 4242;
const std::string kUnit = "/etc/systemd/system/zq-norvane.service";
const std::string kDaemon = "/Library/LaunchDaemons/com.zq.BitlockerServices.plist";
const std::string kAgent = "/Library/LaunchAgents/com.zq.Norvane.plist";

using HostileStartupTest = ServiceClientTest;

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// A new folder of root's, open to all to read, on the machine's own disk:
// `prefix` and six characters, so that test processes never share one.
std::string NewSystemFolder(const std::string& prefix) {
  std::string path = prefix + "XXXXXX";
  if (mkdtemp(path.data()) == nullptr || chmod(path.c_str(), 0755) != 0) ADD_FAILURE() << "no folder " << path;
  return path;
}

// Waits up to five seconds for the service to hand its channels to `owner`.
bool ChannelsHandedTo(uid_t owner) {
  for (int i = 0; i < 50; ++i) {
    struct stat info;
    if (stat(kMainUIChannel.toService, &info) == 0 && info.st_uid == owner) return true;
    usleep(100 * 1000);
  }
  return false;
}

// Turns start at boot on for `bundlePath`, or off, as the user at the
// machine; whether the service then answered.
bool AskForStartupAsUser(const std::string& bundlePath, bool enable) {
  return RunAsUser(kUser, [&] {
           RawClient client(kMainUIChannel);
           CCommandDataWrapper<char> startup = MakeRecord(eCOMMAND_SET_STARTUP);
           startup.startup.enable = enable ? 1 : 0;
           bundlePath.copy(startup.startup.bundlePath, sizeof startup.startup.bundlePath - 1);
           const bool sent = client.Send(90, startup);
           return sent && Result(client, MakeRecord(eCOMMAND_CHECK_CONNECTION), 5) == kResultServiceThere ? 0 : 1;
         }) == 0;
}

// A shell line that makes a bundle of root's with a service program, by
// modes a disk without modes of its own (FAT) can take too.
std::string MakeBundleLine(const std::string& bundle) {
  return "umask 022 && mkdir -p '" + bundle + "/Contents/MacOS' && cp /bin/true '" + bundle +
         "/Contents/MacOS/Zq-NorvaneServices'";
}

// Asks for start at boot of `bundle` after `disk` ran, and says whether the
// boot-time items were written; the login item always is.  Everything is
// undone behind it.
bool BootItemsWrittenFor(const std::string& disk, const std::string& bundle, const std::string& undo) {
  EXPECT_EQ(RunShell(disk), 0);
  EXPECT_TRUE(AskForStartupAsUser(bundle, true));
  const bool unit = Exists(kUnit), daemon = Exists(kDaemon);
  EXPECT_EQ(unit, daemon) << "the systemd unit and the launch daemon go together";
  EXPECT_TRUE(Exists(kAgent)) << "the login item is written for any bundle";
  EXPECT_TRUE(AskForStartupAsUser(bundle, false));
  EXPECT_FALSE(Exists(kUnit) || Exists(kDaemon) || Exists(kAgent));
  RunShell(undo);
  return unit;
}

class ConsoleUserStartup : public HostileStartupTest {
 protected:
  void SetUp() override {
    HostileStartupTest::SetUp();
    if (IsSkipped()) return;
    console = std::make_unique<ConsoleUserIs>(kUser);
    service->Start();
    ASSERT_TRUE(ChannelsHandedTo(kUser));
  }
  // The channels stay the user's once the service is gone: they go, so
  // that the next test's clients meet the FIFOs its service makes.
  void TearDown() override {
    console.reset();
    RunShell("rm -f /tmp/zq_btl_[1-4]");
  }

  std::unique_ptr<ConsoleUserIs> console;
};

// The user at the machine mounts a disk of theirs, on which everything is
// root's and root alone may write, and asks for start at boot of a bundle
// there; nothing on such a disk is written for boot, wherever it is
// mounted and however it leads there.  A bundle in an ordinary folder of
// root's still gets its boot-time items.
TEST_F(ConsoleUserStartup, BootItemsAreWrittenOnlyForAProgramOnTheMachinesOwnDisks) {
  const std::string opt = NewSystemFolder("/opt/zq-boot-test-");
  const std::string installed = opt + "/Zq Norvane.app";
  const struct {
    std::string disk;
    std::string bundle;
    bool bootItems;
  } cases[] = {
      {"mkdir -p -m 755 '" + opt + "' && " + MakeBundleLine(installed), installed, true},
      // As a desktop mounts a user's disk.
      {"mkdir /media/usb && mount -t tmpfs -o nosuid,nodev,mode=755 usb /media/usb && " +
           MakeBundleLine("/media/usb/Zq Norvane.app"),
       "/media/usb/Zq Norvane.app", false},
      // No flags, but where users' disks go.
      {"mkdir /mnt/disk && mount -t tmpfs -o mode=755 disk /mnt/disk && " + MakeBundleLine("/mnt/disk/Z.app"),
       "/mnt/disk/Z.app", false},
      {"mkdir -p /run/media/u/d && mount -t tmpfs -o mode=755 d /run/media/u/d && " +
           MakeBundleLine("/run/media/u/d/Z.app"),
       "/run/media/u/d/Z.app", false},
      // Elsewhere, with one flag of a mount made for a user.
      {"mkdir -p -m 755 '" + opt + "' && mount -t tmpfs -o noexec,mode=755 d '" + opt + "' && " +
           MakeBundleLine(installed),
       installed, false},
      {"mkdir -p -m 755 '" + opt + "' && mount -t tmpfs -o nosuid,mode=755 d '" + opt + "' && " +
           MakeBundleLine(installed),
       installed, false},
      // A link on the user's disk to an installed bundle: the user can
      // change where it leads once the items are written.
      {"mkdir -p -m 755 '" + opt + "' && " + MakeBundleLine(installed) +
           " && mkdir /media/usb && mount -t tmpfs -o nosuid,nodev,mode=755 usb /media/usb && ln -s '" + installed +
           "' /media/usb/Z.app",
       "/media/usb/Z.app", false},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.disk);
    EXPECT_EQ(BootItemsWrittenFor(test.disk, test.bundle,
                                  "umount -q /media/usb /mnt/disk /run/media/u/d '" + opt + "'; rm -rf /media/usb "
                                  "/mnt/disk /run/media/u '" + opt + "'"),
              test.bootItems);
  }
  const std::string log = ReadFile("/tmp/zqlog.log");
  EXPECT_NE(log.find("no boot-time item: the service program or a folder above it lies on a disk a user"),
            std::string::npos)
      << log;
}

// A FUSE server shows whatever owner it likes and may change what it
// shows at any time, even when mounted without nosuid where the system's
// own programs lie.
TEST_F(ConsoleUserStartup, NoBootItemsForAProgramOnFuse) {
  if (!Exists("/dev/fuse") || RunShell("command -v fusefat >/dev/null") != 0)
    GTEST_SKIP() << "needs /dev/fuse and fusefat";
  const std::string disk = "/tmp/fuse-disk.img", folder = NewSystemFolder("/srv/zq-fuse-test-");
  const std::string mount = "truncate -s 8M " + disk + " && mkfs.vfat " + disk + " >/dev/null && fusefat -o " +
                            "rw+,suid,dev " + disk + " '" + folder + "' && " + MakeBundleLine(folder + "/Z.app") +
                            " && [ \"$(stat -c %u '" + folder + "/Z.app')\" = 0 ]";
  EXPECT_FALSE(
      BootItemsWrittenFor(mount, folder + "/Z.app", "umount '" + folder + "'; rmdir '" + folder + "'; rm " + disk));
}

// Starts `program` (a link to sleep, so its short name is the link's) as
// `owner`, and waits until the kernel shows it under that name.
pid_t StartNamesake(const std::string& program, uid_t owner) {
  const pid_t child = fork();
  if (child == 0) {
    if (setgroups(0, nullptr) != 0 || setgid(owner) != 0 || setuid(owner) != 0) _exit(126);
    execl(program.c_str(), program.c_str(), "30", static_cast<char*>(nullptr));
    _exit(127);
  }
  const std::string comm = "/proc/" + std::to_string(child) + "/comm";
  for (int i = 0; i < 50 && ReadFile(comm) != "zq\n"; ++i) usleep(100 * 1000);
  return child;
}

bool Alive(pid_t pid) { return waitpid(pid, nullptr, WNOHANG) == 0; }

// Any user can run a process whose short name begins like the service's.
// Only root's counts as a running copy: a plain start beside another
// user's namesake serves, and a start that takes over leaves it alone.
TEST_F(HostileStartupTest, OnlyRootsNamesakesCountAsARunningCopy) {
  ASSERT_EQ(RunShell("ln -sf /bin/sleep /tmp/zq"), 0);
  for (const uid_t owner : {kUser, uid_t{0}}) {
    SCOPED_TRACE("the namesake is uid " + std::to_string(owner) + "'s");
    const pid_t namesake = StartNamesake("/tmp/zq", owner);
    service = std::make_unique<ServiceProcess>(bundle->bundlePath());
    if (owner == 0) {
      service->Start();
      EXPECT_EQ(service->WaitForExit(10), std::optional<int>(0)) << "started beside a running copy";
    } else {
      StartWithClients();
      ServiceProcess newer(bundle->bundlePath());
      newer.Start({"--take-over"});
      EXPECT_EQ(service->WaitForExit(10), std::optional<int>(-1)) << "the older copy is taken over";
      EXPECT_TRUE(newer.Running());
      EXPECT_TRUE(Ping(*mainUI));
    }
    EXPECT_TRUE(Alive(namesake));
    kill(namesake, SIGKILL);
    waitpid(namesake, nullptr, 0);
  }
}

}  // namespace
