// The Linux side of the platform seam, on real devices and real files.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <cstdlib>
#include <string>

#include "LoopDevice.h"
#include "Platform.h"
#include "TaskWrapper.h"
#include "TempDir.h"

namespace {

// The kernel's mount table escapes blanks and backslashes.
TEST(PlatformLinuxTest, MountPathFollowsTheMountWhateverThePathHolds) {
  const std::string reason = LoopDevicesUnavailable();
  if (!reason.empty()) GTEST_SKIP() << reason;
  TempDir folder;
  const std::string image = folder("disk.img"), mountPoint = folder("Zq Volume\\1");
  ASSERT_EQ(RunShell("truncate -s 8M '" + image + "' && mkfs.ext4 -q '" + image + "' 2>/dev/null && mkdir '" +
                     mountPoint + "'"),
            0);
  LoopDevice loop(image);
  ASSERT_TRUE(loop.valid()) << "losetup failed";
  EXPECT_EQ(platform::VolumeMountPath(loop.bsdName()), std::nullopt) << "not mounted yet";
  ASSERT_TRUE(loop.Mount(mountPoint, "ext4"));
  EXPECT_EQ(platform::VolumeMountPath(loop.bsdName()), mountPoint);
  ASSERT_EQ(umount(mountPoint.c_str()), 0);
  EXPECT_EQ(platform::VolumeMountPath(loop.bsdName()), std::nullopt) << "unmounted again";
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
