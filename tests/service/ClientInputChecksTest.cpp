#include "ClientInputChecks.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <random>

#include "TaskWrapper.h"

namespace {

TEST(ClientInputChecks, PlainDeviceNames) {
  for (const char* good : {"disk2s1", "loop3", "nvme0n1p2", "sda", "md-0", "dm_1.x"})
    EXPECT_TRUE(IsPlainDeviceName(std::string(good))) << good;
  for (const char* bad : {"", ".hidden", "..", "disk2s1; rm -rf /", "../etc", "disk 2", "disk$(id)", "a/b", "é"})
    EXPECT_FALSE(IsPlainDeviceName(std::string(bad))) << bad;
  EXPECT_FALSE(IsPlainDeviceName(std::nullopt));
}

TEST(ClientInputChecks, OptionsMayHoldAnythingButASingleQuote) {
  EXPECT_TRUE(FitsInSingleQuotes(std::string("raw,ro $HOME `x` \"y\"")));
  EXPECT_TRUE(FitsInSingleQuotes(std::string("")));
  EXPECT_FALSE(FitsInSingleQuotes(std::string("a'; reboot; '")));
  EXPECT_FALSE(FitsInSingleQuotes(std::nullopt));
}

TEST(ClientInputChecks, MountPointWords) {
  for (const char* good : {"", "/mnt/disk", "/Volumes/My\\ Disk", "/media/a:b=c+d@e%f,g-h_i.j", "\\$HOME", "\\'"})
    EXPECT_TRUE(IsSingleShellWord(std::string(good))) << good;
  for (const char* bad : {"two words", "$HOME", "a;b", "a|b", "`id`", "a*", "~root", "x\\", "a\\\nb", "'q'", "a\tb"})
    EXPECT_FALSE(IsSingleShellWord(std::string(bad))) << bad;
}

// Whatever the check accepts, the shell reads as exactly the one word the
// client meant, with nothing expanded.
TEST(ClientInputChecks, AcceptedWordsReachTheShellAsOneLiteralWord) {
  const std::string alphabet = "ab/._-:=+@%,\\ $*?;|&<>()`'\"~#!{}[]\t";
  std::mt19937 random(20261123);
  int accepted = 0;
  for (int i = 0; i < 4000 && accepted < 60; ++i) {
    std::string word;
    for (int n = 1 + static_cast<int>(random() % 8); n > 0; --n) word += alphabet[random() % alphabet.size()];
    if (!IsSingleShellWord(word)) continue;
    ++accepted;
    std::string meant;
    for (size_t k = 0; k < word.size(); ++k) meant += word[k] == '\\' ? word[++k] : word[k];
    const TaskWrapper run = TaskWrapper::runScript("cd /tmp && printf '[%s]' " + word);
    EXPECT_EQ(run.response(), std::optional<std::string>("[" + meant + "]")) << word;
  }
  EXPECT_GE(accepted, 20);
}

}  // namespace

namespace {

class DaemonProgramTest : public testing::Test {
 protected:
  void SetUp() override {
    if (geteuid() != 0) GTEST_SKIP() << "ownership checks need root to make root-owned bundles";
    // /tmp lets everyone write, so the bundles live in a root-only folder.
    root = "/var/lib/zq-daemon-test-" + std::to_string(getpid());
    bundle = root + "/Zq Norvane.app";
    program = bundle + "/Contents/MacOS/Zq-NorvaneServices";
    ASSERT_EQ(std::system(("mkdir -p -m 755 '" + bundle + "/Contents/MacOS' && chmod 755 '" + root +
                           "' && touch '" + program + "' && chmod 755 '" + program + "'")
                              .c_str()),
              0);
  }
  void TearDown() override {
    if (!root.empty()) std::system(("rm -rf '" + root + "'").c_str());
  }
  std::string root, bundle, program;
};

TEST_F(DaemonProgramTest, RootOwnedBundleIsAccepted) {
  const char* reason = DaemonProgramRefusal(bundle);
  EXPECT_EQ(reason, nullptr) << reason;
}

TEST_F(DaemonProgramTest, MissingProgramIsRefused) {
  EXPECT_NE(DaemonProgramRefusal(root + "/Other.app"), nullptr);
  EXPECT_NE(DaemonProgramRefusal("relative/Zq Norvane.app"), nullptr);
}

TEST_F(DaemonProgramTest, WritableProgramOrFolderIsRefused) {
  for (const std::string& loosened : {program, bundle + "/Contents", root}) {
    std::system(("chmod o+w '" + loosened + "'").c_str());
    EXPECT_NE(DaemonProgramRefusal(bundle), nullptr) << loosened;
    std::system(("chmod o-w '" + loosened + "'").c_str());
  }
  std::system(("chmod g+w '" + program + "'").c_str());
  EXPECT_NE(DaemonProgramRefusal(bundle), nullptr);
}

TEST_F(DaemonProgramTest, ForeignOwnerIsRefused) {
  ASSERT_EQ(std::system(("chown 65534 '" + program + "'").c_str()), 0);
  EXPECT_NE(DaemonProgramRefusal(bundle), nullptr);
}

TEST_F(DaemonProgramTest, LinkIntoAWritablePlaceIsRefused) {
  const std::string elsewhere = "/tmp/zq-elsewhere-" + std::to_string(getpid()) + ".app";
  ASSERT_EQ(std::system(("mkdir -p '" + elsewhere + "/Contents/MacOS' && touch '" + elsewhere +
                         "/Contents/MacOS/Zq-NorvaneServices' && ln -s '" + elsewhere + "' '" + root + "/Linked.app'")
                            .c_str()),
            0);
  EXPECT_NE(DaemonProgramRefusal(root + "/Linked.app"), nullptr);
  std::system(("rm -rf '" + elsewhere + "'").c_str());
}

}  // namespace
