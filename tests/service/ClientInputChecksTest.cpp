#include "ClientInputChecks.h"

#include <gtest/gtest.h>

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
