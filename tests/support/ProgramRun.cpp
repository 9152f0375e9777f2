#include "tests/support/ProgramRun.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <thread>

#include "system/TaskWrapper.h"

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& words, const std::string& input) {
  const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(program, words, input);
  return {run.terminationStatus() < 128 ? run.terminationStatus() : -1, run.response().value_or(""),
          run.errorMessage().value_or("")};
}

StartedProgram::StartedProgram(const std::string& program, const std::vector<std::string>& words) {
  int input[2], errors[2];
  if (pipe2(input, O_CLOEXEC) != 0) return;
  if (pipe2(errors, O_CLOEXEC) != 0) {
    close(input[0]);
    close(input[1]);
    return;
  }
  std::vector<char*> argv{const_cast<char*>(program.c_str())};
  for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    dup2(input[0], 0);
    dup2(errors[1], 2);
    execv(program.c_str(), argv.data());
    _exit(127);
  }
  close(input[0]);
  close(errors[1]);
  input_ = input[1];
  errors_ = errors[0];
}

StartedProgram::~StartedProgram() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    Wait();
  }
  for (int fd : {input_, errors_})
    if (fd >= 0) close(fd);
}

bool StartedProgram::WaitUntilReadingAPipe(pid_t pid, int seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  while (std::chrono::steady_clock::now() < end) {
    std::string where;
    std::ifstream(("/proc/" + std::to_string(pid) + "/wchan").c_str()) >> where;
    if (where.find("pipe_read") != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

void StartedProgram::SendAndClose(const std::string& text) {
  if (input_ < 0) return;
  const ssize_t written = write(input_, text.data(), text.size());
  static_cast<void>(written);  // a program that has ended reads nothing
  close(input_);
  input_ = -1;
}

std::string StartedProgram::FirstErrorLine(int seconds) {
  std::string line;
  pollfd readable = {errors_, POLLIN, 0};
  char byte = 0;
  while (line.empty() || line.back() != '\n') {
    if (poll(&readable, 1, seconds * 1000) <= 0 || read(errors_, &byte, 1) != 1) break;
    line += byte;
  }
  return line;
}

int StartedProgram::Wait() {
  int status = 0;
  const bool ended = pid_ > 0 && waitpid(pid_, &status, 0) == pid_;
  pid_ = -1;
  return ended && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
