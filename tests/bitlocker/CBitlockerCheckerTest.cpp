#include "CBitlockerChecker.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>

#include "LoopDevice.h"
#include "Platform.h"
#include "StubBundle.h"

namespace {

class IsBitlockerTest : public testing::Test {
 protected:
  StubBundle bundle;
  // The operations take the bundle path when they are made.
  bool bundleSet = (platform::SetMainBundlePath(bundle.bundlePath()), true);
  CBitlockerChecker checker;
};

TEST_F(IsBitlockerTest, YesFromTheLibraryUnmountsTheDevice) {
  bundle.Answer("is_bitlocker", "");
  EXPECT_TRUE(checker.IsBitlocker("disk2s1"));
  // /dev/disk2s1 is no block device here: the library is asked with "".
  const std::vector<StubCall> expected = {{"is_bitlocker_drive", {""}}, {"diskutil", {"unmount", "disk2s1"}}};
  EXPECT_EQ(bundle.Calls(), expected);
}

TEST_F(IsBitlockerTest, NoFromTheLibraryLeavesTheDeviceAlone) {
  EXPECT_FALSE(checker.IsBitlocker("disk2s1"));
  EXPECT_EQ(bundle.Calls(), (std::vector<StubCall>{{"is_bitlocker_drive", {""}}}));
}

TEST_F(IsBitlockerTest, MissingLibraryAnswersNo) {
  RunShell("rm '" + bundle.bundlePath() + "/Contents/MacOS/libBitLockerWapper.dylib'");
  bundle.Answer("is_bitlocker", "");
  EXPECT_FALSE(checker.IsBitlocker("disk2s1"));
  EXPECT_TRUE(bundle.Calls().empty());
}

TEST(RawDevicePath, OnlyBlockDevicesHaveOne) {
  CBitlockerChecker checker;
  EXPECT_EQ(checker.getDeviceRname("/dev/null"), "");  // a character device
  EXPECT_EQ(checker.getDeviceRname("/etc/hostname"), "");
  EXPECT_EQ(checker.getDeviceRname("/dev/does-not-exist"), "");
  EXPECT_EQ(checker.getDeviceRname(nullptr), "");
}

// The self-contained route, on real loop devices.
class SignatureTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::string why = LoopDevicesUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    dir = MakeTempDir("zq-signature-");
    image = dir + "/disk.img";
  }
  void TearDown() override {
    loop.reset();
    if (!dir.empty()) RunShell("rm -rf '" + dir + "'");
  }

  void Resize(size_t bytes) {
    std::ofstream(image, std::ios::binary | std::ios::trunc);
    ASSERT_EQ(truncate(image.c_str(), static_cast<off_t>(bytes)), 0);
  }
  void WriteAt(const std::string& path, off_t offset, const std::string& bytes) {
    const int fd = open(path.c_str(), O_WRONLY);
    ASSERT_NE(fd, -1);
    ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
    close(fd);
  }
  void Attach(unsigned sectorSize = 0) {
    loop = std::make_unique<LoopDevice>(image, sectorSize);
    ASSERT_TRUE(loop->valid()) << "losetup failed";
  }
  bool Check() {
    CBitlockerChecker checker;
    return checker.openDisk(loop->bsdName().c_str()) && checker.checkBitlockerMark(loop->bsdName().c_str());
  }

  std::string dir, image;
  std::unique_ptr<LoopDevice> loop;
};

TEST_F(SignatureTest, SignatureAtByteThreeIsFound) {
  Resize(1 << 20);
  WriteAt(image, 0, std::string("\xeb\x58\x90-FVE-FS-", 11));
  Attach();
  EXPECT_TRUE(Check());
}

TEST_F(SignatureTest, SignatureBehindAZeroByteIsNotFound) {
  Resize(1 << 20);
  WriteAt(image, 0, std::string("\xeb\x58\x90" "ab\0cd" "--", 10) + "-FVE-FS-");
  Attach();
  EXPECT_FALSE(Check());
}

TEST_F(SignatureTest, OpenDiskRefusesWhatIsNotABlockDevice) {
  CBitlockerChecker checker;
  EXPECT_FALSE(checker.openDisk("null"));
  EXPECT_FALSE(checker.openDisk("no-such-disk"));
  EXPECT_FALSE(checker.checkBitlockerMark("no-such-disk"));
}

TEST_F(SignatureTest, BlockSizeComesFromTheDeviceWith512AsFallback) {
  Resize(1 << 20);
  Attach(4096);
  CBitlockerChecker checker;
  EXPECT_EQ(checker.getBlockSize(), 512u);  // nothing open yet
  ASSERT_TRUE(checker.openDisk(loop->bsdName().c_str()));
  EXPECT_EQ(checker.getBlockSize(), 4096u);
}

TEST_F(SignatureTest, OpeningTwiceKeepsOneDescriptor) {
  Resize(1 << 20);
  Attach();
  auto openDescriptors = [] {
    int count = 0;
    DIR* fds = opendir("/proc/self/fd");
    while (readdir(fds) != nullptr) ++count;
    closedir(fds);
    return count;
  };
  CBitlockerChecker checker;
  ASSERT_TRUE(checker.openDisk(loop->bsdName().c_str()));
  const int afterFirst = openDescriptors();
  ASSERT_TRUE(checker.openDisk(loop->bsdName().c_str()));
  EXPECT_EQ(openDescriptors(), afterFirst);
}

// A To Go style volume: a FAT volume whose root holds a marker file that
// points at the signature elsewhere on the device.  Where the kernel has no
// FAT driver the same volume is built as ext2.
class MarkerFileTest : public SignatureTest {
 protected:
  void SetUp() override {
    SignatureTest::SetUp();
    if (IsSkipped()) return;
    fat = RunShell("grep -qw vfat /proc/filesystems || modprobe vfat 2>/dev/null") == 0;
    const char* tools = fat ? "command -v mkfs.fat && command -v mcopy" : "command -v mkfs.ext2";
    if (RunShell(std::string(tools) + " >/dev/null") != 0)
      GTEST_SKIP() << (fat ? "mkfs.fat and mcopy (dosfstools, mtools) are needed" : "mkfs.ext2 is needed");
    files = dir + "/files";
    mountPoint = dir + "/volume";
    ASSERT_EQ(RunShell("mkdir '" + files + "' '" + mountPoint + "'"), 0);
  }

  // A marker file's 24 bytes: 16 of anything, then the offset bytes.
  void AddMarker(const std::string& name, const std::string& offsetBytes) {
    std::ofstream(files + "/" + name, std::ios::binary) << std::string(16, 'M') << offsetBytes;
  }
  // Bytes written on the device once the volume is built.
  void Plant(off_t offset, const std::string& bytes) { planted.emplace_back(offset, bytes); }

  void MountVolume() {
    Resize(8 << 20);
    if (fat) {
      ASSERT_EQ(RunShell("mkfs.fat -F 16 '" + image + "' >/dev/null && cd '" + files +
                         "' && for f in *; do [ -e \"$f\" ] || continue; mcopy -i '" + image + "' \"$f\" \"::$f\"; done"),
                0);
    } else {
      ASSERT_EQ(RunShell("mkfs.ext2 -q -F -d '" + files + "' '" + image + "'"), 0);
    }
    for (const auto& [offset, bytes] : planted) WriteAt(image, offset, bytes);
    Attach();
    ASSERT_TRUE(loop->Mount(mountPoint, fat ? "vfat" : "ext2"));
  }

  static std::string Offset(std::initializer_list<unsigned char> bytes) {
    return std::string(bytes.begin(), bytes.end());
  }

  bool fat = false;
  std::string files, mountPoint;
  std::vector<std::pair<off_t, std::string>> planted;
};

constexpr off_t kSignatureNearEnd = 0x7f0000;  // near the end, free on both kinds of volume

TEST_F(MarkerFileTest, MarkerLeadsToTheSignature) {
  Plant(kSignatureNearEnd, "-FVE-FS-");
  AddMarker("COV 0000. BL", Offset({0x00, 0x00, 0x7f, 0, 0, 0, 0, 0}));
  MountVolume();
  EXPECT_TRUE(Check());
}

TEST_F(MarkerFileTest, OffsetBytesAreSignedAndBorrow) {
  // 80 01 reads as 0x100 - 0x80 = 128, not 0x180: the signature sits at 128.
  Plant(128, "-FVE-FS-");
  Plant(0x180, "xxxxxxxxxxxxxxxx");
  AddMarker("COV 0000. BL", Offset({0x80, 0x01, 0, 0, 0, 0, 0, 0}));
  MountVolume();
  EXPECT_TRUE(Check());
}

TEST_F(MarkerFileTest, NegativeOffsetIsNotFound) {
  AddMarker("COV 0000. BL", Offset({0x80, 0, 0, 0, 0, 0, 0, 0}));
  MountVolume();
  EXPECT_FALSE(Check());
}

TEST_F(MarkerFileTest, UpperCaseExtensionWinsOverLowerCase) {
  Plant(kSignatureNearEnd, "-FVE-FS-");
  const std::string toSignature = Offset({0x00, 0x00, 0x7f, 0, 0, 0, 0, 0});
  const std::string toNothing = Offset({0x00, 0x10, 0x7f, 0, 0, 0, 0, 0});
  AddMarker("A 0000. bl", toSignature);
  AddMarker("B 0000. BL", toNothing);
  MountVolume();
  EXPECT_FALSE(Check());
}

TEST_F(MarkerFileTest, LowerCaseExtensionServesWhenThereIsNoUpperCase) {
  Plant(kSignatureNearEnd, "-FVE-FS-");
  AddMarker("A 0000. bl", Offset({0x00, 0x00, 0x7f, 0, 0, 0, 0, 0}));
  MountVolume();
  EXPECT_TRUE(Check());
}

TEST_F(MarkerFileTest, ExtensionWithoutTheBlankIsNoMarker) {
  Plant(kSignatureNearEnd, "-FVE-FS-");
  AddMarker("COV 0000.BL", Offset({0x00, 0x00, 0x7f, 0, 0, 0, 0, 0}));
  MountVolume();
  EXPECT_FALSE(Check());
}

TEST_F(MarkerFileTest, MountPathComesFromTheMountTable) {
  MountVolume();
  CBitlockerChecker checker;
  EXPECT_EQ(checker.bsdNameToFilePath(loop->bsdName().c_str()), std::optional<std::string>(mountPoint));
}

}  // namespace
