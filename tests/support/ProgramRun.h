// Running a program from a test and collecting what it wrote.
#ifndef ZQ_TESTS_SUPPORT_PROGRAMRUN_H_
#define ZQ_TESTS_SUPPORT_PROGRAMRUN_H_

#include <string>
#include <vector>

struct ProgramRun {
  int status = -1;     // the exit status, or -1 when it did not exit normally
  std::string output;  // what it wrote on standard output, when UTF-8
  std::string errors;  // what it wrote on standard error, when UTF-8
};

// Runs `program` with `words` (the program name not included), `input` on
// its standard input, and waits for it to end.
ProgramRun RunProgram(const std::string& program, const std::vector<std::string>& words, const std::string& input = "");

#endif  // ZQ_TESTS_SUPPORT_PROGRAMRUN_H_
