#include "CStartupManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "FileContents.h"
#include "Platform.h"
#include "TaskWrapper.h"
#include "TempDir.h"

namespace {

// The property list at `path` as Python's plistlib reads it: a JSON list
// of [key, value] pairs in document order, or the reader's complaint.
std::string ParsedPlist(const std::string& path) {
  const char* script =
      "import json, plistlib, sys\n"
      "with open(sys.argv[1], 'rb') as f:\n"
      "    text = json.dumps(list(plistlib.load(f).items()), ensure_ascii=False)\n"
      "sys.stdout.buffer.write(text.encode())\n";
  TaskWrapper result =
      TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", "python3 -c \"$1\" \"$2\"", "sh", script, path});
  return result.response().value_or("") + result.errorMessage().value_or("");
}

class CStartupManagerTest : public testing::Test {
 protected:
  std::string Daemon() const { return root_.path() + CStartupManager::kLaunchDaemonFile; }
  std::string DaemonFolderEntries() const {
    return TaskWrapper::runScript("ls -A '" + root_.path() + "/Library/LaunchDaemons'").response().value_or("");
  }

  TempDir root_;
  CStartupManager manager_{root_.path()};
};

TEST_F(CStartupManagerTest, BothItemsCarryTheirExactKeysWhateverThePathHolds) {
  manager_.SetStartup("/Apps/O'Neil & <Co> \"Q\" $HOME ]]> \t\r\n ünï 漢字.app");
  const std::string bundle = "/Apps/O'Neil & <Co> \\\"Q\\\" $HOME ]]> \\t\\r\\n ünï 漢字.app/Contents/MacOS/";
  EXPECT_EQ(ParsedPlist(Daemon()),
            "[[\"Label\", \"com.zq.BitlockerServices\"], [\"RunAtLoad\", true], [\"EnableTransactions\", true], "
            "[\"ProgramArguments\", [\"" +
                bundle + "Zq-NorvaneServices\"]]]");
  EXPECT_EQ(ParsedPlist(root_.path() + CStartupManager::kLaunchAgentFile),
            "[[\"Label\", \"com.zq.Norvane\"], [\"RunAtLoad\", true], [\"LaunchOnlyOnce\", true], "
            "[\"EnableTransactions\", true], [\"ProgramArguments\", [\"" +
                bundle + "Zq Norvane\"]]]");
}

TEST_F(CStartupManagerTest, ANewFileIsRenamedOverTheOldAndAFailedWriteLeavesNothing) {
  manager_.SetStartup("/Applications/Old.app");
  struct stat oldInfo, newInfo;
  ASSERT_EQ(stat(Daemon().c_str(), &oldInfo), 0);
  manager_.SetStartup("/Applications/New.app");
  ASSERT_EQ(stat(Daemon().c_str(), &newInfo), 0);
  EXPECT_NE(newInfo.st_ino, oldInfo.st_ino) << "written in place, not renamed over";
  const std::string written = ReadFile(Daemon());
  EXPECT_NE(written.find("/Applications/New.app/"), std::string::npos);

  // XML cannot carry a control character; the write is refused whole.
  for (const char* bad : {"/Applications/Bad\x01.app", "/Applications/Bad\xFF.app"}) {
    manager_.CreateLaunchDaemon(bad);
    EXPECT_EQ(ReadFile(Daemon()), written) << bad;
  }
  const std::string folderInTheWay = root_.path() + "/Library/LaunchDaemons/dir.plist";
  ASSERT_EQ(mkdir(folderInTheWay.c_str(), 0755), 0);
  EXPECT_FALSE(platform::WritePropertyListAtomically(folderInTheWay, {{"Label", std::string("x")}}));
  EXPECT_EQ(DaemonFolderEntries(), "com.zq.BitlockerServices.plist\ndir.plist\n");
}

}  // namespace
