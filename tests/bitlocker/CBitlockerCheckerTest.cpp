#include "CBitlockerChecker.h"

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>

#include "LoopDevice.h"
#include "Platform.h"
#include "StubBundle.h"

namespace {

TEST(IsBitlockerTest, AsksTheLibraryAndTouchesNothingElse) {
  StubBundle bundle;
  platform::SetMainBundlePath(bundle.bundlePath());
  CBitlockerChecker checker;
  EXPECT_FALSE(checker.IsBitlocker("disk2s1"));
  bundle.Answer("is_bitlocker", "");
  EXPECT_TRUE(checker.IsBitlocker("disk2s1"));
  // /dev/disk2s1 is no block device here: the library is asked with "".
  const std::vector<StubCall> asked = {{"is_bitlocker_drive", {""}}, {"is_bitlocker_drive", {""}}};
  EXPECT_EQ(bundle.Calls(), asked);
  EXPECT_EQ(checker.getDeviceRname("/dev/null"), "");  // a character device
  EXPECT_EQ(checker.getDeviceRname(nullptr), "");
}

// The self-contained route, on real loop devices: the signature in the
// first block, or the block a marker file on the mounted volume points at.
// Where the kernel has no FAT driver the volume is built as ext2.
struct MarkerCase {
  const char* name;
  std::string firstBytes;                                // written at offset 0 when not empty
  std::vector<std::pair<std::string, std::string>> markers;  // file name, offset bytes
  std::vector<std::pair<off_t, std::string>> planted;
  bool expected;
};

void PrintTo(const MarkerCase& param, std::ostream* out) { *out << param.name; }

std::string Bytes(std::initializer_list<unsigned char> bytes) { return std::string(bytes.begin(), bytes.end()); }

constexpr off_t kNearEnd = 0x7f0000;  // free on both kinds of volume
const std::string kToNearEnd = Bytes({0x00, 0x00, 0x7f, 0, 0, 0, 0, 0});
const std::string kToNothing = Bytes({0x00, 0x10, 0x7f, 0, 0, 0, 0, 0});

class CheckBitlockerMarkTest : public testing::TestWithParam<MarkerCase> {};

TEST_P(CheckBitlockerMarkTest, FindsTheSignatureWhereItCounts) {
  const std::string why = LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  const bool fat = RunShell("grep -qw vfat /proc/filesystems || modprobe vfat 2>/dev/null") == 0;
  const char* tools = fat ? "command -v mkfs.fat && command -v mcopy" : "command -v mkfs.ext2";
  if (RunShell(std::string(tools) + " >/dev/null") != 0) GTEST_SKIP() << "mkfs.fat and mcopy, or mkfs.ext2, are needed";

  const MarkerCase& param = GetParam();
  const std::string dir = MakeTempDir("zq-signature-");
  const std::string image = dir + "/disk.img", files = dir + "/files", mountPoint = dir + "/volume";
  ASSERT_EQ(RunShell("mkdir '" + files + "' '" + mountPoint + "' && truncate -s 8M '" + image + "'"), 0);
  for (const auto& [name, offset] : param.markers)
    std::ofstream(files + "/" + name, std::ios::binary) << std::string(16, 'M') << offset;
  if (fat) {
    ASSERT_EQ(RunShell("mkfs.fat -F 16 '" + image + "' >/dev/null && cd '" + files +
                       "' && for f in *; do [ -e \"$f\" ] || continue; mcopy -i '" + image + "' \"$f\" \"::$f\"; done"),
              0);
  } else {
    ASSERT_EQ(RunShell("mkfs.ext2 -q -F -d '" + files + "' '" + image + "'"), 0);
  }
  std::vector<std::pair<off_t, std::string>> planted = param.planted;
  if (!param.firstBytes.empty()) planted.emplace_back(0, param.firstBytes);
  const int fd = open(image.c_str(), O_WRONLY);
  for (const auto& [offset, bytes] : planted)
    ASSERT_EQ(pwrite(fd, bytes.data(), bytes.size(), offset), static_cast<ssize_t>(bytes.size()));
  close(fd);

  {
    // The signature cases need no mount, so their device may have 4096-byte
    // blocks, which the check must read in.
    const unsigned blockSize = param.firstBytes.empty() ? 512 : 4096;
    LoopDevice loop(image, blockSize);
    ASSERT_TRUE(loop.valid());
    CBitlockerChecker checker;
    EXPECT_EQ(checker.getBlockSize(), 512u) << "nothing open yet";
    if (param.firstBytes.empty()) {
      ASSERT_TRUE(loop.Mount(mountPoint, fat ? "vfat" : "ext2"));
      EXPECT_EQ(checker.bsdNameToFilePath(loop.bsdName().c_str()), std::optional<std::string>(mountPoint));
    }
    ASSERT_TRUE(checker.openDisk(loop.bsdName().c_str()));
    ASSERT_TRUE(checker.openDisk(loop.bsdName().c_str())) << "a second open replaces the first";
    EXPECT_EQ(checker.getBlockSize(), blockSize);
    EXPECT_EQ(checker.checkBitlockerMark(loop.bsdName().c_str()), param.expected);
  }
  RunShell("rm -rf '" + dir + "'");
}

INSTANTIATE_TEST_SUITE_P(
    Cases, CheckBitlockerMarkTest,
    testing::Values(
        MarkerCase{"SignatureAtByteThree", std::string("\xeb\x58\x90-FVE-FS-", 11), {}, {}, true},
        MarkerCase{"SignatureBehindAZeroByte", std::string("\xeb\x58\x90" "ab\0cd" "---FVE-FS-", 18), {}, {}, false},
        MarkerCase{"MarkerLeadsToTheSignature", "", {{"COV 0000. BL", kToNearEnd}}, {{kNearEnd, "-FVE-FS-"}}, true},
        // 80 01 reads as 0x100 - 0x80 = 128, not 0x180.
        MarkerCase{"OffsetBytesAreSignedAndBorrow", "", {{"COV 0000. BL", Bytes({0x80, 0x01, 0, 0, 0, 0, 0, 0})}},
                   {{128, "-FVE-FS-"}, {0x180, "xxxxxxxxxxxxxxxx"}}, true},
        MarkerCase{"NegativeOffset", "", {{"COV 0000. BL", Bytes({0x80, 0, 0, 0, 0, 0, 0, 0})}}, {}, false},
        MarkerCase{"UpperCaseExtensionWins", "", {{"A 0000. bl", kToNearEnd}, {"B 0000. BL", kToNothing}},
                   {{kNearEnd, "-FVE-FS-"}}, false},
        MarkerCase{"LowerCaseServesAlone", "", {{"A 0000. bl", kToNearEnd}}, {{kNearEnd, "-FVE-FS-"}}, true},
        MarkerCase{"ExtensionWithoutTheBlank", "", {{"COV 0000.BL", kToNearEnd}}, {{kNearEnd, "-FVE-FS-"}}, false}),
    [](const testing::TestParamInfo<MarkerCase>& info) { return std::string(info.param.name); });

}  // namespace
