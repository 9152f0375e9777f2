// An install into a staging folder, as a package build makes one: the
// bundle with its layout and modes, the tools linked onto the PATH, the
// man pages and the completions, and nothing group or others may write.
#include <gtest/gtest.h>
#include <unistd.h>

#include <set>
#include <string>

#include "tests/support/ProgramRun.h"
#include "tests/support/TempDir.h"

namespace {

TEST(InstallTreeTest, StagedInstallHoldsTheBundleThePathLinksAndTheDocumentation) {
  TempDir stage;
  const ProgramRun install = RunProgram("/usr/bin/env", {"DESTDIR=" + stage.path(), ZQ_CMAKE_COMMAND, "--install",
                                                         ZQ_BUILD_DIR, "--prefix", "/opt/Zq test"});
  ASSERT_EQ(install.status, 0) << install.output << install.errors;

  const std::string programs = "opt/Zq test/Zq Norvane.app/Contents/MacOS/";
  const std::string path = std::string(ZQ_PATH_PREFIX).substr(1) + "/";
  const std::string completions = std::string(ZQ_BASH_COMPLETION_DIR).substr(1) + "/";
  std::set<std::string> expected = {
      "-rw-r--r-- opt/Zq test/Zq Norvane.app/Contents/Info.plist",
      "-rwxr-xr-x " + programs + "Zq-NorvaneServices",
      "-rwxr-xr-x " + programs + "zq-mounter",
      "-rwxr-xr-x " + programs + "libBitLockerWapper.dylib",
      "-rw-r--r-- " + programs + "Zq Norvane Explorer.app/Contents/Info.plist",
      "-rwxr-xr-x " + programs + "Zq Norvane Explorer.app/Contents/MacOS/Zq Norvane Explorer",
      "-rwxr-xr-x opt/Zq test/bin/zqctl",
      "-rwxr-xr-x opt/Zq test/bin/zq-bitlocker",
      "lrwxrwxrwx " + path + "bin/zqctl -> /opt/Zq test/bin/zqctl",
      "lrwxrwxrwx " + path + "bin/zq-bitlocker -> /opt/Zq test/bin/zq-bitlocker",
      "-rw-r--r-- " + completions + "zqctl",
      "-rw-r--r-- " + completions + "zq-bitlocker",
  };
  if (ZQ_DISKUTIL_IN_BUNDLE) expected.insert("-rwxr-xr-x " + programs + "diskutil");
  for (const char* page : {"man1/zqctl.1", "man1/zq-bitlocker.1", "man8/zq-mounter.8"})
    if (ZQ_MAN_PAGES) expected.insert("-rw-r--r-- " + path + "share/man/" + page);
  std::string listing;
  for (const std::string& line : expected) listing += line + "\n";

  const auto find = [&](const std::string& test) {
    return RunProgram("/bin/sh", {"-c", "cd \"$0\" && find . -mindepth 1 " + test + " | LC_ALL=C sort", stage.path()})
        .output;
  };
  EXPECT_EQ(find("! -type d -printf '%M %P' \\( -type l -printf ' -> %l' -o -true \\) -printf '\\n'"), listing);
  const std::string notRoots = geteuid() == 0 ? " -o ! -user root" : "";
  EXPECT_EQ(find("! -type l \\( -perm /022" + notRoots + " \\)"), "") << "others than root may change these";
}

}  // namespace
