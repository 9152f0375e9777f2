#include "TestSupport.h"

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <random>
#include <thread>

#include "Platform.h"

extern char** environ;

TempDir::TempDir() {
  char pattern[] = "/tmp/zq-system-test-XXXXXX";
  if (mkdtemp(pattern) != nullptr) path_ = pattern;
}

TempDir::~TempDir() {
  if (!path_.empty()) Shell("rm -rf '" + path_ + "'");
}

void WriteFile(const std::string& path, const std::string& contents, mode_t mode) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
  chmod(path.c_str(), mode);
}

int Shell(const std::string& command) {
  const int status = std::system(command.c_str());
  return status != -1 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string UniqueToken(size_t length) {
  std::random_device device;
  std::mt19937 generator(device() ^ static_cast<unsigned>(getpid()));
  std::uniform_int_distribution<int> letter('a', 'z');
  std::string token;
  for (size_t i = 0; i < length; ++i) token += static_cast<char>(letter(generator));
  return token;
}

std::string HelperProgram() { return ZQ_SYSTEM_TEST_HELPER; }

NamedChild::NamedChild(const std::string& folder, const std::string& name) {
  const std::string path = folder + "/" + name;
  char* argv[] = {const_cast<char*>(path.c_str()), const_cast<char*>("300"), nullptr};
  if (Shell("cp /bin/sleep '" + path + "'") != 0 || posix_spawn(&pid_, path.c_str(), nullptr, nullptr, argv, environ) != 0) {
    pid_ = -1;
    return;
  }
  const std::string shortName = name.substr(0, platform::kShortNameLength);
  for (int attempt = 0; attempt < 500 && !started_; ++attempt) {
    started_ = platform::ProcessShortName(pid_) == shortName;
    if (!started_) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

NamedChild::~NamedChild() {
  if (pid_ <= 0 || reaped_) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

bool NamedChild::WaitKilled() {
  if (pid_ <= 0 || reaped_) return false;
  int status = 0;
  if (waitpid(pid_, &status, 0) != pid_) return false;
  reaped_ = true;
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

bool NamedChild::Running() {
  if (pid_ <= 0 || reaped_) return false;
  int status = 0;
  if (waitpid(pid_, &status, WNOHANG) == 0) return true;
  reaped_ = true;
  return false;
}
