#include "tests/support/ProgramRun.h"

#include "system/TaskWrapper.h"

ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& words, const std::string& input) {
  const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(program, words, input);
  return {run.terminationStatus() < 128 ? run.terminationStatus() : -1, run.response().value_or(""),
          run.errorMessage().value_or("")};
}
