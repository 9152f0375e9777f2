// The mounter from the bundle with the package's BitLocker library, on
// every real image attached read-only to a loop device: each credential
// mounts the volume raw and the served file's digest is the manifest's; a
// wrong credential mounts nothing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>

#include "LoopDevice.h"
#include "MounterHarness.h"
#include "MounterStatus.h"
#include "StubBundle.h"
#include "TestImages.h"

namespace {

class MounterImagesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = FuseUnavailable();
    if (why.empty()) why = LoopDevicesUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    root_ = MakeTempDir("zq-mounter-images-");
    mountPoint_ = root_ + "/mount point";
    ASSERT_EQ(RunShell("mkdir '" + mountPoint_ + "'"), 0);
  }

  void TearDown() override {
    if (root_.empty()) return;
    ForceUnmount(mountPoint_);
    for (int pid : LiveProcessesWithWord(mountPoint_)) kill(pid, SIGKILL);
    RunShell("rm -rf '" + root_ + "'");
  }

  MounterRun Mount(const std::string& device, const std::string& credential) {
    return RunProgram(ZQ_MOUNTER_FILE, {device, mountPoint_, "raw", credential});
  }

  std::string root_;
  std::string mountPoint_;
};

TEST_F(MounterImagesTest, EveryCredentialMountsTheUnlockedVolume) {
  ZQ_REQUIRE_IMAGES(images);
  for (const testimages::Image& image : *images) {
    LoopDevice loop(image.path, 0, true);
    ASSERT_TRUE(loop.valid()) << image.name;
    std::vector<std::pair<const char*, std::string>> credentials = {{"recovery password", image.recoveryPassword}};
    if (!image.password.empty()) credentials.push_back({"password", image.password});
    if (!image.startupKeyPath.empty()) credentials.push_back({"startup key", image.startupKeyPath});
    for (const auto& [kind, credential] : credentials) {
      SCOPED_TRACE(image.name + " with its " + kind);
      const MounterRun run = Mount(loop.devicePath(), credential);
      ASSERT_EQ(run.status, kMounterMounted) << run.errors;
      EXPECT_EQ(FileSha256(mountPoint_ + "/volume"), image.decryptedSha256);
      ASSERT_EQ(umount(mountPoint_.c_str()), 0);
      EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
    }
  }
}

TEST_F(MounterImagesTest, WrongCredentialMountsNothing) {
  ZQ_REQUIRE_IMAGES(images);
  for (const testimages::Image& image : *images) {
    SCOPED_TRACE(image.name);
    LoopDevice loop(image.path, 0, true);
    ASSERT_TRUE(loop.valid());
    for (const std::string& wrong : {std::string("not the password"), std::string("111111-111111-111111-111111-"
                                                                                   "111111-111111-111111-111111")}) {
      const MounterRun run = Mount(loop.devicePath(), wrong);
      EXPECT_EQ(run.status, kMounterWrongCredential) << run.errors;
      EXPECT_FALSE(MountedAt(mountPoint_));
      EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
    }
  }
}

TEST_F(MounterImagesTest, PlainDeviceIsNotBitlocker) {
  const std::string image = root_ + "/plain";
  ASSERT_EQ(RunShell("truncate -s 16M '" + image + "' && mkfs.ext4 -q '" + image + "' 2>/dev/null"), 0);
  LoopDevice loop(image, 0, true);
  ASSERT_TRUE(loop.valid());
  const MounterRun run = Mount(loop.devicePath(), "anything");
  EXPECT_EQ(run.status, kMounterNotBitlocker) << run.errors;
  EXPECT_FALSE(MountedAt(mountPoint_));
}

}  // namespace
