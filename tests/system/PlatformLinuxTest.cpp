// The Linux side of the platform seam, on real devices and real files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Platform.h"
#include "TaskWrapper.h"
#include "TestSupport.h"

namespace {

// Why loop devices cannot be used here, or "" when they can.
std::string LoopDevicesUnavailable() {
  if (geteuid() != 0) return "loop devices need root";
  if (Shell("command -v losetup >/dev/null && test -e /dev/loop-control") != 0)
    return "losetup or /dev/loop-control is missing";
  return "";
}

// A file system that both the kernel and the installed tools can make:
// vfat, else ext2; "" when there is none.
std::string UsableFileSystem() {
  if (Shell("grep -qw vfat /proc/filesystems && command -v mkfs.fat >/dev/null") == 0) return "vfat";
  if (Shell("grep -qw ext2 /proc/filesystems && command -v mkfs.ext2 >/dev/null") == 0) return "ext2";
  return "";
}

// Runs a shell command when it goes out of scope: the undoing of a setup step.
class AtEnd {
 public:
  explicit AtEnd(std::string command) : command_(std::move(command)) {}
  ~AtEnd() { Shell(command_); }
  AtEnd(const AtEnd&) = delete;
  AtEnd& operator=(const AtEnd&) = delete;

 private:
  std::string command_;
};

dev_t DeviceNumber(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? info.st_rdev : 0;
}

class PlatformDiskTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string reason = LoopDevicesUnavailable();
    if (!reason.empty()) GTEST_SKIP() << reason;
    ASSERT_EQ(Shell("truncate -s 8M '" + image_ + "'"), 0);
  }

  // A loop device over the image: its name under /dev, or "".
  std::string AttachLoop(const std::string& options) {
    std::string path = TaskWrapper::runScript("losetup -f --show " + options + " '" + image_ + "'").response().value_or("");
    if (!path.empty()) path.pop_back();
    if (path.rfind("/dev/loop", 0) != 0) return "";
    attached_.push_back(std::make_unique<AtEnd>("losetup -d " + path));
    return path.substr(5);
  }

  TempDir folder_;
  const std::string image_ = folder_.path() + "/disk.img";
  std::vector<std::unique_ptr<AtEnd>> attached_;
};

TEST_F(PlatformDiskTest, RawNameAndBlockSizeOfALoopDevice) {
  const std::string wide = AttachLoop("-b 4096");
  const std::string narrow = AttachLoop("-r");
  ASSERT_TRUE(!wide.empty() && !narrow.empty()) << "losetup failed";

  // Linux has no separate raw device: the raw name is the block device's own.
  EXPECT_EQ(platform::RawDeviceName(DeviceNumber("/dev/" + wide)), wide);
  EXPECT_EQ(platform::RawDeviceName(DeviceNumber("/dev/" + narrow)), narrow);

  const int wideFd = open(("/dev/" + wide).c_str(), O_RDONLY | O_CLOEXEC);
  const int narrowFd = open(("/dev/" + narrow).c_str(), O_RDONLY | O_CLOEXEC);
  const int fileFd = open(image_.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(platform::DeviceBlockSize(wideFd), 4096u);
  EXPECT_EQ(platform::DeviceBlockSize(narrowFd), 512u);
  EXPECT_EQ(platform::DeviceBlockSize(fileFd), std::nullopt) << "a plain file is no disk";
  for (int fd : {wideFd, narrowFd, fileFd}) close(fd);
}

TEST_F(PlatformDiskTest, MountPathOfAVolumeFollowsItsMount) {
  const std::string type = UsableFileSystem();
  if (type.empty()) GTEST_SKIP() << "neither vfat (with mkfs.fat) nor ext2 (with mkfs.ext2) can be made";
  ASSERT_EQ(Shell((type == "vfat" ? "mkfs.fat '" : "mkfs.ext2 -q -F '") + image_ + "' >/dev/null"), 0);
  const std::string device = AttachLoop("");
  ASSERT_FALSE(device.empty()) << "losetup failed";
  EXPECT_EQ(platform::VolumeMountPath(device), std::nullopt) << "not mounted yet";

  // Blanks and backslashes are escaped in the kernel's mount table.
  const std::string mountPoint = folder_.path() + "/Zq Volume\\1";
  ASSERT_EQ(mkdir(mountPoint.c_str(), 0755), 0);
  {
    ASSERT_EQ(Shell("mount -t " + type + " /dev/" + device + " '" + mountPoint + "'"), 0);
    AtEnd unmount("umount '" + mountPoint + "'");
    EXPECT_EQ(platform::VolumeMountPath(device), mountPoint);
  }
  EXPECT_EQ(platform::VolumeMountPath(device), std::nullopt) << "unmounted again";
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
  Shell("mkdir -p \"$(dirname '" + program + "')\" && cp '" + HelperProgram() + "' '" + program + "'");
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
