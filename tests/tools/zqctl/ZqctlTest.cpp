// zqctl against the service on a stub bundle: what it sends, what it says
// and with which status it ends.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cmath>
#include <ctime>
#include <fstream>
#include <tuple>

#include "service/ClientInputChecks.h"
#include "system/ActivityLog.h"
#include "system/CDevLogs.h"
#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ServiceTestEnvironment.h"
#include "tests/support/TempDir.h"
#include "tools/zqctl/ZqctlInput.h"
#include "util/ShellQuoting.h"

namespace {

// zqctl's status and what it printed on both outputs.
using Said = std::pair<int, std::string>;

// `setUp` runs in the stub bundle's answer folder first; `activity` is the
// line the stand-in mounter writes to the activity log before it answers.
struct Case {
  std::string arguments;
  std::string input;
  Said said;
  std::string setUp = "true";
  std::string activity = "";
};

// What the mounter writes for /dev/loop0 at `mountPoint`.
std::string MounterLine(const std::string& mountPoint, int status, const std::string& result,
                        const std::string& report) {
  const std::string message = ActivityMessage({"zq-mounter", "/dev/loop0", mountPoint, status, result, report, ""});
  std::string line;
  CDevLogs::FormatLine(message.data(), message.size(), &line);
  return line.substr(0, line.size() - 2);
}

const std::string kUsageLine =
    "usage: zqctl [--as MainUI|FileExplorer] [--timeout SECONDS] [--json] SUBCOMMAND [ARGS] (see zqctl --help)\n";

// zqctl finds a mount's line by its fields, so no value may forge another
// field or line, and a log replaced since the request is read from the start.
TEST(ActivityLogTest, EveryValueReadsBackAsWritten) {
  const TempDir folder;
  const std::string log = folder("activity.log");
  std::vector<Activity> written;
  for (const std::string& value : {std::string("/media/My Disk"), std::string("a\" status=0 report=\"x"),
                                   std::string("line\r\n[Zq Norvane]2024-01-01 00:00:00    zq-mounter: status=0"),
                                   std::string("back\\slash\\"), std::string("\x01\x7f Ünï: =")})
    written.push_back({"zq-mounter", value, value, 64, value, value, ""});
  for (const Activity& activity : written) {
    const std::string message = ActivityMessage(activity);
    std::string line;
    CDevLogs::FormatLine(message.data(), message.size(), &line);
    std::ofstream(log, std::ios::app | std::ios::binary) << line;
  }
  const std::vector<Activity> read = ReadActivities(log);
  ASSERT_EQ(read.size(), written.size());
  for (size_t i = 0; i < read.size(); ++i)
    EXPECT_EQ(std::tie(read[i].device, read[i].mountPoint, read[i].status, read[i].result, read[i].report),
              std::tie(written[i].device, written[i].mountPoint, written[i].status, written[i].result, written[i].report));
  EXPECT_EQ(ReadActivities(log, ActivityLogEnd(log)).size(), 0u);
  EXPECT_EQ(ReadActivities(log, ActivityLogEnd(log) + 1).size(), written.size());
}

// Whatever the user types, the service must take the word zqctl makes as
// one word that stands for the path, and normalising must not move it.
TEST(ZqctlInputTest, MountPointsBecomeTheWordTheServiceTakes) {
  for (const std::string path : {"/media/My Disk", "/media/Ünïcode Disk", "/media/a'b\"c$d`e", "/media/\\ \\",
                                 "/media/tab\there;*?[x]&|<>(){}!#~"}) {
    const std::string word = ShellWordOf(path);
    EXPECT_TRUE(IsSingleShellWord(word)) << word;
    EXPECT_EQ(ShellWordText(word), path);
    EXPECT_EQ(AbsolutePath(path + "/./"), path);
  }
  ASSERT_EQ(chdir("/media"), 0);
  EXPECT_EQ(AbsolutePath("./My Disk//"), "/media/My Disk");
  std::string error;
  EXPECT_TRUE(CheckMountOptions("raw,ro,uid=0,gid=1000,umask=027,", &error)) << error;
  for (const char* options : {"rw", "umask=0778", "uid=-1", "gid=", "raw,uid=x"})
    EXPECT_FALSE(CheckMountOptions(options, &error)) << options;
}

// The mounter and the explorer read a startup key file from another
// folder, so a relative one must reach them whole; nothing else changes.
TEST(ZqctlInputTest, ARelativeStartupKeyBecomesAbsolute) {
  const TempDir folder;
  ASSERT_EQ(RunShell("mkdir " + folder("keys") + " && touch " + folder("keys/k.BEK")), 0);
  ASSERT_EQ(chdir(folder.path().c_str()), 0);
  for (const std::string& typed : {std::string("keys/k.BEK"), std::string("./keys/k.BEK"), folder("keys/k.BEK")})
    EXPECT_EQ(CredentialForService(typed), folder("keys/k.BEK")) << typed;
  for (const std::string typed : {"keys", "my password", ""}) EXPECT_EQ(CredentialForService(typed), typed);
  ASSERT_EQ(chdir("/"), 0);
}

// What bash completion offers for the words before the cursor.
std::string Completions(const std::string& program, const std::string& words) {
  const ProgramRun run = RunProgram(
      "/bin/bash", {"-c", "source \"$0\"; COMP_WORDS=($1); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); "
                          "f=$(complete -p \"${0##*/}\"); f=${f#*-F }; ${f%% *}; "
                          "printf '%s\\n' \"${COMPREPLY[@]}\" | sort",
                    std::string(ZQ_COMPLETION_DIR) + "/" + program, words});
  return run.output;
}

// Devices are offered for DEVICE, but a loop device with nothing attached
// is no device to offer.
TEST(CompletionTest, OffersAttachedLoopDevicesOnly) {
  const std::string unavailable = LoopDevicesUnavailable();
  if (!unavailable.empty()) GTEST_SKIP() << unavailable;
  const TempDir folder;
  ASSERT_EQ(RunShell("truncate -s 1M " + folder("image")), 0);
  LoopDevice attached(folder("image"));
  ASSERT_TRUE(attached.valid());
  const std::string free = RunProgram("/sbin/losetup", {"-f"}).output;
  ASSERT_EQ(free.rfind("/dev/loop", 0), 0u) << free;
  const std::string detached = free.substr(5, free.size() - 6);
  for (const auto& [program, words, offered] :
       {std::make_tuple("zqctl", "zqctl check loop", attached.bsdName()),
        std::make_tuple("zqctl", "zqctl unmount /dev/loop", attached.devicePath()),
        std::make_tuple("zq-bitlocker", "zq-bitlocker info /dev/loop", attached.devicePath())}) {
    SCOPED_TRACE(words);
    const std::string completions = "\n" + Completions(program, words);
    EXPECT_NE(completions.find("\n" + std::string(offered) + "\n"), std::string::npos) << completions;
    EXPECT_EQ(completions.find(detached + "\n"), std::string::npos) << completions;
  }
  EXPECT_EQ(Completions("zqctl", "zqctl unm"), "unmount\n");
}

class ZqctlTest : public ServiceTestBase {
 protected:
  // zqctl checks that a device exists; the stand-ins never touch it.
  void SetUp() override {
    ServiceTestBase::SetUp();
    struct stat info;
    if (!IsSkipped() && (stat("/dev/loop0", &info) != 0 || !S_ISBLK(info.st_mode)))
      GTEST_SKIP() << "zqctl's device check needs the block device /dev/loop0";
  }

  // Runs zqctl in /media with `arguments` (already quoted for the shell)
  // and `input` on its standard input, behind `as` (a setpriv command).
  Said Zqctl(const std::string& arguments, const std::string& input = "", const std::string& as = "") {
    const std::string work = bundle->stubDir();
    std::ofstream(work + "/in", std::ios::binary | std::ios::trunc) << input;
    const int status = RunShell("cd /media && " + as + "'" ZQCTL "' " + arguments + " <'" + work + "/in' >'" + work +
                                "/out' 2>&1");
    return {status, ReadFile(work + "/out")};
  }

  // Each case starts from a BitLocker device that unmounts and a mounter
  // and library that succeed.
  void Expect(const std::vector<Case>& cases) {
    for (const Case& c : cases) {
      SCOPED_TRACE(c.arguments);
      ASSERT_EQ(RunShell("cd '" + bundle->stubDir() +
                         "' && rm -f zq-mounter.exit open_status && : >is_bitlocker && echo successful "
                         ">diskutil-unmount.stdout && " + c.setUp),
                0);
      bundle->RemoveAnswer("zq-mounter.activity");
      if (!c.activity.empty()) bundle->Answer("zq-mounter.activity", c.activity);
      EXPECT_EQ(Zqctl(c.arguments, c.input), c.said);
    }
  }

  void StartService() {
    ASSERT_EQ(RunShell("mkdir -p /var/log/zq-norvane"), 0);
    service->Start();
    ASSERT_EQ(Zqctl("ping").first, 0);
  }
};

// One case per way an answer reads, and per word zqctl refuses itself.
TEST_F(ZqctlTest, EachAnswerAndRefusalNamesItsCause) {
  StartService();
  Expect({{"ping", "", {0, "the service is running\n"}},
          {"check /dev/loop0", "", {1, "zqctl: loop0: not a BitLocker volume\n"}, "rm is_bitlocker"},
          {"--json --as FileExplorer check loop0", "",
           {0, "{\"subcommand\":\"check\",\"client\":\"FileExplorer\",\"device\":\"loop0\",\"result\":49,"
               "\"text\":\"loop0\",\"ok\":true,\"status\":0,\"message\":\"loop0: BitLocker volume\"}\n"}},
          {"mount loop0 'My Disk'", "it's me\n",
           {0, "loop0 at /media/My Disk: mounted read-only: partially encrypted volume\n"}, "true",
           MounterLine("/media/My Disk", 0, "mounted", "mounted read-only: partially encrypted volume")}});
  EXPECT_EQ(bundle->CallsOf("zq-mounter").back().arguments,
            (std::vector<std::string>{"/dev/loop0", "/media/My Disk", ""}));
  EXPECT_EQ(ReadFile(bundle->stubDir() + "/zq-mounter.input"), "it's me\n");
  ASSERT_EQ(Zqctl("mount loop0 '/media/Ünï $x (1)\\' raw", "pw\n").first, 0);
  EXPECT_EQ(bundle->CallsOf("zq-mounter").back().arguments[1], "/media/Ünï $x (1)\\");

  Expect({{"mount loop0 /media/x raw", "pw\n", {0, "loop0 at /media/x: mounted\n"}},
          {"mount loop0 /media/x", "pw\n",
           {1, "zqctl: mount of loop0 at /media/x failed: wrong credential (2); the mounter said: wrong credential: "
               "/dev/loop0\n"},
           "printf 2 >zq-mounter.exit", MounterLine("/media/x", 2, "wrong credential", "wrong credential: /dev/loop0")},
          {"mount loop0 /media/x uid=4343", "pw\n",
           {1, "zqctl: mount of loop0 at /media/x failed: the mounter refused its arguments (64); the mounter said: "
               "uid=4343 is neither root nor the user at the machine (uid 0)\n"},
           "printf 64 >zq-mounter.exit",
           MounterLine("/media/x", 64, "the mounter refused its arguments",
                       "uid=4343 is neither root nor the user at the machine (uid 0)")},
          {"mount loop0 /media/x", "pw\n",
           {1, "zqctl: mount of loop0 at /media/x failed: the service refused the request: see /tmp/zqlog.log (64)\n"},
           "printf 64 >zq-mounter.exit", MounterLine("/media/y", 64, "the mounter refused its arguments", "not this")},
          {"mount loop0 /media/x", "pw\n",
           {1, "zqctl: mount of loop0 at /media/x failed: the device could not be had: it could not be unmounted first, "
               "or the service runs all the mounters and explorers it allows at once (see /tmp/zqlog.log) (19)\n"},
           "echo busy >diskutil-unmount.stdout"},
          {"explore loop0", "pw\n", {0, "loop0: opened in the explorer\n"}},
          {"explore loop0", "pw\n", {1, "zqctl: explore of loop0 failed: unsupported volume (3)\n"},
           "printf 3 >open_status"},
          {"check sdz9", "", {2, "zqctl: 'sdz9' is not a device on this machine\n"}},
          {"check 'loop0!'", "", {2, "zqctl: 'loop0!' is not a device name\n"}},
          {"mount loop0 x rw2", "", {2, "zqctl: unknown mount option 'rw2' (known: raw, ro, uid=N, gid=N, umask=OOO)\n"}},
          {"mount loop0 x ro,umask=999", "",
           {2, "zqctl: bad value in mount option 'umask=999': umask takes an octal number from 0 to 777\n"}},
          {"mount loop0 x uid=", "",
           {2, "zqctl: bad value in mount option 'uid=': uid takes a whole number from 0 to 4294967294\n"}},
          {"--json explore loop0", "",
           {2, "{\"subcommand\":\"explore\",\"client\":\"MainUI\",\"device\":\"loop0\",\"ok\":false,\"status\":2,"
               "\"message\":\"no credential could be read from standard input\"}\n"}},
          {"--bogus --json", "",
           {2, "{\"subcommand\":\"\",\"client\":\"MainUI\",\"ok\":false,\"status\":2,\"message\":"
               "\"unknown option '--bogus'\\n" + kUsageLine.substr(0, kUsageLine.size() - 1) + "\"}\n"}},
          {"unmount loop0", "", {1, "zqctl: loop0: not unmounted: it was not mounted\n"}},
          {"unmount /dev/loop0", "",
           {1, "zqctl: loop0: not unmounted: not a BitLocker volume, and only those are unmounted\n"}, "rm is_bitlocker"},
          {"unmount x", "", {2, "zqctl: 'x' is neither a device on this machine nor a folder a device is mounted at\n"}},
          {"mount loop0 /etc/x", "", {2, "zqctl: the mount point /etc/x is not below /media, /run/media, /mnt\n"}},
          {"mount loop0 x/../y", "", {2, "zqctl: the mount point /media/x/../y holds \".\" or \"..\"\n"}},
          {"explore loop0", "", {2, "zqctl: no credential could be read from standard input\n"}},
          {"to-main 256", "", {2, "zqctl: BYTE must be a number from 0 to 255 or a single character, not '256'\n"}},
          {"frobnicate", "", {2, "zqctl: unknown subcommand 'frobnicate'\n" + kUsageLine}},
          {"check", "", {2, "zqctl: check: DEVICE is missing\nusage: zqctl [OPTIONS] check DEVICE\n"}}});
}

// `on` must write the login item anew, `off` leave no item.
TEST_F(ZqctlTest, StartupSaysWhetherItsItemsChanged) {
  StartService();
  Expect({{"startup on /x", "",
           {1, "zqctl: startup on: the bundle is not there; the login item was written all the same and points at "
               "nothing, no boot-time item was written (zqctl startup off removes it)\n"}},
          {"startup on '" + bundle->stubDir() + "'", "",
           {0, "startup on: login item written; no boot-time item, as the bundle's service program is missing or "
               "not root's alone (see /tmp/zqlog.log)\n"}},
          {"startup on '" + MakeRootOwnedBundle() + "'", "", {0, "startup on: boot-time item and login item written\n"}},
          {"startup off", "", {0, "startup off: startup items removed\n"}},
          {"startup off", "", {0, "startup off: there were no startup items\n"}},
          {"startup on '" + bundle->bundlePath() + "'", "",
           {1, "zqctl: startup on: the startup items did not change: see /tmp/zqlog.log\n"},
           "rm -rf /Library/LaunchAgents && touch /Library/LaunchAgents"}});
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

// Without a service zqctl says how to start it and makes no FIFO; a
// channel closed to its user is a permission matter; a service that does
// not read times it out.
TEST_F(ZqctlTest, NoServicePermissionAndTimeoutAreTold) {
  const std::string program = std::string(ZQCTL).substr(0, std::string(ZQCTL).rfind('/')) +
                              "/Zq Norvane.app/Contents/MacOS/Zq-NorvaneServices";
  EXPECT_EQ(Zqctl("--timeout 2 ping"),
            Said(3, "zqctl: the service is not running (start it with: sudo '" + program + "')\n"));
  EXPECT_NE(access("/tmp/zq_btl_2", F_OK), 0);
  EXPECT_EQ(Zqctl("status").first, 3);
  StartService();
  EXPECT_EQ(Zqctl("ping", "", "setpriv --reuid=4343 --regid=4343 --clear-groups "),
            Said(5, "zqctl: permission denied: /tmp/zq_btl_1 belongs to uid 0; run zqctl as the user at the machine "
                    "or as root\n"));
  const Said status = Zqctl("status");
  const std::string running = "service: running, pid " + std::to_string(service->pid()) + ", since ";
  ASSERT_EQ(status.first, 0);
  ASSERT_EQ(status.second.rfind(running, 0), 0u) << status.second;
  struct tm since = {};
  since.tm_isdst = -1;
  ASSERT_NE(strptime(status.second.c_str() + running.size(), "%Y-%m-%d %H:%M:%S", &since), nullptr);
  EXPECT_LT(std::abs(difftime(mktime(&since), time(nullptr))), 10.0) << "the service started minutes away";
  kill(service->pid(), SIGSTOP);  // its channel stays open but nobody reads
  EXPECT_EQ(Zqctl("--timeout 2 ping"), Said(4, "zqctl: timeout: the service did not answer within 2 s\n"));
  kill(service->pid(), SIGCONT);
}

}  // namespace
