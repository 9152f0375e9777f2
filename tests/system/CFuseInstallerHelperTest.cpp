#include "CFuseInstallerHelper.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "Platform.h"
#include "TestSupport.h"

namespace {

// Puts a recording `installer` first on PATH for the life of the fixture.
class CFuseInstallerHelperTest : public testing::Test {
 protected:
  void SetUp() override {
    WriteFile(folder_.path() + "/installer",
              "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\0' \"$a\"; done >> \"" + Record() + "\"\n", 0755);
    const char* path = std::getenv("PATH");
    oldPath_ = path ? path : "";
    setenv("PATH", (folder_.path() + ":" + oldPath_).c_str(), 1);
  }
  void TearDown() override { setenv("PATH", oldPath_.c_str(), 1); }

  std::string Record() const { return folder_.path() + "/record"; }

  // Each recorded argument of every call, in order.
  std::vector<std::string> RecordedArguments() const {
    std::vector<std::string> arguments;
    const std::string record = ReadFile(Record());
    for (size_t start = 0, end; (end = record.find('\0', start)) != std::string::npos; start = end + 1)
      arguments.push_back(record.substr(start, end - start));
    return arguments;
  }

  TempDir folder_;
  std::string oldPath_;
};

TEST_F(CFuseInstallerHelperTest, InstallsThePackageOfTheBundleWhateverItsPathHolds) {
  const std::string bundles[] = {
      "/Applications/Zq Norvane.app",
      "/Volumes/It's \"my\" $HOME `id` \\ back; & 100%.app",
  };
  for (const std::string& bundle : bundles) {
    std::remove(Record().c_str());
    platform::SetMainBundlePath(bundle);
    CFuseInstallerHelper::FuseInstall();
    EXPECT_EQ(RecordedArguments(),
              (std::vector<std::string>{"-pkg", bundle + "/Contents/MacOS/installer.pkg", "-target", "/"}))
        << bundle;
  }
}

TEST_F(CFuseInstallerHelperTest, RunsEveryTimeAndLogsEachRun) {
  // The service's own log is shared with other programs: look only at what
  // was added during this test.
  struct stat before;
  const off_t start = stat("/tmp/zqlog.log", &before) == 0 ? before.st_size : 0;
  platform::SetMainBundlePath("/Applications/Zq Norvane.app");
  CFuseInstallerHelper::FuseInstall();
  CFuseInstallerHelper::FuseInstall();

  EXPECT_EQ(RecordedArguments().size(), 8u);
  const std::string added = ReadFile("/tmp/zqlog.log").substr(static_cast<size_t>(start));
  size_t lines = 0;
  for (size_t at = added.find("    fuseInstall\r\n"); at != std::string::npos; at = added.find("    fuseInstall\r\n", at + 1))
    ++lines;
  EXPECT_GE(lines, 2u);
}

}  // namespace
