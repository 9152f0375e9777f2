// diskutil on real loop devices: the texts the service judges by appear
// exactly when the disk was unmounted, was not mounted, or was mounted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <memory>

#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/MounterHarness.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ServiceTestEnvironment.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"

namespace {

ProgramRun Diskutil(std::string verb, std::string name) { return RunProgram(ZQ_DISKUTIL_FILE, {verb, name}); }

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// An ext4 disk holding "marker" on a loop device, and a folder to mount it.
class DiskutilTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = LoopDevicesUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    ASSERT_EQ(RunShell("mkdir '" + folder_ + "' && echo on the disk >'" + folder_ + "/marker' && truncate -s 16M '" +
                       image_ + "' && mkfs.ext4 -q -d '" + folder_ + "' '" + image_ + "' 2>/dev/null && rm '" +
                       folder_ + "/marker'"),
              0);
    loop_ = std::make_unique<LoopDevice>(image_);
    ASSERT_TRUE(loop_->valid());
  }

  void TearDown() override {
    if (loop_) RunShell("umount -l '/media/" + loop_->bsdName() + "' '" + folder_ + "' 2>/dev/null; rmdir '/media/" +
                        loop_->bsdName() + "' 2>/dev/null");
  }

  void MountByHand() { ASSERT_EQ(RunShell("mount '" + loop_->devicePath() + "' '" + folder_ + "'"), 0); }

  TempDir root_;
  const std::string folder_ = root_("mount point"), image_ = root_("ext4.img");
  std::unique_ptr<LoopDevice> loop_;
};

// Each kind of name unmounts, then finds the disk already unmounted.  A
// busy disk, an unknown name, a missing folder and a plain file are neither.
TEST_F(DiskutilTest, UnmountSaysSuccessfulOrAlreadyUnmountedOnlyWhenSo) {
  for (const std::string& name : {loop_->bsdName(), loop_->devicePath(), folder_}) {
    SCOPED_TRACE(name);
    MountByHand();
    const ProgramRun unmounted = Diskutil("unmount", name);
    EXPECT_EQ(unmounted.status, 0) << unmounted.errors;
    EXPECT_TRUE(Contains(unmounted.output, "successful")) << unmounted.output;
    EXPECT_FALSE(MountedAt(folder_));
    const ProgramRun again = Diskutil("unmount", name);
    EXPECT_FALSE(Contains(again.output, "successful")) << again.output;
    EXPECT_TRUE(Contains(again.errors, "already unmounted")) << again.errors;
  }
  MountByHand();
  const int busy = open((folder_ + "/lost+found").c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(busy, 0);
  for (const std::string& name : {loop_->bsdName(), std::string("zq-no-such-disk"), root_("no such folder"), image_}) {
    SCOPED_TRACE(name);
    const ProgramRun run = Diskutil("unmount", name);
    EXPECT_NE(run.status, 0);
    EXPECT_FALSE(Contains(run.output, "successful") || Contains(run.errors, "already unmounted")) << run.errors;
  }
  close(busy);
  EXPECT_TRUE(MountedAt(folder_));
}

TEST_F(DiskutilTest, MountPutsAFileSystemUnderMediaAndABlankDiskNowhere) {
  const std::string media = "/media/" + loop_->bsdName();
  const ProgramRun mounted = Diskutil("mount", loop_->bsdName());
  EXPECT_EQ(mounted.status, 0) << mounted.errors;
  EXPECT_TRUE(Contains(mounted.output, "mounted")) << mounted.output;
  EXPECT_EQ(ReadFile(media + "/marker"), "on the disk\n");
  EXPECT_TRUE(Contains(Diskutil("mount", loop_->devicePath()).output, "mounted at " + media));
  EXPECT_TRUE(Contains(Diskutil("unmount", loop_->bsdName()).output, "successful"));
  EXPECT_FALSE(MountedAt(media));

  ASSERT_EQ(RunShell("truncate -s 4M '" + root_("blank.img") + "'"), 0);
  LoopDevice blank(root_("blank.img"));
  ASSERT_TRUE(blank.valid());
  const ProgramRun nothing = Diskutil("mount", blank.bsdName());
  EXPECT_NE(nothing.status, 0);
  EXPECT_FALSE(Contains(nothing.output, "mounted")) << nothing.output;
  EXPECT_NE(access(("/media/" + blank.bsdName()).c_str(), F_OK), 0) << "the folder it made is left";
}

// A file system inside a volume that the real mounter serves from a plain
// bundle: its driver's mount stands on a file in the staging mount of the
// device, which is busy until that mount is gone.
struct StackedCase {
  const char *name, *mkfs, *options, *driver;
};

void PrintTo(const StackedCase& param, std::ostream* out) { *out << param.name; }

class DiskutilStackedTest : public ::testing::TestWithParam<StackedCase> {};

TEST_P(DiskutilStackedTest, UnmountTakesTheFileSystemAndThenTheStagingMountDown) {
  const auto [name, mkfs, options, driver] = GetParam();
  const std::string why = ServiceTestsUnavailable() + FuseUnavailable() + LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  if (RunShell(std::string("command -v ") + mkfs + " >/dev/null && command -v " + driver + " >/dev/null") != 0)
    GTEST_SKIP() << mkfs << " or " << driver << " is not installed";
  TempDir root;
  const std::string macos = root("Plain.app/Contents/MacOS"), image = root("volume"), mountPoint = "/mnt/zq-stacked";
  ASSERT_EQ(RunShell("mkdir -p '" + macos + "' " + mountPoint + " && cp '" ZQ_MOUNTER_FILE "' '" + macos +
                     "/zq-mounter' && cp '" ZQ_PLAIN_LIBRARY_FILE "' '" + macos +
                     "/libBitLockerWapper.dylib' && truncate -s 48M '" + image + "' && " + mkfs + " " + options + " '" +
                     image + "' >/dev/null 2>&1"),
            0);
  LoopDevice loop(image);
  ASSERT_TRUE(loop.valid());
  const ProgramRun mounted = RunProgram(macos + "/zq-mounter", {loop.devicePath(), mountPoint, ""}, "plain\n");
  ASSERT_EQ(mounted.status, 0) << mounted.errors;
  const ProgramRun run = Diskutil("unmount", loop.bsdName());
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_TRUE(Contains(run.output, "successful")) << run.output << run.errors;
  EXPECT_FALSE(MountedAt(mountPoint));
  EXPECT_TRUE(MountPointsOfSource(loop.devicePath()).empty()) << "the staging mount is left";
  ForceUnmount(mountPoint);
}

INSTANTIATE_TEST_SUITE_P(Drivers, DiskutilStackedTest,
                         ::testing::Values(StackedCase{"FAT", "mkfs.fat", "", "fusefat"},
                                           StackedCase{"exFAT", "mkfs.exfat", "", "mount.exfat-fuse"},
                                           StackedCase{"NTFS", "mkntfs", "-F -f -q", "ntfs-3g"}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
