// The Linux side of the platform seam, on real devices and real files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "LoopDevice.h"
#include "Platform.h"
#include "TaskWrapper.h"
#include "TempDir.h"

namespace {

TEST(PlatformLinuxTest, DeviceNamesBlockSizesAndMountPathsOfLoopDevices) {
  const std::string reason = LoopDevicesUnavailable();
  if (!reason.empty()) GTEST_SKIP() << reason;
  TempDir folder;
  const std::string image = folder("disk.img");
  ASSERT_EQ(RunShell("truncate -s 8M '" + image + "' && mkfs.ext4 -q '" + image + "' 2>/dev/null"), 0);
  const LoopDevice wide(image, 4096), narrow(image, 0, true);
  LoopDevice mounted(image);
  ASSERT_TRUE(wide.valid() && narrow.valid() && mounted.valid()) << "losetup failed";

  // Linux has no separate raw device: the raw name is the block device's own.
  const std::pair<const LoopDevice*, uint32_t> devices[] = {{&wide, 4096}, {&narrow, 512}};
  for (const auto& [loop, blockSize] : devices) {
    struct stat info;
    ASSERT_EQ(stat(loop->devicePath().c_str(), &info), 0);
    EXPECT_EQ(platform::RawDeviceName(info.st_rdev), loop->bsdName());
    const int fd = open(loop->devicePath().c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(platform::DeviceBlockSize(fd), blockSize);
    close(fd);
  }
  const int fileFd = open(image.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_EQ(platform::DeviceBlockSize(fileFd), std::nullopt) << "a plain file is no disk";
  close(fileFd);
  EXPECT_EQ(platform::RawDeviceName(makedev(0, 0)), "");
  const std::string unmounted[] = {"null", "zq-no-such-disk", mounted.bsdName()};
  for (const std::string& name : unmounted) EXPECT_EQ(platform::VolumeMountPath(name), std::nullopt) << name;

  // Blanks and backslashes are escaped in the kernel's mount table.
  const std::string mountPoint = folder("Zq Volume\\1");
  ASSERT_EQ(mkdir(mountPoint.c_str(), 0755), 0);
  ASSERT_TRUE(mounted.Mount(mountPoint, "ext4"));
  EXPECT_EQ(platform::VolumeMountPath(mounted.bsdName()), mountPoint);
  ASSERT_EQ(umount(mountPoint.c_str()), 0);
  EXPECT_EQ(platform::VolumeMountPath(mounted.bsdName()), std::nullopt) << "unmounted again";
}

TEST(PlatformLinuxTest, MainBundleIsTheFolderAboveContentsMacOS) {
  const std::pair<std::string, std::string> cases[] = {
      {"Zq Norvane.app/Contents/MacOS/helper", "Zq Norvane.app"},
      {"bin/tool", "bin"},
      {"X.app/contents/MacOS/tool", "X.app/contents/MacOS"},
      {"X.app/Contents/MacOS/Inner/tool", "X.app/Contents/MacOS/Inner"},
  };
  TempDir folder;
  for (const auto& [program, bundle] : cases) {
    ASSERT_EQ(RunShell("mkdir -p \"$(dirname '" + folder(program) + "')\" && cp '" ZQ_SYSTEM_TEST_HELPER "' '" +
                       folder(program) + "'"),
              0);
    EXPECT_EQ(TaskWrapper::runTaskAtLaunchPath(folder(program), {"bundle-path"}).response(), folder(bundle));
  }
}

TEST(PlatformLinuxTest, ChildPathEndsWithTheBundleProgramFolder) {
  const std::string folder = platform::MainBundlePath() + "/Contents/MacOS";
  const std::string oldPath = getenv("PATH") != nullptr ? getenv("PATH") : "";
  EXPECT_EQ(TaskWrapper::runScript("printf %s \"$PATH\"").response(), oldPath + ":" + folder);
  unsetenv("PATH");
  const std::string unset = TaskWrapper::runScript("printf %s \"$PATH\"").response().value_or("");
  setenv("PATH", oldPath.c_str(), 1);
  EXPECT_NE(unset.find(":/usr/bin:"), std::string::npos) << unset;
  EXPECT_EQ(unset.substr(unset.size() - folder.size() - 1), ":" + folder);
}

}  // namespace
