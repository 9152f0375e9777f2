#include "CProcessManager.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "Platform.h"
#include "TempDir.h"

extern char** environ;

namespace {

std::string Upper(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

// A copy of /bin/sleep started as `name`, so that the kernel shows it under
// that name cut short; killed and reaped at the end.
class NamedChild {
 public:
  NamedChild(const std::string& folder, const std::string& name) : shortName_(name.substr(0, platform::kShortNameLength)) {
    std::string path = folder + "/" + name, seconds = "300";
    char* argv[] = {path.data(), seconds.data(), nullptr};
    if (RunShell("cp /bin/sleep '" + path + "'") != 0 || posix_spawn(&pid_, argv[0], nullptr, nullptr, argv, environ) != 0)
      pid_ = -1;
    for (int i = 0; i < 500 && pid_ > 0 && !started(); ++i) usleep(10 * 1000);
  }
  ~NamedChild() {
    if (Running()) kill(pid_, SIGKILL);
    Reaped(true);
  }

  pid_t pid() const { return pid_; }
  bool started() const { return pid_ > 0 && platform::ProcessShortName(pid_) == shortName_; }
  bool Running() { return !Reaped(false); }
  bool WaitKilled() { return Reaped(true) && WIFSIGNALED(status_) && WTERMSIG(status_) == SIGKILL; }

 private:
  bool Reaped(bool wait) {
    if (pid_ > 0 && waitpid(pid_, &status_, wait ? 0 : WNOHANG) == pid_) pid_ = -1;
    return pid_ <= 0;
  }

  const std::string shortName_;
  pid_t pid_ = -1;
  int status_ = 0;
};

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
  const std::string longName = Name("-long-service-name");
  const std::string cut = longName.substr(0, platform::kShortNameLength);
  CProcessManager processes;
  {
    NamedChild child(folder_.path(), longName);
    ASSERT_TRUE(child.started());
    EXPECT_TRUE(processes.ProcessIsRunning(longName.c_str()));
    EXPECT_TRUE(processes.ProcessIsRunning((cut + "anything else").c_str()));
    EXPECT_FALSE(processes.ProcessIsRunning(Upper(longName).c_str())) << "case counts";
    EXPECT_FALSE(processes.ProcessIsRunning(cut.substr(0, cut.size() - 1).c_str())) << "a leading part is not enough";
  }
  EXPECT_FALSE(processes.ProcessIsRunning(longName.c_str())) << "each query takes a fresh snapshot";
}

TEST_F(CProcessManagerTest, KillProcessKillsTheMatchThatFindFinds) {
  const std::string query = Name("-NorvaneServices");
  // Both match: one by its whole short name, one by a leading part in capitals.
  NamedChild exact(folder_.path(), Name("-Norvane")), capitals(folder_.path(), Upper(Name("")));
  NamedChild longer(folder_.path(), Name("-NorvaneServicesX"));  // more than the query: no match
  ASSERT_TRUE(exact.started() && capitals.started() && longer.started());
  EXPECT_EQ(FindOtherProcessNamedLike(""), std::nullopt) << "empty short names are skipped";

  const std::optional<pid_t> found = FindOtherProcessNamedLike(query.c_str());
  ASSERT_TRUE(found == exact.pid() || found == capitals.pid());
  NamedChild& first = found == exact.pid() ? exact : capitals;
  NamedChild& second = found == exact.pid() ? capitals : exact;
  CProcessManager().KillProcess(query.c_str());
  EXPECT_TRUE(first.WaitKilled());
  EXPECT_TRUE(second.Running());
  EXPECT_TRUE(longer.Running());
}

}  // namespace
