// Runs one external program, or one shell command line, to its end and
// hands back what it wrote to standard output and standard error.
//
// Each stream is decoded as UTF-8; a stream that is not valid UTF-8 gives no
// string at all (nullopt).  The exit status is not kept: callers judge a
// command by its text.
#ifndef ZQ_SYSTEM_TASKWRAPPER_H_
#define ZQ_SYSTEM_TASKWRAPPER_H_

#include <optional>
#include <string>
#include <utility>
#include <vector>

class TaskWrapper {
 public:
  // Starts `path` with `arguments` (the program name not included), its
  // standard input a pipe that nothing is written to, and waits for it to
  // end.  Both output streams are drained while the child runs.  A program
  // that cannot be started gives an empty response and a message in
  // errorMessage.
  static TaskWrapper runTaskAtLaunchPath(const std::string& path,
                                         const std::vector<std::string>& arguments);

  // runTaskAtLaunchPath("/bin/sh", {"-c", commandLine}).
  static TaskWrapper runScript(const std::string& commandLine);

  const std::optional<std::string>& response() const { return response_; }
  const std::optional<std::string>& errorMessage() const { return errorMessage_; }
  void setResponse(std::optional<std::string> text) { response_ = std::move(text); }
  void setErrorMessage(std::optional<std::string> text) { errorMessage_ = std::move(text); }

 private:
  std::optional<std::string> response_;
  std::optional<std::string> errorMessage_;
};

#endif  // ZQ_SYSTEM_TASKWRAPPER_H_
