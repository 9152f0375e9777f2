// Running a program from a test and collecting what it wrote.
#ifndef ZQ_TESTS_SUPPORT_PROGRAMRUN_H_
#define ZQ_TESTS_SUPPORT_PROGRAMRUN_H_

#include <sys/types.h>

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

// A program started with a pipe on its standard input that the test writes
// to when it chooses, so that the program can be held at the point where it
// reads its input.  Killed on destruction if it is still running.
class StartedProgram {
 public:
  StartedProgram(const std::string& program, const std::vector<std::string>& words);
  ~StartedProgram();
  StartedProgram(const StartedProgram&) = delete;
  StartedProgram& operator=(const StartedProgram&) = delete;

  pid_t pid() const { return pid_; }

  // Whether the program (or a process it forked, with `pid`) sits reading
  // a pipe, as it does while it waits for its input; waits up to `seconds`.
  static bool WaitUntilReadingAPipe(pid_t pid, int seconds);

  // Writes `text` and closes the program's standard input.
  void SendAndClose(const std::string& text);

  // What the program wrote on standard error up to its first line's end,
  // waiting up to `seconds`.
  std::string FirstErrorLine(int seconds);

  // Waits for the program to end; its exit status, or -1.
  int Wait();

 private:
  pid_t pid_ = -1;
  int input_ = -1;
  int errors_ = -1;
};

#endif  // ZQ_TESTS_SUPPORT_PROGRAMRUN_H_
