// The service with the real bundle: the BitLocker library, the mounter,
// diskutil and the explorer, on every real image attached to a loop
// device.  Runs in the private namespaces of PrivateNamespaceMain.cpp.
#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <tuple>

#include "bitlocker/MounterStatus.h"
#include "platform/Folders.h"
#include "platform/Mounts.h"
#include "system/ActivityLog.h"
#include "system/TaskWrapper.h"
#include "tests/service/ServiceClients.h"
#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/MounterHarness.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestImages.h"
#include "util/MountTable.h"

namespace {

constexpr int kAnswerSeconds = 60;

bool Contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

// zqctl's status and all it printed.  It plays FileExplorer: the tests'
// own client is MainUI.
std::pair<int, std::string> Zqctl(std::vector<std::string> words, const std::string& input = "") {
  words.insert(words.begin(), {"--as", "FileExplorer"});
  const ProgramRun run = RunProgram(ZQCTL, words, input);
  return {run.status, run.output + run.errors};
}

class MountEndToEndTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string why = ServiceTestsUnavailable() + FuseUnavailable() + LoopDevicesUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(RunShell("mkdir -p '" + bundle_ + "/Contents' && cp -a '" ZQ_BUNDLE_MACOS_DIR "' '" + bundle_ +
                       "/Contents/MacOS'"),
              0);
    service_ = std::make_unique<ServiceProcess>(bundle_);
    mainUI_ = std::make_unique<RawClient>(kMainUIChannel);
    // The service and whatever it starts write to output_, where the
    // explorer's lines can be read back.
    const int output = open(output_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644), saved = dup(1);
    dup2(output, 1);
    service_->Start();
    dup2(saved, 1);
    for (int fd : {saved, output}) close(fd);
    ASSERT_TRUE(Result(*mainUI_, MakeRecord(eCOMMAND_CHECK_CONNECTION), kAnswerSeconds)) << "no service";
  }

  void TearDown() override {
    ForceUnmount(mountPoint_);
    for (int pid : LiveProcessesWithWord(mountPoint_)) kill(pid, SIGKILL);
    rmdir(mountPoint_.c_str());
  }

  // Sends a record from MainUI and returns the answer's result, or -1; the
  // explorer's credential is its `arg2`.
  int64_t Ask(COMMAND_TYPE type, const LoopDevice& loop, const std::string& arg2 = "", const std::string& arg3 = "",
              const std::string& arg4 = "") {
    return Result(*mainUI_, DeviceRecord(type, loop.bsdName(), arg2, arg3, arg4), kAnswerSeconds).value_or(-1);
  }
  // The mount point's blank is escaped, as a client writes it for the shell.
  int64_t Mount(const LoopDevice& loop, const std::string& credential, const char* options = "raw") {
    return Ask(eCOMMAND_BITLOCKER_MOUNT, loop, "/media/mount\\ point", options, credential);
  }
  // Mounts as Mount does, and expects the activity log to gain one line
  // that tells the answer in the mounter's words and holds no credential.
  int64_t MountLogged(const LoopDevice& loop, const std::string& credential) {
    const std::string log = platform::ActivityLogPath();
    const long long end = ActivityLogEnd(log);
    const int64_t answer = Mount(loop, credential);
    const std::vector<Activity> added = ReadActivities(log, end);
    EXPECT_EQ(added.size(), 1u) << ReadFile(log);
    for (const Activity& line : added) {
      EXPECT_EQ(std::tie(line.program, line.device, line.mountPoint, line.status),
                std::tie("zq-mounter", loop.devicePath(), mountPoint_, answer));
      EXPECT_EQ(line.result, DescribeMounterStatus(static_cast<int>(answer)));
      EXPECT_FALSE(line.report.empty());
    }
    EXPECT_EQ(ReadFile(log).find(credential), std::string::npos) << "the credential is in the activity log";
    return answer;
  }
  void ForwardToExplorer(unsigned char byte) {
    CCommandDataWrapper<char> forward = MakeRecord(eCOMMAND_TO_FILE_EXPLORER);
    forward.simple.arg = byte;
    ASSERT_TRUE(mainUI_->Send(1, forward));
  }

  // Waits up to `seconds` for the service's output to hold `text`.
  bool OutputShows(const std::string& text, int seconds) {
    for (int tenth = 0; tenth < seconds * 10; ++tenth, usleep(100 * 1000))
      if (Contains(ReadFile(output_), text.c_str())) return true;
    return false;
  }

  // Whether any process's command line or environment holds `secret`.
  bool AnyProcessShows(const std::string& secret) {
    std::ofstream(root_("secret")) << secret;
    return RunShell("cat /proc/[0-9]*/cmdline /proc/[0-9]*/environ 2>/dev/null | grep -qaF -f '" + root_("secret") +
                    "'") == 0;
  }

  TempDir root_;
  const std::string bundle_ = root_("Zq Norvane.app"), output_ = root_("service output");
  const std::string mountPoint_ = "/media/mount point";
  std::unique_ptr<ServiceProcess> service_;
  std::unique_ptr<RawClient> mainUI_;
};

// Every image is BitLocker; a plain device is not and stays mounted; the
// mounter itself refuses a mount point the service would refuse.
TEST_F(MountEndToEndTest, DetectionFindsEveryImageAndLeavesAnythingElseAlone) {
  const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(bundle_ + "/Contents/MacOS/zq-mounter",
                                                           {"/dev/null", "/etc/zq-x", "raw"}, "pw\n");
  EXPECT_EQ(run.terminationStatus(), kMounterUsage);
  EXPECT_NE(run.errorMessage().value_or("").find("/etc/zq-x is not below /media"), std::string::npos);
  EXPECT_NE(access("/etc/zq-x", F_OK), 0);
  ZQ_REQUIRE_IMAGES(images);
  std::vector<testimages::Image> all = *images;
  std::string why;
  if (const testimages::Image* eow = testimages::EncryptOnWriteImage(&why)) all.push_back(*eow);
  for (const testimages::Image& image : all) {
    LoopDevice loop(image.path, 0, true);
    ASSERT_TRUE(loop.valid()) << image.name;
    EXPECT_EQ(Ask(eCOMMAND_BITLOCKER_CHECK, loop), kResultIsBitlocker) << image.name;
  }
  const std::string plain = root_("plain.img"), plainFolder = root_("plain");
  ASSERT_EQ(RunShell("truncate -s 16M '" + plain + "' && mkfs.ext4 -q '" + plain + "' 2>/dev/null && mkdir '" +
                     plainFolder + "'"),
            0);
  LoopDevice loop(plain, 0, true);
  ASSERT_TRUE(loop.valid());
  EXPECT_EQ(Ask(eCOMMAND_BITLOCKER_CHECK, loop), kResultIsNotBitlocker);
  ASSERT_TRUE(loop.Mount(plainFolder, "ext4"));
  EXPECT_EQ(Mount(loop, "any"), bitlocker::kNotBitlocker);
  EXPECT_EQ(Ask(eCOMMAND_BITLOCKER_EXPLORER, loop, "any"), bitlocker::kNotBitlocker);
  EXPECT_TRUE(MountedAt(plainFolder)) << "a device that holds no BitLocker volume was unmounted";
}

// A wrong credential answers the mounter's code and leaves nothing; each
// right one mounts the volume with the manifest's digest, unseen by others.
// Every mount leaves one line in the activity log, never the credential.
TEST_F(MountEndToEndTest, EachCredentialMountsTheVolumeWithTheManifestsDigest) {
  ZQ_REQUIRE_IMAGES(images);
  for (const testimages::Image& image : *images) {
    LoopDevice loop(image.path, 0, true);
    ASSERT_TRUE(loop.valid()) << image.name;
    EXPECT_EQ(MountLogged(loop, "it's not the password"), bitlocker::kWrongCredential) << image.name;
    EXPECT_NE(access(mountPoint_.c_str(), F_OK), 0) << image.name << ": a folder was left behind";
    EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10)) << image.name;
    std::vector<std::pair<const char*, std::string>> credentials = {{"recovery password", image.recoveryPassword}};
    if (!image.password.empty()) credentials.push_back({"password", image.password});
    if (!image.startupKeyPath.empty()) credentials.push_back({"startup key", image.startupKeyPath});
    for (const auto& [kind, credential] : credentials) {
      SCOPED_TRACE(image.name + " with its " + kind);
      ASSERT_EQ(MountLogged(loop, credential), bitlocker::kOk);
      EXPECT_EQ(FileSha256(mountPoint_ + "/volume"), image.decryptedSha256);
      EXPECT_FALSE(AnyProcessShows(credential)) << "the credential is on a command line or in an environment";
      const std::string options = TopMountAt(platform::ReadMountTable(), mountPoint_).value_or(MountEntry{}).options;
      EXPECT_TRUE(Contains(options, "nosuid") && Contains(options, "nodev")) << options;
      ASSERT_EQ(umount(mountPoint_.c_str()), 0);
      EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10)) << "the mounter still runs after umount";
      EXPECT_NE(access(mountPoint_.c_str(), F_OK), 0) << "the folder the mounter made is still there";
    }
  }
}

// A startup key opens only when the user at the machine may read it.
// Mounting again replaces the earlier mount of the device, which the
// service unmounts through diskutil first.  The volume is that user's alone.
TEST_F(MountEndToEndTest, WhatIsMountedIsTheUserAtTheMachinesAlone) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (image == nullptr) GTEST_SKIP() << why;
  LoopDevice loop(image->path, 0, true);
  ASSERT_TRUE(loop.valid());
  constexpr uid_t kConsoleUser = 4242;
  ConsoleUserIs console(kConsoleUser);
  const std::string rootsKey = root_("root.BEK"), theirKey = root_("theirs.BEK");
  ASSERT_EQ(RunShell("chmod 755 '" + root_.path() + "' && install -m 600 '" + image->startupKeyPath + "' '" + rootsKey +
                     "' && install -m 600 -o 4242 '" + image->startupKeyPath + "' '" + theirKey + "'"),
            0);
  EXPECT_EQ(Mount(loop, rootsKey), bitlocker::kWrongCredential);
  EXPECT_EQ(Ask(eCOMMAND_BITLOCKER_EXPLORER, loop, rootsKey), bitlocker::kWrongCredential);
  for (const char* options : {"raw,uid=4343", "raw,gid=4343", "raw,uid=0", "raw,gid=0"})
    EXPECT_EQ(Mount(loop, image->recoveryPassword, options), kMounterUsage) << options << ": not a third user's, not root's";
  ASSERT_EQ(Mount(loop, theirKey), bitlocker::kOk);
  ASSERT_EQ(Mount(loop, image->recoveryPassword), bitlocker::kOk);
  EXPECT_EQ(LiveProcessesWithWord(mountPoint_).size(), 1u) << "one mounter serves the mount point";
  const std::string volume = mountPoint_ + "/volume", expected = image->decryptedSha256;
  EXPECT_EQ(RunAsUser(kConsoleUser, [&] { return FileSha256(volume) == expected ? 0 : 1; }), 0);
  EXPECT_EQ(RunAsUser(kConsoleUser + 1, [&] { return open(volume.c_str(), O_RDONLY) == -1 ? 0 : 1; }), 0)
      << "others may use it";
}

// zqctl tells the mount in the mounter's words and the mount table's (a
// failed one with the library's reason), lists it in its status, and tells
// what unmount and check unmounted.
TEST_F(MountEndToEndTest, ZqctlTellsTheMountAndWhatUnmountAndCheckUnmounted) {
  ZQ_REQUIRE_IMAGES(images);
  const testimages::Image& image = images->front();
  LoopDevice loop(image.path, 0, true);
  ASSERT_TRUE(loop.valid());
  const std::string name = loop.bsdName();
  EXPECT_EQ(Zqctl({"mount", name, mountPoint_, "raw"}, "111112-111111-111111-111111-111111-111111-111111-111111\n"),
            std::make_pair(1, "zqctl: mount of " + name + " at " + mountPoint_ +
                                  " failed: wrong credential (2); the mounter said: wrong credential: " +
                                  loop.devicePath() +
                                  ": not a valid recovery password: each group of six digits must be a multiple of "
                                  "11 below 720896\n"));
  EXPECT_EQ(Zqctl({"mount", name, mountPoint_, "raw"}, image.recoveryPassword + "\n"),
            std::make_pair(0, name + " at " + mountPoint_ + ": mounted read-only: the device is read-only\n"));
  const std::string status = Zqctl({"status"}).second;
  EXPECT_NE(status.find("\n  " + loop.devicePath() + " at " + mountPoint_ + ": read-only, since "), std::string::npos)
      << status;
  EXPECT_EQ(Zqctl({"unmount", mountPoint_}), std::make_pair(0, name + ": unmounted from " + mountPoint_ + "\n"));
  EXPECT_EQ(Zqctl({"unmount", name}), std::make_pair(1, "zqctl: " + name + ": not unmounted: it was not mounted\n"));
  ASSERT_EQ(Zqctl({"mount", name, mountPoint_, "raw"}, image.recoveryPassword + "\n").first, 0);
  EXPECT_EQ(Zqctl({"check", loop.devicePath()}),
            std::make_pair(0, name + ": BitLocker volume; unmounted it from " + mountPoint_ + "\n"));
}

// The explorer connects as FileExplorer, ends on 'q' alone, and ends when
// the service goes away; a failed open starts none.
TEST_F(MountEndToEndTest, ExplorerConnectsAndEndsOnQOrWhenTheServiceGoesAway) {
  ZQ_REQUIRE_IMAGES(images);
  const testimages::Image& image = images->front();
  LoopDevice loop(image.path, 0, true);
  ASSERT_TRUE(loop.valid());
  EXPECT_EQ(Ask(eCOMMAND_BITLOCKER_EXPLORER, loop, "not the password"), bitlocker::kWrongCredential);
  ASSERT_EQ(Ask(eCOMMAND_BITLOCKER_EXPLORER, loop, image.recoveryPassword), 0);
  ASSERT_TRUE(OutputShows("connected to the service as FileExplorer", 30)) << ReadFile(output_);
  EXPECT_EQ(LiveProcessesWithWord(loop.devicePath()).size(), 1u) << "one explorer, the failed open started none";
  EXPECT_TRUE(OutputShows("volume on " + loop.devicePath(), 1)) << ReadFile(output_);
  ForwardToExplorer('x');
  EXPECT_TRUE(OutputShows("forwarded command 11: byte 0x78 'x'", 10)) << ReadFile(output_);
  EXPECT_EQ(LiveProcessesWithWord(loop.devicePath()).size(), 1u) << "only 'q' ends the explorer";
  ForwardToExplorer('q');
  EXPECT_TRUE(WaitUntilNoProcessWithWord(loop.devicePath(), 10)) << "the explorer did not end on 'q'";

  ASSERT_EQ(truncate(output_.c_str(), 0), 0);
  ASSERT_EQ(Ask(eCOMMAND_BITLOCKER_EXPLORER, loop, image.recoveryPassword), 0);
  ASSERT_TRUE(OutputShows("connected to the service as FileExplorer", 30)) << ReadFile(output_);
  ASSERT_TRUE(mainUI_->Send(2, MakeRecord(eCOMMAND_EXIT)));
  EXPECT_TRUE(service_->WaitForExit(10).has_value());
  EXPECT_TRUE(WaitUntilNoProcessWithWord(loop.devicePath(), 30)) << ReadFile(output_);
  EXPECT_TRUE(OutputShows("the service went away", 1)) << ReadFile(output_);
}

// zqctl's status lists a file system inside a volume by the device the
// mounter was given, whatever driver mounted it, and not the staging mount.
TEST(ZqctlStatusTest, ListsAFileSystemInsideByItsDeviceAndNotItsStaging) {
  const std::string why = ServiceTestsUnavailable() + FuseUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  if (RunShell("command -v mkfs.fat >/dev/null") != 0) GTEST_SKIP() << "mkfs.fat is not installed";
  const TempDir root;
  const std::string macos = root("Plain.app/Contents/MacOS"), image = root("image"), at = "/media/fat point";
  ASSERT_EQ(RunShell("mkdir -p '" + macos + "' && cp '" ZQ_MOUNTER_FILE "' '" + macos + "/' && cp '" ZQ_PLAIN_LIBRARY_FILE
                     "' '" + macos + "/libBitLockerWapper.dylib' && truncate -s 48M '" + image + "' && mkfs.fat '" +
                     image + "' >/dev/null"),
            0);
  const ProgramRun run = RunProgram(macos + "/zq-mounter", {image, at, ""}, "plain\n");
  ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
  const std::string status = Zqctl({"status"}).second;
  EXPECT_NE(status.find("\n  " + image + " at " + at + ": read-write, since "), std::string::npos) << status;
  EXPECT_EQ(status.find(image + " at /run/zq-mounter/"), std::string::npos) << status;
  ASSERT_EQ(umount(at.c_str()), 0);
  EXPECT_TRUE(WaitUntilNoProcessWithWord(at, 10));
}

}  // namespace
