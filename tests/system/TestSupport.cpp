#include "TestSupport.h"

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "Platform.h"

extern char** environ;

void WriteFile(const std::string& path, const std::string& contents, mode_t mode) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << contents;
  chmod(path.c_str(), mode);
}

NamedChild::NamedChild(const std::string& folder, const std::string& name) {
  const std::string path = folder + "/" + name;
  char* argv[] = {const_cast<char*>(path.c_str()), const_cast<char*>("300"), nullptr};
  if (RunShell("cp /bin/sleep '" + path + "'") != 0 || posix_spawn(&pid_, path.c_str(), nullptr, nullptr, argv, environ) != 0) {
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
