#include "CNorvane.h"

#include <gtest/gtest.h>

#include "FileContents.h"
#include "Platform.h"
#include "StubBundle.h"

namespace {

class CNorvaneTest : public testing::Test {
 protected:
  void UnmountSucceeds() { bundle.Answer("diskutil-unmount.stdout", "Volume disk2s1 on disk2s1 unmounted successfully\n"); }
  void SetUp() override { bundle.Answer("is_bitlocker", ""); }
  int Mount(const OptionalString& device, const OptionalString& point, const OptionalString& options,
            const OptionalString& credential) {
    return norvane.Bitlocker_Mount(device, point, options, credential);
  }

  StubBundle bundle;
  // The operations take the bundle path when they are made.
  bool bundleSet = (platform::SetMainBundlePath(bundle.bundlePath()), true);
  CNorvane norvane;
};

TEST_F(CNorvaneTest, MountUnmountsThenHandsTheWordsToTheMounterAndAnswersItsStatus) {
  UnmountSucceeds();
  bundle.Answer("zq-mounter.exit", "7");
  EXPECT_EQ(Mount("disk2s1", "/Volumes/My\\ Disk", "rw,nobrowse", "it's a \"secret\" $HOME"), 7);
  const std::string firstCredential = ReadFile(bundle.stubDir() + "/zq-mounter.input");
  EXPECT_EQ(Mount("disk2s1", "two\\ words", "a b", std::nullopt), 7);
  // No /dev/disk2s1 here, so the raw device word is empty.  The mount point
  // is the path its word stands for, and the credential comes on standard
  // input, never as a word.
  const std::vector<StubCall> expected = {
      {"is_bitlocker_drive", {""}},
      {"diskutil", {"unmount", "disk2s1"}},
      {"zq-mounter", {"", "/Volumes/My Disk", "rw,nobrowse"}},
      {"is_bitlocker_drive", {""}},
      {"diskutil", {"unmount", "disk2s1"}},
      {"zq-mounter", {"", "two words", "a b"}},
  };
  EXPECT_EQ(bundle.Calls(), expected);
  EXPECT_EQ(firstCredential, "it's a \"secret\" $HOME\n");
  EXPECT_EQ(ReadFile(bundle.stubDir() + "/zq-mounter.input"), "(null)\n");
}

TEST_F(CNorvaneTest, UnmountIsJudgedByItsWords) {
  bundle.Answer("diskutil-unmount.stderr", "disk2s1 was already unmounted\n");
  EXPECT_EQ(Mount("disk2s1", "", "", ""), 0);
  EXPECT_EQ(bundle.CallsOf("zq-mounter").size(), 1u);

  bundle.Answer("diskutil-unmount.stdout", "Volume disk2s1 unmounted\n");
  bundle.Answer("diskutil-unmount.stderr", "something else\n");
  EXPECT_EQ(Mount("disk2s1", "x", "y", "z"), 19);
  EXPECT_EQ(norvane.Bitlocker_Explorer(std::string("disk2s1"), std::string("pw")), 19);
  EXPECT_EQ(bundle.CallsOf("zq-mounter").size(), 1u);
  EXPECT_TRUE(bundle.CallsOf("open_bitlocker_device").empty());
  // "diskutil unmount (null)" is no command the shell accepts.
  EXPECT_EQ(Mount(std::nullopt, "a", "b", "c"), 19);
}

TEST_F(CNorvaneTest, DeviceTheLibraryDoesNotCallBitlockerIsNotTouched) {
  UnmountSucceeds();
  const std::string library = bundle.bundlePath() + "/Contents/MacOS/libBitLockerWapper.dylib";
  RunShell("mv '" + library + "' '" + library + ".away'");
  EXPECT_EQ(Mount("disk2s1", "/media/x", "raw", "pw"), 6);
  EXPECT_EQ(norvane.Bitlocker_Explorer(std::string("disk2s1"), std::string("pw")), 255);
  RunShell("mv '" + library + ".away' '" + library + "'");

  bundle.RemoveAnswer("is_bitlocker");
  EXPECT_EQ(Mount("disk2s1", "/media/x", "raw", "pw"), 1);
  EXPECT_EQ(norvane.Bitlocker_Explorer(std::string("disk2s1"), std::string("pw")), 1);
  EXPECT_EQ(bundle.Calls(), (std::vector<StubCall>{{"is_bitlocker_drive", {""}}, {"is_bitlocker_drive", {""}}}));
}

TEST_F(CNorvaneTest, MountIsAPlainSubstringTest) {
  bundle.Answer("diskutil-mount.stdout", "Volume disk2s1 on /dev/disk2s1 unmounted\n");
  EXPECT_TRUE(norvane.Mount(std::string("disk2s1")));
  bundle.Answer("diskutil-mount.stdout", "failed\n");
  EXPECT_FALSE(norvane.Mount(std::string("disk2s1")));
  EXPECT_EQ(bundle.CallsOf("diskutil").back().arguments, (std::vector<std::string>{"mount", "disk2s1"}));
}

TEST_F(CNorvaneTest, MissingMounterAnswers127AsAShellWould) {
  UnmountSucceeds();
  RunShell("rm '" + bundle.bundlePath() + "/Contents/MacOS/zq-mounter'");
  EXPECT_EQ(Mount("disk2s1", "", "", ""), 127);
}

}  // namespace
