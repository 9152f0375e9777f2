// The Linux side of the platform seam, on real devices and real files.
#include <gtest/gtest.h>
#include <sys/mount.h>

#include <string>

#include "platform/Mounts.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/TempDir.h"

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

}  // namespace
