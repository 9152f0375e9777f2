// diskutil on real loop devices: the texts the service judges by appear
// exactly when the disk was unmounted, was not mounted, or was mounted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <sstream>

#include "LoopDevice.h"
#include "StubBundle.h"

namespace {

struct Output {
  int status = -1;
  std::string out;
  std::string err;
};

std::string Slurp(FILE* file) {
  std::rewind(file);
  std::string text;
  char buffer[1024];
  for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;) text.append(buffer, got);
  std::fclose(file);
  return text;
}

Output Diskutil(const std::string& verb, const std::string& name) {
  Output output;
  FILE* out = std::tmpfile();
  FILE* err = std::tmpfile();
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(err), STDERR_FILENO);
    execl(ZQ_DISKUTIL_FILE, "diskutil", verb.c_str(), name.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  if (waitpid(child, &status, 0) == child && WIFEXITED(status)) output.status = WEXITSTATUS(status);
  output.out = Slurp(out);
  output.err = Slurp(err);
  return output;
}

bool MountedAt(const std::string& folder) {
  std::ifstream table("/proc/self/mounts");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string source, point;
    fields >> source >> point;
    for (size_t blank; (blank = point.find("\\040")) != std::string::npos;) point.replace(blank, 4, " ");
    if (point == folder) return true;
  }
  return false;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

class DiskutilTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = LoopDevicesUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    root_ = MakeTempDir("zq-diskutil-test-");
    folder_ = root_ + "/mount point";
    image_ = root_ + "/ext4.img";
    ASSERT_EQ(RunShell("mkdir '" + folder_ + "' && truncate -s 16M '" + image_ + "' && mkfs.ext4 -q '" + image_ +
                       "' 2>/dev/null"),
              0);
    loop_ = std::make_unique<LoopDevice>(image_);
    ASSERT_TRUE(loop_->valid());
  }

  void TearDown() override {
    if (root_.empty()) return;
    if (loop_ && loop_->valid()) {
      const std::string media = "/media/" + loop_->bsdName();
      if (MountedAt(media)) umount2(media.c_str(), MNT_DETACH);
      rmdir(media.c_str());
    }
    if (MountedAt(folder_)) umount2(folder_.c_str(), MNT_DETACH);
    loop_.reset();
    RunShell("rm -rf '" + root_ + "'");
  }

  void MountByHand() { ASSERT_EQ(RunShell("mount '" + loop_->devicePath() + "' '" + folder_ + "'"), 0); }

  std::string root_;
  std::string folder_;
  std::string image_;
  std::unique_ptr<LoopDevice> loop_;
};

TEST_F(DiskutilTest, UnmountByEachKindOfNameThenAlreadyUnmounted) {
  for (const std::string& name : {loop_->bsdName(), loop_->devicePath(), folder_}) {
    SCOPED_TRACE(name);
    MountByHand();
    const Output unmounted = Diskutil("unmount", name);
    EXPECT_EQ(unmounted.status, 0) << unmounted.err;
    EXPECT_TRUE(Contains(unmounted.out, "successful")) << unmounted.out;
    EXPECT_FALSE(MountedAt(folder_));

    const Output again = Diskutil("unmount", name);
    EXPECT_FALSE(Contains(again.out, "successful")) << again.out;
    EXPECT_TRUE(Contains(again.err, "already unmounted")) << again.err;
  }
}

TEST_F(DiskutilTest, BusyOrUnknownDiskIsNeitherUnmountedNorAlreadyUnmounted) {
  MountByHand();
  const int busy = open((folder_ + "/lost+found").c_str(), O_RDONLY | O_DIRECTORY);
  ASSERT_GE(busy, 0);
  const Output refused = Diskutil("unmount", loop_->bsdName());
  close(busy);
  EXPECT_NE(refused.status, 0);
  EXPECT_FALSE(Contains(refused.out, "successful")) << refused.out;
  EXPECT_FALSE(Contains(refused.err, "already unmounted")) << refused.err;
  EXPECT_TRUE(MountedAt(folder_));

  for (const std::string& unknown : {std::string("zq-no-such-disk"), root_ + "/no such folder", image_}) {
    const Output output = Diskutil("unmount", unknown);
    EXPECT_NE(output.status, 0) << unknown;
    EXPECT_FALSE(Contains(output.out, "successful")) << unknown;
    EXPECT_FALSE(Contains(output.err, "already unmounted")) << unknown;
  }
}

TEST_F(DiskutilTest, MountPutsTheVolumeUnderMedia) {
  std::ofstream(root_ + "/marker") << "on the disk";
  ASSERT_EQ(RunShell("mount '" + loop_->devicePath() + "' '" + folder_ + "' && cp '" + root_ + "/marker' '" +
                     folder_ + "/' && umount '" + folder_ + "'"),
            0);

  const std::string media = "/media/" + loop_->bsdName();
  const Output mounted = Diskutil("mount", loop_->bsdName());
  EXPECT_EQ(mounted.status, 0) << mounted.err;
  EXPECT_TRUE(Contains(mounted.out, "mounted")) << mounted.out;
  ASSERT_TRUE(MountedAt(media));
  {
    std::ifstream marker(media + "/marker");
    std::string text;
    std::getline(marker, text);
    EXPECT_EQ(text, "on the disk");
  }

  const Output again = Diskutil("mount", loop_->devicePath());
  EXPECT_TRUE(Contains(again.out, "mounted at " + media)) << again.out;

  const Output unmounted = Diskutil("unmount", loop_->bsdName());
  EXPECT_TRUE(Contains(unmounted.out, "successful")) << unmounted.err;
  EXPECT_FALSE(MountedAt(media));
}

TEST_F(DiskutilTest, MountOfADiskWithoutFileSystemSaysNothingMounted) {
  const std::string blank = root_ + "/blank.img";
  ASSERT_EQ(RunShell("truncate -s 4M '" + blank + "'"), 0);
  LoopDevice loop(blank);
  ASSERT_TRUE(loop.valid());
  const Output output = Diskutil("mount", loop.bsdName());
  EXPECT_NE(output.status, 0);
  EXPECT_FALSE(Contains(output.out, "mounted")) << output.out;
  EXPECT_NE(access(("/media/" + loop.bsdName()).c_str(), F_OK), 0) << "the folder it made is left";
}

}  // namespace
