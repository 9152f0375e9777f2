#include "service/ClientInputChecks.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <random>

#include "system/TaskWrapper.h"
#include "util/ShellQuoting.h"
#include "util/Utf8.h"

namespace {

TEST(ClientInputChecks, PlainDeviceNamesAndMountPointWords) {
  for (const char* good : {"disk2s1", "loop3", "nvme0n1p2", "sda", "md-0", "dm_1.x"})
    EXPECT_TRUE(IsPlainDeviceName(std::string(good))) << good;
  for (const char* bad : {"", ".hidden", "..", "disk2s1; rm -rf /", "../etc", "disk 2", "disk$(id)", "a/b", "é"})
    EXPECT_FALSE(IsPlainDeviceName(std::string(bad))) << bad;
  EXPECT_FALSE(IsPlainDeviceName(std::nullopt));
  for (const char* good :
       {"", "/mnt/disk", "/Volumes/My\\ Disk", "/media/a:b=c+d@e%f,g-h_i.j", "\\$HOME", "\\'", "/media/Ünï\\ Disk"})
    EXPECT_TRUE(IsSingleShellWord(std::string(good))) << good;
  for (const char* bad : {"two words", "$HOME", "a;b", "a|b", "`id`", "a*", "~root", "x\\", "a\\\nb", "'q'", "a\tb"})
    EXPECT_FALSE(IsSingleShellWord(std::string(bad))) << bad;
}

// Whatever the check accepts, the shell reads as exactly the one word that
// ShellWordText makes of it, with nothing expanded.
TEST(ClientInputChecks, AcceptedWordsReachTheShellAsOneLiteralWord) {
  const std::string alphabet = "ab/._-:=+@%,\\ $*?;|&<>()`'\"~#!{}[]\t\xc3\xa9";
  std::mt19937 random(20261123);
  int accepted = 0;
  for (int i = 0; i < 4000 && accepted < 60; ++i) {
    std::string word;
    for (int n = 1 + static_cast<int>(random() % 8); n > 0; --n) word += alphabet[random() % alphabet.size()];
    if (!IsValidUtf8(word) || !IsSingleShellWord(word)) continue;
    ++accepted;
    EXPECT_EQ(TaskWrapper::runScript("cd /tmp && printf '[%s]' " + word).response(), "[" + ShellWordText(word) + "]")
        << word;
  }
  EXPECT_GE(accepted, 20);
}

// Each case loosens a fresh root-owned bundle in a root-only folder with a
// shell command ($R: that folder, $B: the bundle, $P: the program); /tmp
// lets everyone write, so the bundles live elsewhere.
TEST(DaemonProgramTest, OnlyAProgramThatOnlyRootCanChangeIsAccepted) {
  if (geteuid() != 0) GTEST_SKIP() << "ownership checks need root to make root-owned bundles";
  const std::pair<const char*, bool> cases[] = {
      {"true", true},
      {"chmod o+w \"$P\"", false},
      {"chmod o+w \"$B/Contents\"", false},
      {"chmod o+w \"$R\"", false},
      {"chmod g+w \"$P\" && chgrp 65534 \"$P\"", false},
      {"chown 65534 \"$P\"", false},
      {"rm \"$P\"", false},
      // Those who may write can become root anyway.
      {"chmod g+w \"$B/Contents\" && chgrp 0 \"$B/Contents\"", true},
      // In a sticky folder only an entry's owner can replace it.
      {"chmod 1777 \"$R\"", true},
      {"chmod 1777 \"$R\" && chown 65534 \"$B\"", false},
      // A link is judged by where it leads.
      {"mkdir -m 777 \"$R/open\" && mv \"$B\" \"$R/open/\" && ln -s \"$R/open/Zq Norvane.app\" \"$B\"", false},
      {"mkdir \"$R/real\" && mv \"$B\" \"$R/real/\" && ln -s \"$R/real/Zq Norvane.app\" \"$B\"", true},
  };
  const std::string root = "/var/lib/zq-daemon-test-" + std::to_string(getpid()), bundle = root + "/Zq Norvane.app";
  for (const auto& [loosening, accepted] : cases) {
    SCOPED_TRACE(loosening);
    ASSERT_EQ(TaskWrapper::runScript("R='" + root + "' B='" + bundle + "' P='" + bundle +
                                     "/Contents/MacOS/Zq-NorvaneServices'; mkdir -p -m 755 \"$B/Contents/MacOS\" && "
                                     "chmod 755 \"$R\" && touch \"$P\" && chmod 755 \"$P\" && " + loosening)
                  .terminationStatus(),
              0);
    const char* reason = DaemonProgramRefusal(bundle);
    EXPECT_EQ(reason == nullptr, accepted) << (reason ? reason : "accepted");
    TaskWrapper::runScript("rm -rf '" + root + "'");
  }
  EXPECT_NE(DaemonProgramRefusal("relative/Zq Norvane.app"), nullptr);
}

}  // namespace
