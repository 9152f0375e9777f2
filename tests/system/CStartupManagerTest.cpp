#include "system/CStartupManager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "system/XmlPropertyList.h"
#include "tests/support/FileContents.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TempDir.h"

namespace {

// The property list at `path` as Python's plistlib reads it: a JSON list
// of [key, value] pairs in document order, or the reader's complaint.
std::string ParsedPlist(const std::string& path) {
  const ProgramRun run = RunProgram("/bin/sh", {"-c", "python3 -c \"$0\" \"$1\"",
                                                "import json, plistlib, sys; sys.stdout.buffer.write(json.dumps(list("
                                                "plistlib.load(open(sys.argv[1], 'rb')).items()), ensure_ascii=False)"
                                                ".encode())",
                                                path});
  return run.output + run.errors;
}

// Each item is written whole to a new file renamed over the old, or not at
// all: XML cannot carry a control character.
TEST(CStartupManagerTest, ItemsCarryTheirExactKeysWhateverThePathHoldsAndAreReplacedWhole) {
  TempDir root;
  CStartupManager manager(root.path());
  const std::string daemon = root.path() + CStartupManager::kLaunchDaemonFile;
  manager.SetStartup("/Apps/O'Neil & <Co> \"Q\" $HOME ]]> \t\r\n ünï 漢字.app");
  const std::string bundle = "/Apps/O'Neil & <Co> \\\"Q\\\" $HOME ]]> \\t\\r\\n ünï 漢字.app/Contents/MacOS/";
  EXPECT_EQ(ParsedPlist(daemon),
            "[[\"Label\", \"com.zq.BitlockerServices\"], [\"RunAtLoad\", true], "
            "[\"EnableTransactions\", true], [\"ProgramArguments\", [\"" +
                bundle + "Zq-NorvaneServices\"]]]");
  EXPECT_EQ(ParsedPlist(root.path() + CStartupManager::kLaunchAgentFile),
            "[[\"Label\", \"com.zq.Norvane\"], [\"RunAtLoad\", true], [\"LaunchOnlyOnce\", true], "
            "[\"EnableTransactions\", true], [\"ProgramArguments\", [\"" +
                bundle + "Zq Norvane\"]]]");

  struct stat oldInfo, newInfo;
  ASSERT_EQ(stat(daemon.c_str(), &oldInfo), 0);
  manager.SetStartup("/Applications/New.app");
  ASSERT_EQ(stat(daemon.c_str(), &newInfo), 0);
  EXPECT_NE(newInfo.st_ino, oldInfo.st_ino) << "written in place, not renamed over";
  const std::string written = ReadFile(daemon);
  EXPECT_NE(written.find("/Applications/New.app/"), std::string::npos);
  for (const char* bad : {"/Applications/Bad\x01.app", "/Applications/Bad\xFF.app"}) {
    manager.CreateLaunchDaemon(bad);
    EXPECT_EQ(ReadFile(daemon), written) << bad;
  }
  const std::string folderInTheWay = root.path() + "/Library/LaunchDaemons/dir.plist";
  ASSERT_EQ(mkdir(folderInTheWay.c_str(), 0755), 0);
  EXPECT_FALSE(WritePropertyListAtomically(folderInTheWay, {{"Label", std::string("x")}}));
  EXPECT_EQ(RunProgram("/bin/ls", {"-A", root.path() + "/Library/LaunchDaemons"}).output,
            "com.zq.BitlockerServices.plist\ndir.plist\n");
}

}  // namespace
