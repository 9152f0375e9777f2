// The Linux side of the platform seam, on real devices and real files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <future>
#include <string>
#include <thread>

#include "LoopDevice.h"
#include "Platform.h"
#include "TaskWrapper.h"
#include "TestSupport.h"

namespace {

dev_t DeviceNumber(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? info.st_rdev : 0;
}

class PlatformDiskTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string reason = LoopDevicesUnavailable();
    if (!reason.empty()) GTEST_SKIP() << reason;
    ASSERT_EQ(RunShell("truncate -s 8M '" + image_ + "'"), 0);
  }

  TempDir folder_;
  const std::string image_ = folder_.path() + "/disk.img";
};

TEST_F(PlatformDiskTest, RawNameAndBlockSizeOfALoopDevice) {
  const LoopDevice wide(image_, 4096), narrow(image_, 0, true);
  ASSERT_TRUE(wide.valid() && narrow.valid()) << "losetup failed";

  // Linux has no separate raw device: the raw name is the block device's own.
  EXPECT_EQ(platform::RawDeviceName(DeviceNumber(wide.devicePath())), wide.bsdName());
  EXPECT_EQ(platform::RawDeviceName(DeviceNumber(narrow.devicePath())), narrow.bsdName());

  const int wideFd = open(wide.devicePath().c_str(), O_RDONLY | O_CLOEXEC);
  const int narrowFd = open(narrow.devicePath().c_str(), O_RDONLY | O_CLOEXEC);
  const int fileFd = open(image_.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(platform::DeviceBlockSize(wideFd), 4096u);
  EXPECT_EQ(platform::DeviceBlockSize(narrowFd), 512u);
  EXPECT_EQ(platform::DeviceBlockSize(fileFd), std::nullopt) << "a plain file is no disk";
  for (int fd : {wideFd, narrowFd, fileFd}) close(fd);
}

TEST_F(PlatformDiskTest, MountPathOfAVolumeFollowsItsMount) {
  ASSERT_EQ(RunShell("mkfs.ext4 -q '" + image_ + "' 2>/dev/null"), 0);
  LoopDevice loop(image_);
  ASSERT_TRUE(loop.valid()) << "losetup failed";
  EXPECT_EQ(platform::VolumeMountPath(loop.bsdName()), std::nullopt) << "not mounted yet";

  // Blanks and backslashes are escaped in the kernel's mount table.
  const std::string mountPoint = folder_.path() + "/Zq Volume\\1";
  ASSERT_EQ(mkdir(mountPoint.c_str(), 0755), 0);
  ASSERT_TRUE(loop.Mount(mountPoint, "ext4"));
  EXPECT_EQ(platform::VolumeMountPath(loop.bsdName()), mountPoint);
  ASSERT_EQ(umount(mountPoint.c_str()), 0);
  EXPECT_EQ(platform::VolumeMountPath(loop.bsdName()), std::nullopt) << "unmounted again";
}

TEST(PlatformDeviceNamesTest, NamesThatAreNoBlockDeviceHaveNoMountPath) {
  EXPECT_EQ(platform::VolumeMountPath("null"), std::nullopt);  // a character device
  EXPECT_EQ(platform::VolumeMountPath("zq-no-such-disk"), std::nullopt);
  EXPECT_EQ(platform::RawDeviceName(makedev(0, 0)), "");
}

// Where the helper program, placed at `relativePath` under a fresh folder,
// says its bundle is; the folder's path is put before the answer's "@".
std::string BundleOfHelperAt(const TempDir& folder, const std::string& relativePath) {
  const std::string program = folder.path() + "/" + relativePath;
  RunShell("mkdir -p \"$(dirname '" + program + "')\" && cp '" + HelperProgram() + "' '" + program + "'");
  std::string answer = TaskWrapper::runTaskAtLaunchPath(program, {"bundle-path"}).response().value_or("");
  if (answer.rfind(folder.path(), 0) == 0) answer = "@" + answer.substr(folder.path().size());
  return answer;
}

TEST(PlatformBundleTest, MainBundleIsTheFolderAboveContentsMacOS) {
  TempDir folder;
  EXPECT_EQ(BundleOfHelperAt(folder, "Zq Norvane.app/Contents/MacOS/helper"), "@/Zq Norvane.app");
  EXPECT_EQ(BundleOfHelperAt(folder, "Tool/Contents/MacOS/tool"), "@/Tool");
  EXPECT_EQ(BundleOfHelperAt(folder, "bin/tool"), "@/bin");
  EXPECT_EQ(BundleOfHelperAt(folder, "X.app/contents/MacOS/tool"), "@/X.app/contents/MacOS");
  EXPECT_EQ(BundleOfHelperAt(folder, "X.app/Contents/MacOS/Inner/tool"), "@/X.app/Contents/MacOS/Inner");
}

TEST(PlatformChildTest, ChildPathEndsWithTheBundleProgramFolder) {
  const std::string bundle = platform::MainBundlePath();
  const std::string oldPath = getenv("PATH") != nullptr ? getenv("PATH") : "";
  const std::string folder = bundle + "/Contents/MacOS";
  EXPECT_EQ(TaskWrapper::runScript("printf %s \"$PATH\"").response().value_or(""), oldPath + ":" + folder);

  unsetenv("PATH");
  const std::string unset = TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", "printf %s \"$PATH\""})
                                .response()
                                .value_or("");
  setenv("PATH", oldPath.c_str(), 1);
  EXPECT_NE(unset.find(":/usr/bin:"), std::string::npos) << unset;
  EXPECT_EQ(unset.substr(unset.size() - folder.size() - 1), ":" + folder);
}

TEST(PlatformBackgroundTest, WorkRunsOnAnotherThread) {
  std::promise<std::thread::id> ran;
  std::future<std::thread::id> worker = ran.get_future();
  platform::RunInBackground([&ran] { ran.set_value(std::this_thread::get_id()); });
  ASSERT_EQ(worker.wait_for(std::chrono::seconds(60)), std::future_status::ready);
  EXPECT_NE(worker.get(), std::this_thread::get_id());
}

}  // namespace
