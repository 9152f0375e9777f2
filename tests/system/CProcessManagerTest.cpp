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
// that name cut short; killed at the end.
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
    if (pid_ > 0 && kill(pid_, SIGKILL) == 0) waitpid(pid_, nullptr, 0);
  }
  NamedChild(const NamedChild&) = delete;
  NamedChild& operator=(const NamedChild&) = delete;

  pid_t pid() const { return pid_; }
  bool started() const { return pid_ > 0 && platform::ProcessShortName(pid_) == shortName_; }

 private:
  const std::string shortName_;
  pid_t pid_ = -1;
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

// The single-copy rule: a process whose short name is a leading part of the
// query, in any case, counts; one whose name is longer does not.
TEST_F(CProcessManagerTest, FindMatchesLeadingPartsOfTheQueryInAnyCase) {
  NamedChild longer(folder_.path(), Name("-Norvane")), capitals(folder_.path(), Upper(Name("-Nor")));
  ASSERT_TRUE(longer.started() && capitals.started());
  EXPECT_EQ(FindOtherProcessNamedLike(Name("-NorX").c_str()), capitals.pid());
  EXPECT_EQ(FindOtherProcessNamedLike(Name("-No").c_str()), std::nullopt);
  EXPECT_EQ(FindOtherProcessNamedLike(""), std::nullopt) << "empty short names are skipped";
}

}  // namespace
