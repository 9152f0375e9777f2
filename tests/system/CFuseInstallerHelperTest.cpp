#include "CFuseInstallerHelper.h"

#include <gtest/gtest.h>

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

TEST_F(CFuseInstallerHelperTest, InstallsThePackageOfTheBundleEveryTimeWhateverItsPathHolds) {
  const std::string bundles[] = {
      "/Applications/Zq Norvane.app",
      "/Volumes/It's \"my\" $HOME `id` \\ back; & 100%.app",
  };
  for (const std::string& bundle : bundles) {
    std::remove(Record().c_str());
    platform::SetMainBundlePath(bundle);
    CFuseInstallerHelper::FuseInstall();
    CFuseInstallerHelper::FuseInstall();
    const std::vector<std::string> once = {"-pkg", bundle + "/Contents/MacOS/installer.pkg", "-target", "/"};
    std::vector<std::string> twice = once;
    twice.insert(twice.end(), once.begin(), once.end());
    EXPECT_EQ(RecordedArguments(), twice) << bundle;
  }
}

}  // namespace
