#include "CNorvane.h"

#include <gtest/gtest.h>

#include "Platform.h"
#include "StubBundle.h"

namespace {

class CNorvaneTest : public testing::Test {
 protected:

  void UnmountSucceeds() { bundle.Answer("diskutil-unmount.stdout", "Volume disk2s1 on disk2s1 unmounted successfully\n"); }

  StubBundle bundle;
  // The operations take the bundle path when they are made.
  bool bundleSet = (platform::SetMainBundlePath(bundle.bundlePath()), true);
  CNorvane norvane;
};

TEST_F(CNorvaneTest, MountHandsTheWordsToTheMounterAfterUnmounting) {
  UnmountSucceeds();
  bundle.Answer("zq-mounter.exit", "7");
  const int result = norvane.Bitlocker_Mount(std::string("disk2s1"), std::string("/Volumes/My\\ Disk"),
                                             std::string("rw,nobrowse"), std::string("it's a \"secret\" $HOME"));
  EXPECT_EQ(result, 7);
  const std::vector<StubCall> expected = {
      {"diskutil", {"unmount", "disk2s1"}},
      // No /dev/disk2s1 here, so the raw device word is empty.
      {"zq-mounter", {"", "/Volumes/My Disk", "rw,nobrowse", "it's a \"secret\" $HOME"}},
  };
  EXPECT_EQ(bundle.Calls(), expected);
}

TEST_F(CNorvaneTest, SecondWordReachesTheShellUnquotedAndThirdIsQuotedAsItStands) {
  UnmountSucceeds();
  norvane.Bitlocker_Mount(std::string("disk2s1"), std::string("two words"), std::string("a b"), std::string(""));
  const std::vector<StubCall> mounter = bundle.CallsOf("zq-mounter");
  ASSERT_EQ(mounter.size(), 1u);
  EXPECT_EQ(mounter[0].arguments, (std::vector<std::string>{"", "two", "words", "a b", ""}));
}

TEST_F(CNorvaneTest, AlreadyUnmountedCountsAsUnmounted) {
  bundle.Answer("diskutil-unmount.stderr", "disk2s1 was already unmounted\n");
  EXPECT_EQ(norvane.Bitlocker_Mount(std::string("disk2s1"), std::string(""), std::string(""), std::string("")), 0);
  EXPECT_EQ(bundle.CallsOf("zq-mounter").size(), 1u);
}

TEST_F(CNorvaneTest, UnmountWithoutTheExpectedWordsStopsTheMount) {
  bundle.Answer("diskutil-unmount.stdout", "Volume disk2s1 unmounted\n");
  bundle.Answer("diskutil-unmount.stderr", "something else\n");
  EXPECT_EQ(norvane.Bitlocker_Mount(std::string("disk2s1"), std::string("x"), std::string("y"), std::string("z")), 19);
  EXPECT_EQ(norvane.Bitlocker_Explorer(std::string("disk2s1"), std::string("pw")), 19);
  EXPECT_TRUE(bundle.CallsOf("zq-mounter").empty());
  EXPECT_TRUE(bundle.CallsOf("open_bitlocker_device").empty());
}

TEST_F(CNorvaneTest, OutputThatIsNotUtf8CountsAsAMatch) {
  bundle.Answer("diskutil-unmount.stdout", "\xff\xfe not text\n");
  EXPECT_TRUE(norvane.Unmount(std::string("disk2s1")));
  bundle.Answer("diskutil-mount.stdout", "\xc3\x28\n");
  EXPECT_TRUE(norvane.Mount(std::string("disk2s1")));
}

TEST_F(CNorvaneTest, MountIsAPlainSubstringTest) {
  bundle.Answer("diskutil-mount.stdout", "Volume disk2s1 on /dev/disk2s1 unmounted\n");
  EXPECT_TRUE(norvane.Mount(std::string("disk2s1")));
  bundle.Answer("diskutil-mount.stdout", "failed\n");
  EXPECT_FALSE(norvane.Mount(std::string("disk2s1")));
  EXPECT_EQ(bundle.CallsOf("diskutil").back().arguments, (std::vector<std::string>{"mount", "disk2s1"}));
}

TEST_F(CNorvaneTest, BothUnmountNamesBehaveAlike) {
  EXPECT_FALSE(norvane.Unmount(std::string("disk9")));
  EXPECT_FALSE(norvane.Bitlocker_Unmount(std::string("disk9")));
  UnmountSucceeds();
  EXPECT_TRUE(norvane.Bitlocker_Unmount(std::string("/Volumes/X")));
  EXPECT_EQ(bundle.CallsOf("diskutil").back().arguments, (std::vector<std::string>{"unmount", "/Volumes/X"}));
}

TEST_F(CNorvaneTest, MissingMounterGivesTheShellsStatus) {
  UnmountSucceeds();
  RunShell("rm '" + bundle.bundlePath() + "/Contents/MacOS/zq-mounter'");
  EXPECT_EQ(norvane.Bitlocker_Mount(std::string("disk2s1"), std::string(""), std::string(""), std::string("")), 127);
}

TEST_F(CNorvaneTest, MissingFieldIsFormattedAsNull) {
  UnmountSucceeds();
  // "diskutil unmount (null)" is no command the shell accepts: nothing runs.
  EXPECT_EQ(norvane.Bitlocker_Mount(std::nullopt, std::string("a"), std::string("b"), std::string("c")), 19);
  EXPECT_TRUE(bundle.Calls().empty());
  norvane.Bitlocker_Mount(std::string("disk2s1"), std::string("a"), std::string("b"), std::nullopt);
  EXPECT_EQ(bundle.CallsOf("zq-mounter").at(0).arguments, (std::vector<std::string>{"", "a", "b", "(null)"}));
}

}  // namespace
