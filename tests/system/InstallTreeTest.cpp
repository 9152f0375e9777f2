// An install into a staging folder, as a package build makes one: the
// bundle with its layout, the tools linked onto the PATH, the man pages and
// the completions, and nothing that group or others may write.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "ProgramRun.h"
#include "TempDir.h"

namespace {

std::string Lines(std::vector<std::string> lines) {
  std::sort(lines.begin(), lines.end());
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

TEST(InstallTreeTest, StagedInstallHoldsTheBundleThePathLinksAndTheDocumentation) {
  TempDir stage;
  const std::string prefix = "/opt/Zq test";  // the links keep its blank
  const ProgramRun install = RunProgram(
      "/usr/bin/env", {"DESTDIR=" + stage.path(), ZQ_CMAKE_COMMAND, "--install", ZQ_BUILD_DIR, "--prefix", prefix});
  ASSERT_EQ(install.status, 0) << install.output << install.errors;

  const std::string programs = "opt/Zq test/Zq Norvane.app/Contents/MacOS/";
  const std::string explorer = programs + "Zq Norvane Explorer.app/Contents/";
  const std::string completions = std::string(ZQ_BASH_COMPLETION_DIR).substr(1) + "/";
  const std::string path = std::string(ZQ_PATH_PREFIX).substr(1) + "/";
  std::vector<std::string> expected = {
      "-rw-r--r-- opt/Zq test/Zq Norvane.app/Contents/Info.plist",
      "-rwxr-xr-x " + programs + "Zq-NorvaneServices",
      "-rwxr-xr-x " + programs + "zq-mounter",
      "-rwxr-xr-x " + programs + "libBitLockerWapper.dylib",
      "-rw-r--r-- " + explorer + "Info.plist",
      "-rwxr-xr-x " + explorer + "MacOS/Zq Norvane Explorer",
      "-rwxr-xr-x opt/Zq test/bin/zqctl",
      "-rwxr-xr-x opt/Zq test/bin/zq-bitlocker",
      "lrwxrwxrwx " + path + "bin/zqctl -> /opt/Zq test/bin/zqctl",
      "lrwxrwxrwx " + path + "bin/zq-bitlocker -> /opt/Zq test/bin/zq-bitlocker",
      "-rw-r--r-- " + completions + "zqctl",
      "-rw-r--r-- " + completions + "zq-bitlocker",
  };
  if (ZQ_DISKUTIL_IN_BUNDLE) expected.push_back("-rwxr-xr-x " + programs + "diskutil");
  if (ZQ_MAN_PAGES) {
    for (const char* page : {"man1/zqctl.1", "man1/zq-bitlocker.1", "man8/zq-mounter.8"})
      expected.push_back("-rw-r--r-- " + path + "share/man/" + page);
  }
  const auto find = [&](const std::string& test) {
    return RunProgram("/bin/sh", {"-c", "cd \"$0\" && find . -mindepth 1 " + test + " | LC_ALL=C sort", stage.path()})
        .output;
  };
  EXPECT_EQ(find("! -type d -printf '%M %P' \\( -type l -printf ' -> %l' -o -true \\) -printf '\\n'"), Lines(expected));
  EXPECT_EQ(find("! -type l -perm /022"), "") << "written by group or others";
  if (geteuid() == 0) {
    EXPECT_EQ(find("! -user root"), "");
  }
}

}  // namespace
