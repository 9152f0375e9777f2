#include "CProcessManager.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <string>

#include "TaskWrapper.h"
#include "TestSupport.h"

namespace {

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

// Every name starts with "zqt" and this process's id in six letters, so
// that parallel test runs and the rest of the machine never match.
class CProcessManagerTest : public testing::Test {
 protected:
  std::string Name(const std::string& rest) const {
    std::string name = "zqt";
    for (unsigned id = static_cast<unsigned>(getpid()), i = 0; i < 6; ++i, id /= 26) name += static_cast<char>('a' + id % 26);
    return name + rest;
  }

  TempDir folder_;
};

TEST_F(CProcessManagerTest, ProcessIsRunningComparesTheCutQueryExactly) {
  const std::string longName = Name("-long-service-name");  // the kernel keeps 15 characters
  ASSERT_GT(longName.size(), platform::kShortNameLength);
  const std::string cut = longName.substr(0, platform::kShortNameLength);
  auto child = std::make_unique<NamedChild>(folder_.path(), longName);
  ASSERT_TRUE(child->started());

  CProcessManager processes;
  EXPECT_TRUE(processes.ProcessIsRunning(longName.c_str()));
  EXPECT_TRUE(processes.ProcessIsRunning(cut.c_str()));
  EXPECT_TRUE(processes.ProcessIsRunning((cut + "anything else").c_str()));
  EXPECT_FALSE(processes.ProcessIsRunning(Upper(longName).c_str())) << "case counts";
  EXPECT_FALSE(processes.ProcessIsRunning(cut.substr(0, cut.size() - 1).c_str())) << "a leading part is not enough";
  EXPECT_FALSE(processes.ProcessIsRunning(nullptr));
  EXPECT_EQ(FindOtherProcessNamedLike(nullptr), std::nullopt);
  EXPECT_EQ(FindOtherProcessNamedLike(""), std::nullopt) << "empty short names are skipped";
  processes.KillProcess(nullptr);

  child.reset();
  EXPECT_FALSE(processes.ProcessIsRunning(longName.c_str())) << "each query takes a fresh snapshot";
}

TEST_F(CProcessManagerTest, KillProcessKillsOnlyTheFirstListedMatch) {
  const std::string query = Name("-NorvaneServices");
  // Both match: one by its whole short name, one by a leading part in capitals.
  NamedChild exact(folder_.path(), Name("-Norvane"));
  NamedChild capitals(folder_.path(), Upper(Name("")));
  NamedChild longer(folder_.path(), Name("-NorvaneServicesX"));  // more than the query: no match
  NamedChild other(folder_.path(), Name("-Other"));
  ASSERT_TRUE(exact.started() && capitals.started() && longer.started() && other.started());

  const std::vector<pid_t> listing = platform::ListProcessIds();
  const auto position = [&](pid_t pid) { return std::find(listing.begin(), listing.end(), pid) - listing.begin(); };
  NamedChild& first = position(exact.pid()) < position(capitals.pid()) ? exact : capitals;
  NamedChild& second = &first == &exact ? capitals : exact;

  EXPECT_EQ(FindOtherProcessNamedLike(query.c_str()), first.pid());
  CProcessManager().KillProcess(query.c_str());
  EXPECT_TRUE(first.WaitKilled());
  EXPECT_TRUE(second.Running());
  EXPECT_TRUE(longer.Running());
  EXPECT_TRUE(other.Running());

  CProcessManager().KillProcess(query.c_str());
  EXPECT_TRUE(second.WaitKilled());
  EXPECT_TRUE(longer.Running());
  EXPECT_TRUE(other.Running());
}

TEST_F(CProcessManagerTest, TheCallerIsNeverFoundNorKilled) {
  // The helper runs under a name that it then looks for itself.
  const std::string name = Name("self");
  const std::string helper = folder_.path() + "/" + name;
  ASSERT_EQ(RunShell("cp '" + HelperProgram() + "' '" + helper + "'"), 0);

  EXPECT_EQ(TaskWrapper::runTaskAtLaunchPath(helper, {"find", name}).response(), "none");
  EXPECT_EQ(RunShell("'" + helper + "' kill " + name), 0) << "the caller killed itself";

  NamedChild sibling(folder_.path(), Upper(name));
  ASSERT_TRUE(sibling.started());
  EXPECT_EQ(TaskWrapper::runTaskAtLaunchPath(helper, {"find", name}).response(), std::to_string(sibling.pid()));
  EXPECT_EQ(RunShell("'" + helper + "' kill " + name), 0);
  EXPECT_TRUE(sibling.WaitKilled());
}

}  // namespace
