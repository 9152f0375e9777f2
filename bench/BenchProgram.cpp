#include "bench/BenchProgram.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

#include "system/TaskWrapper.h"

std::optional<std::string> ProgramPath(const std::string& program) {
  if (program.find('/') != std::string::npos) return program;
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "");
  std::string folder;
  while (std::getline(folders, folder, ':')) {
    const std::string candidate = folder + "/" + program;
    if (access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::nullopt;
}

bool ProgramInstalled(const std::string& program) {
  const std::optional<std::string> path = ProgramPath(program);
  return path && access(path->c_str(), X_OK) == 0;
}

bool RunProgram(const std::vector<std::string>& argv, const std::string& input) {
  const std::optional<std::string> path = argv.empty() ? std::nullopt : ProgramPath(argv.front());
  if (!path) return false;
  const TaskWrapper run =
      TaskWrapper::runTaskAtLaunchPath(*path, std::vector<std::string>(argv.begin() + 1, argv.end()), input);
  std::fputs(run.response().value_or("").c_str(), stderr);
  std::fputs(run.errorMessage().value_or("").c_str(), stderr);
  return run.terminationStatus() == 0;
}
