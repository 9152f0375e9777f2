// The systemd unit that starts the service at boot, written and removed
// with the startup items in the tests' private /etc/systemd/system.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "system/CStartupManager.h"
#include "tests/support/FileContents.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ServiceTestEnvironment.h"

namespace {

const std::string kUnit = "/etc/systemd/system/zq-norvane.service";
const std::string kLink = "/etc/systemd/system/multi-user.target.wants/zq-norvane.service";
const std::string kBundle = "/Library/Applications/Zq Norvane 100% $HOME.app";

std::string LinkTarget(const std::string& path) {
  char target[256] = {};
  return readlink(path.c_str(), target, sizeof target - 1) < 0 ? "" : target;
}

class StartupBootServiceTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!ServiceTestsUnavailable().empty()) GTEST_SKIP() << ServiceTestsUnavailable();
    Clear();
    ASSERT_EQ(RunShell("mkdir -p '" + kBundle + "/Contents/MacOS' && cp /bin/true '" + kBundle +
                       "/Contents/MacOS/Zq-NorvaneServices'"),
              0);
  }
  static void Clear() { RunShell("rm -rf /etc/systemd/system/* /tmp/elsewhere; mkdir /tmp/elsewhere"); }

  CStartupManager& manager = *CStartupManager::GetInstance();
};

// systemd reads the program path back exactly, blanks, '%' and '$'
// included; a path it would not run leaves the unit as it was.
TEST_F(StartupBootServiceTest, UnitRunsTheBundlesServiceUntilStartupIsOff) {
  manager.SetStartup(kBundle);
  const std::string unit = ReadFile(kUnit);
  EXPECT_NE(unit.find("\nExecStart=\"/Library/Applications/Zq Norvane 100%% $HOME.app/Contents/MacOS/"
                      "Zq-NorvaneServices\"\n"),
            std::string::npos)
      << unit;
  EXPECT_EQ(LinkTarget(kLink), kUnit);
  for (const char* refused :
       {"/Say \"Q\".app", "/Back\\slash.app", "/It's.app", "/Line\nEnd.app", "/Bad\xFF.app", "Relative.app"}) {
    manager.SetStartup(refused);
    EXPECT_EQ(ReadFile(kUnit), unit) << refused;
  }
  const ProgramRun verify = RunProgram("/bin/sh", {"-c", "systemd-analyze verify \"$0\" 2>&1", kUnit});
  EXPECT_EQ(verify.status, 0) << verify.output;
  manager.CancelStartup();
  EXPECT_EQ(RunProgram("/bin/ls", {"-A", "/etc/systemd/system"}).output, "multi-user.target.wants\n");
}

// Nothing is written through a link planted for a folder or the unit, nor
// written or removed in a folder others may change.
TEST_F(StartupBootServiceTest, NothingGoesThroughWhatOthersControl) {
  const struct {
    const char* plant;
    bool unitWritten;
  } cases[] = {
      {"ln -s /tmp/elsewhere /etc/systemd/system/multi-user.target.wants", false},
      {"mkdir /etc/systemd/system/multi-user.target.wants && chown 1000 /etc/systemd/system/multi-user.target.wants",
       false},
      {"chmod 777 /etc/systemd/system", false},
      {"ln -s /tmp/elsewhere/victim /etc/systemd/system/zq-norvane.service", true},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.plant);
    Clear();
    ASSERT_EQ(RunShell(test.plant), 0);
    manager.SetStartup(kBundle);
    EXPECT_EQ(RunProgram("/bin/ls", {"-A", "/tmp/elsewhere"}).output, "");
    EXPECT_EQ(!ReadFile(kUnit).empty() && LinkTarget(kUnit).empty(), test.unitWritten);
    RunShell("chmod 755 /etc/systemd/system");
  }
  ASSERT_EQ(RunShell("chmod 777 /etc/systemd/system"), 0);
  manager.CancelStartup();
  EXPECT_FALSE(ReadFile(kUnit).empty()) << "removed from a folder others may change";
  RunShell("chmod 755 /etc/systemd/system");
}

}  // namespace
