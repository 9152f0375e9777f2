#include "ProgramRun.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace {

std::string ContentsAndClose(FILE* file) {
  std::string text;
  if (!file) return text;
  std::rewind(file);
  char buffer[4096];
  for (size_t got; (got = std::fread(buffer, 1, sizeof buffer, file)) > 0;) text.append(buffer, got);
  std::fclose(file);
  return text;
}

}  // namespace

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& words, const std::string& input) {
  ProgramRun run;
  FILE* files[3] = {std::tmpfile(), std::tmpfile(), std::tmpfile()};  // standard input, output, error
  if (files[0] && files[1] && files[2]) {
    std::fwrite(input.data(), 1, input.size(), files[0]);
    std::rewind(files[0]);
    const pid_t child = fork();
    if (child == 0) {
      for (int fd = 0; fd < 3; ++fd) dup2(fileno(files[fd]), fd);
      std::vector<char*> argv = {const_cast<char*>(program.c_str())};
      for (const std::string& word : words) argv.push_back(const_cast<char*>(word.c_str()));
      argv.push_back(nullptr);
      execv(program.c_str(), argv.data());
      _exit(127);
    }
    int status = 0;
    if (child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status)) run.status = WEXITSTATUS(status);
  }
  if (files[0]) std::fclose(files[0]);
  run.output = ContentsAndClose(files[1]);
  run.errors = ContentsAndClose(files[2]);
  return run;
}

