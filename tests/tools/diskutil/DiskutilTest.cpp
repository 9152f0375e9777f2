// diskutil on real loop devices: the texts the service judges by appear
// exactly when the disk was unmounted, was not mounted, or was mounted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <memory>

#include "FileContents.h"
#include "LoopDevice.h"
#include "MounterHarness.h"
#include "ProgramRun.h"
#include "StubBundle.h"
#include "TempDir.h"

namespace {

ProgramRun Diskutil(const std::string& verb, const std::string& name) {
  return RunProgram(ZQ_DISKUTIL_FILE, {verb, name});
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class DiskutilTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = LoopDevicesUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    folder_ = root_("mount point");
    image_ = root_("ext4.img");
    ASSERT_EQ(RunShell("mkdir '" + folder_ + "' && truncate -s 16M '" + image_ + "' && mkfs.ext4 -q '" + image_ +
                       "' 2>/dev/null"),
              0);
    loop_ = std::make_unique<LoopDevice>(image_);
    ASSERT_TRUE(loop_->valid());
  }

  void TearDown() override {
    if (loop_ && loop_->valid()) {
      const std::string media = "/media/" + loop_->bsdName();
      if (MountedAt(media)) umount2(media.c_str(), MNT_DETACH);
      rmdir(media.c_str());
    }
    if (!folder_.empty() && MountedAt(folder_)) umount2(folder_.c_str(), MNT_DETACH);
    loop_.reset();
  }

  void MountByHand() { ASSERT_EQ(RunShell("mount '" + loop_->devicePath() + "' '" + folder_ + "'"), 0); }

  TempDir root_;
  std::string folder_;
  std::string image_;
  std::unique_ptr<LoopDevice> loop_;
};

TEST_F(DiskutilTest, UnmountByEachKindOfNameThenAlreadyUnmounted) {
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
}

TEST_F(DiskutilTest, BusyOrUnknownDiskIsNeitherUnmountedNorAlreadyUnmounted) {
  MountByHand();
  const int busy = open((folder_ + "/lost+found").c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(busy, 0);
  const ProgramRun refused = Diskutil("unmount", loop_->bsdName());
  close(busy);
  EXPECT_NE(refused.status, 0);
  EXPECT_FALSE(Contains(refused.output, "successful")) << refused.output;
  EXPECT_FALSE(Contains(refused.errors, "already unmounted")) << refused.errors;
  EXPECT_TRUE(MountedAt(folder_));

  for (const std::string& unknown : {std::string("zq-no-such-disk"), root_("no such folder"), image_}) {
    const ProgramRun output = Diskutil("unmount", unknown);
    EXPECT_NE(output.status, 0) << unknown;
    EXPECT_FALSE(Contains(output.output, "successful")) << unknown;
    EXPECT_FALSE(Contains(output.errors, "already unmounted")) << unknown;
  }
}

TEST_F(DiskutilTest, MountPutsTheVolumeUnderMedia) {
  std::ofstream(root_("marker")) << "on the disk";
  ASSERT_EQ(RunShell("mount '" + loop_->devicePath() + "' '" + folder_ + "' && cp '" + root_("marker") + "' '" +
                     folder_ + "/' && umount '" + folder_ + "'"),
            0);

  const std::string media = "/media/" + loop_->bsdName();
  const ProgramRun mounted = Diskutil("mount", loop_->bsdName());
  EXPECT_EQ(mounted.status, 0) << mounted.errors;
  EXPECT_TRUE(Contains(mounted.output, "mounted")) << mounted.output;
  ASSERT_TRUE(MountedAt(media));
  EXPECT_EQ(ReadFile(media + "/marker"), "on the disk");

  const ProgramRun again = Diskutil("mount", loop_->devicePath());
  EXPECT_TRUE(Contains(again.output, "mounted at " + media)) << again.output;

  const ProgramRun unmounted = Diskutil("unmount", loop_->bsdName());
  EXPECT_TRUE(Contains(unmounted.output, "successful")) << unmounted.errors;
  EXPECT_FALSE(MountedAt(media));
}

TEST_F(DiskutilTest, MountOfADiskWithoutFileSystemSaysNothingMounted) {
  const std::string blank = root_("blank.img");
  ASSERT_EQ(RunShell("truncate -s 4M '" + blank + "'"), 0);
  LoopDevice loop(blank);
  ASSERT_TRUE(loop.valid());
  const ProgramRun output = Diskutil("mount", loop.bsdName());
  EXPECT_NE(output.status, 0);
  EXPECT_FALSE(Contains(output.output, "mounted")) << output.output;
  EXPECT_NE(access(("/media/" + loop.bsdName()).c_str(), F_OK), 0) << "the folder it made is left";
}

}  // namespace
