// The systemd unit that starts the service at boot, written and removed
// with the startup items in the tests' private /etc/systemd/system and
// read back by systemd's own parser.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "CStartupManager.h"
#include "FileContents.h"
#include "ProgramRun.h"
#include "ServiceTestEnvironment.h"

namespace {

const std::string kUnit = "/etc/systemd/system/zq-norvane.service";
const std::string kLink = "/etc/systemd/system/multi-user.target.wants/zq-norvane.service";

std::string LinkTarget(const std::string& path) {
  char target[256] = {};
  return readlink(path.c_str(), target, sizeof target - 1) < 0 ? "" : target;
}

bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

const std::string kBundle = "/Library/Applications/Zq Norvane 100% $HOME.app";

class StartupBootServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!ServiceTestsUnavailable().empty()) GTEST_SKIP() << ServiceTestsUnavailable();
    Clear();
    ASSERT_EQ(RunShell("mkdir -p '" + kBundle + "/Contents/MacOS' && cp /bin/true '" + kBundle +
                       "/Contents/MacOS/Zq-NorvaneServices'"),
              0);
  }
  static void Clear() { RunShell("rm -rf /etc/systemd/system/* /tmp/elsewhere; mkdir -m 755 /tmp/elsewhere"); }

  CStartupManager& manager = *CStartupManager::GetInstance();
};

// systemd reads the program path back exactly, blanks, '%' and '$'
// included, and finds the program there.
TEST_F(StartupBootServiceTest, UnitRunsTheBundlesServiceAndIsEnabled) {
  manager.SetStartup(kBundle);
  const std::string unit = ReadFile(kUnit);
  EXPECT_NE(unit.find("\nExecStart=\"/Library/Applications/Zq Norvane 100%% $HOME.app/Contents/MacOS/"
                      "Zq-NorvaneServices\"\n"),
            std::string::npos)
      << unit;
  EXPECT_EQ(LinkTarget(kLink), kUnit);
  struct stat info;
  ASSERT_EQ(stat(kUnit.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644u);
  if (access("/usr/bin/systemd-analyze", X_OK) != 0) GTEST_SKIP() << "no systemd-analyze to read the unit back";
  const ProgramRun verify = RunProgram("/usr/bin/systemd-analyze", {"verify", kUnit});
  EXPECT_EQ(verify.status, 0) << verify.output << verify.errors;
}

// A path systemd would refuse to run leaves the earlier unit alone;
// turning startup off removes the unit and its link, and still answers
// with the agent's removal.
TEST_F(StartupBootServiceTest, RefusedPathsKeepTheUnitAndStartupOffRemovesIt) {
  manager.SetStartup(kBundle);
  const std::string unit = ReadFile(kUnit);
  ASSERT_FALSE(unit.empty());
  for (const char* refused : {"/Library/Say \"Q\".app", "/Library/Back\\slash.app", "/Library/It's.app",
                              "/Library/Line\nEnd.app", "/Library/Bad\xFF.app", "Library/Relative.app"}) {
    manager.SetStartup(refused);
    EXPECT_EQ(ReadFile(kUnit), unit) << refused;
  }
  EXPECT_EQ(RunProgram("/bin/ls", {"-A", "/etc/systemd/system"}).output, "multi-user.target.wants\nzq-norvane.service\n");
  EXPECT_EQ(manager.CancelStartup(), 0);
  EXPECT_FALSE(Exists(kUnit));
  EXPECT_FALSE(Exists(kLink));
  errno = 0;
  EXPECT_EQ(manager.CancelStartup(), -1);
  EXPECT_EQ(errno, ENOENT) << "the agent's file was already gone";
}

// A folder someone else may change, or a link planted where a folder or
// the unit belongs, is never written or removed through.
TEST_F(StartupBootServiceTest, NothingIsWrittenOrRemovedThroughWhatOthersControl) {
  const struct {
    const char* plant;
    bool unitWritten;
  } cases[] = {
      {"ln -s /tmp/elsewhere /etc/systemd/system/multi-user.target.wants", false},
      {"chmod 777 /etc/systemd/system", false},
      {"chown 0:1000 /etc/systemd/system && chmod 775 /etc/systemd/system", false},
      {"mkdir /etc/systemd/system/multi-user.target.wants && chown 1000 /etc/systemd/system/multi-user.target.wants",
       false},
      {"ln -s /tmp/elsewhere/victim /etc/systemd/system/zq-norvane.service", true},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.plant);
    Clear();
    ASSERT_EQ(RunShell(test.plant), 0);
    manager.SetStartup(kBundle);
    EXPECT_EQ(RunProgram("/bin/ls", {"-A", "/tmp/elsewhere"}).output, "");
    EXPECT_EQ(Exists(kUnit) && LinkTarget(kUnit).empty(), test.unitWritten);
    RunShell("chmod 755 /etc/systemd/system && chown 0:0 /etc/systemd/system");
  }

  Clear();
  manager.SetStartup(kBundle);
  ASSERT_TRUE(Exists(kLink));
  ASSERT_EQ(RunShell("chmod 777 /etc/systemd/system"), 0);
  manager.CancelStartup();
  EXPECT_TRUE(Exists(kUnit) && Exists(kLink)) << "removed through a folder others may change";
  RunShell("chmod 755 /etc/systemd/system");
}

}  // namespace
