#include "bitlocker/CBitlockerChecker.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "tests/support/LoopDevice.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"

namespace {

// The self-contained route, on real loop devices: the signature in the
// first block, or the block a marker file on the mounted volume points at
// (eight little-endian bytes behind 16 others).  The volume is ext2, which
// every kernel here can mount and mkfs.ext2 fills without a mount.
TEST(CheckBitlockerMarkTest, FindsTheSignatureWhereItCounts) {
  const std::string why = LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  const std::string toNearEnd("\x00\x00\x7f\0\0\0\0\0", 8);  // 0x7f0000 is free on the volume
  const std::string signature = "-FVE-FS-";
  const struct {
    const char* name;
    std::vector<std::pair<std::string, std::string>> markers;  // file name, offset bytes
    std::vector<std::pair<off_t, std::string>> planted;  // written into the volume after it is made
    bool expected;
    const char* linkedMarker = nullptr;  // a marker that is a link to a file outside the volume
  } cases[] = {
      {"signature at byte three", {}, {{0, std::string("\xeb\x58\x90-FVE-FS-", 11)}}, true},
      {"signature behind a zero byte", {}, {{0, std::string("\xeb\x58\x90" "ab\0cd" "---FVE-FS-", 18)}}, false},
      {"marker leads to the signature", {{"COV 0000. BL", toNearEnd}}, {{0x7f0000, signature}}, true},
      // 80 01 reads as 0x100 - 0x80 = 128, not 0x180.
      {"offset bytes are signed and borrow", {{"COV 0000. BL", std::string("\x80\x01\0\0\0\0\0\0", 8)}},
       {{128, signature}, {0x180, "xxxxxxxxxxxxxxxx"}}, true},
      {"negative offset", {{"COV 0000. BL", std::string("\x80\0\0\0\0\0\0\0", 8)}}, {}, false},
      {"upper-case extension wins", {{"A 0000. bl", toNearEnd}, {"B 0000. BL", std::string("\0\x10\x7f\0\0\0\0\0", 8)}},
       {{0x7f0000, signature}}, false},
      {"lower case serves alone", {{"A 0000. bl", toNearEnd}}, {{0x7f0000, signature}}, true},
      {"extension without the blank", {{"COV 0000.BL", toNearEnd}}, {{0x7f0000, signature}}, false},
      {"a marker that is a link is not followed", {}, {{0x7f0000, signature}}, false, "COV 0000. BL"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const TempDir dir;
    const std::string image = dir("disk.img"), files = dir("files"), mountPoint = dir("volume");
    ASSERT_EQ(RunShell("mkdir '" + files + "' '" + mountPoint + "' && truncate -s 8M '" + image + "'"), 0);
    for (const auto& [name, offset] : c.markers)
      std::ofstream(files + "/" + name, std::ios::binary) << std::string(16, 'M') << offset;
    const bool mounted = !c.markers.empty() || c.linkedMarker != nullptr;
    if (c.linkedMarker != nullptr) {
      std::ofstream(dir("outside"), std::ios::binary) << std::string(16, 'M') << toNearEnd;
      ASSERT_EQ(symlink(dir("outside").c_str(), (files + "/" + c.linkedMarker).c_str()), 0);
    }
    ASSERT_EQ(RunShell("mkfs.ext2 -q -F -d '" + files + "' '" + image + "'"), 0);
    std::fstream volume(image, std::ios::in | std::ios::out | std::ios::binary);
    for (const auto& [offset, bytes] : c.planted) volume.seekp(offset).write(bytes.data(), bytes.size());
    ASSERT_TRUE(volume.flush());
    {
      // The signature cases need no mount, so their device may have
      // 4096-byte blocks, which the check must read in.
      const unsigned blockSize = mounted ? 512 : 4096;
      LoopDevice loop(image, blockSize);
      ASSERT_TRUE(loop.valid());
      CBitlockerChecker checker;
      if (mounted) {
        ASSERT_TRUE(loop.Mount(mountPoint, "ext2"));
        EXPECT_EQ(checker.bsdNameToFilePath(loop.bsdName().c_str()), std::optional<std::string>(mountPoint));
      }
      ASSERT_TRUE(checker.openDisk(loop.bsdName().c_str()));
      ASSERT_TRUE(checker.openDisk(loop.bsdName().c_str())) << "a second open replaces the first";
      EXPECT_EQ(checker.getBlockSize(), blockSize);
      EXPECT_EQ(checker.checkBitlockerMark(loop.bsdName().c_str()), c.expected);
    }
  }
}

}  // namespace
