#include "CStartupManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "Platform.h"
#include "TaskWrapper.h"
#include "TestSupport.h"

namespace {

// The property list at `path` as Python's plistlib reads it: a JSON list
// of [key, value] pairs in document order, or the reader's complaint.
std::string ParsedPlist(const std::string& path) {
  const char* script =
      "import json, plistlib, sys\n"
      "with open(sys.argv[1], 'rb') as f:\n"
      "    text = json.dumps(list(plistlib.load(f).items()), ensure_ascii=False)\n"
      "sys.stdout.buffer.write(text.encode())\n";
  TaskWrapper result = TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", "python3 -c \"$1\" \"$2\"", "sh", script, path});
  return result.response().value_or("") + result.errorMessage().value_or("");
}

// The names in `folder`, hidden ones included, one a line.
std::string FolderEntries(const std::string& folder) {
  return TaskWrapper::runScript("ls -A '" + folder + "'").response().value_or("");
}

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

class CStartupManagerTest : public testing::Test {
 protected:
  std::string Daemon() const { return root_.path() + CStartupManager::kLaunchDaemonFile; }
  std::string Agent() const { return root_.path() + CStartupManager::kLaunchAgentFile; }
  std::string DaemonFolder() const { return root_.path() + "/Library/LaunchDaemons"; }

  TempDir root_;
  CStartupManager manager_{root_.path()};
};

TEST_F(CStartupManagerTest, SetStartupWritesBothItemsWithTheirExactKeys) {
  manager_.SetStartup("/Applications/Zq Norvane.app");
  EXPECT_EQ(ParsedPlist(Daemon()),
            "[[\"Label\", \"com.zq.BitlockerServices\"], [\"RunAtLoad\", true], [\"EnableTransactions\", true], "
            "[\"ProgramArguments\", [\"/Applications/Zq Norvane.app/Contents/MacOS/Zq-NorvaneServices\"]]]");
  EXPECT_EQ(ParsedPlist(Agent()),
            "[[\"Label\", \"com.zq.Norvane\"], [\"RunAtLoad\", true], [\"LaunchOnlyOnce\", true], "
            "[\"EnableTransactions\", true], "
            "[\"ProgramArguments\", [\"/Applications/Zq Norvane.app/Contents/MacOS/Zq Norvane\"]]]");
}

TEST_F(CStartupManagerTest, TextThatXmlWouldMisreadSurvivesTheRoundTrip) {
  manager_.CreateLaunchDaemon("/Apps/O'Neil & <Co> \"Q\" $HOME ]]> \t\r\n ünï 漢字.app");
  EXPECT_EQ(ParsedPlist(Daemon()),
            "[[\"Label\", \"com.zq.BitlockerServices\"], [\"RunAtLoad\", true], [\"EnableTransactions\", true], "
            "[\"ProgramArguments\", [\"/Apps/O'Neil & <Co> \\\"Q\\\" $HOME ]]> \\t\\r\\n ünï 漢字.app"
            "/Contents/MacOS/Zq-NorvaneServices\"]]]");
}

TEST_F(CStartupManagerTest, RewritingRenamesANewFileOverTheOld) {
  manager_.SetStartup("/Applications/Old.app");
  struct stat oldInfo, newInfo;
  ASSERT_EQ(stat(Daemon().c_str(), &oldInfo), 0);
  manager_.SetStartup("/Applications/New.app");
  ASSERT_EQ(stat(Daemon().c_str(), &newInfo), 0);
  EXPECT_NE(newInfo.st_ino, oldInfo.st_ino) << "written in place, not renamed over";
  EXPECT_NE(ParsedPlist(Daemon()).find("/Applications/New.app/"), std::string::npos);
  EXPECT_EQ(FolderEntries(DaemonFolder()), "com.zq.BitlockerServices.plist\n");
}

TEST_F(CStartupManagerTest, FailedWriteLeavesTheEarlierFileAndNoLeftovers) {
  manager_.SetStartup("/Applications/Zq Norvane.app");
  const std::string before = ReadFile(Daemon());

  // XML cannot carry a control character; the write is refused whole.
  manager_.CreateLaunchDaemon("/Applications/Bad\x01.app");
  EXPECT_EQ(ReadFile(Daemon()), before);
  manager_.CreateLaunchDaemon("/Applications/Bad\xFF.app");
  EXPECT_EQ(ReadFile(Daemon()), before);

  const std::string folderInTheWay = root_.path() + "/Library/LaunchDaemons/dir.plist";
  ASSERT_EQ(mkdir(folderInTheWay.c_str(), 0755), 0);
  EXPECT_FALSE(platform::WritePropertyListAtomically(folderInTheWay, {{"Label", std::string("x")}}));
  EXPECT_EQ(FolderEntries(DaemonFolder()), "com.zq.BitlockerServices.plist\ndir.plist\n");
}

TEST_F(CStartupManagerTest, CancelStartupReportsOnlyTheAgentsRemoval) {
  EXPECT_EQ(manager_.CancelStartup(), -1) << "neither file exists";

  manager_.CreateLaunchDaemon("/Applications/Zq Norvane.app");
  EXPECT_EQ(manager_.CancelStartup(), -1) << "the agent was missing";
  EXPECT_FALSE(Exists(Daemon()));

  manager_.CreateLaunchAgent("/Applications/Zq Norvane.app");
  EXPECT_EQ(manager_.CancelStartup(), 0) << "a missing daemon file goes unseen";
  EXPECT_FALSE(Exists(Agent()));

}

}  // namespace
