// The one way the system starts another program: it runs the program, or a
// shell command line, to its end and hands back its exit status and what it
// wrote to standard output and standard error, or starts it in the
// background without waiting.
//
// Each output stream is decoded as UTF-8; a stream that is not valid UTF-8
// gives no string at all (nullopt).
#ifndef ZQ_SYSTEM_TASKWRAPPER_H_
#define ZQ_SYSTEM_TASKWRAPPER_H_

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

class TaskWrapper {
 public:
  // What terminationStatus() is when the program could not be started.
  static constexpr int kNotStarted = -1;

  // Starts `path` with `arguments` (the program name not included), writes
  // `input` to its standard input and closes it, and waits for it to end.
  // Both output streams are drained while the child runs.  A program that
  // cannot be started gives an empty response, the status kNotStarted and
  // "cannot start PATH: reason" in errorMessage.
  static TaskWrapper runTaskAtLaunchPath(const std::string& path, const std::vector<std::string>& arguments,
                                         const std::string& input = std::string());

  // runTaskAtLaunchPath("/bin/sh", {"-c", commandLine}).
  static TaskWrapper runScript(const std::string& commandLine);

  // Starts `path` with `arguments` and returns at once.  The child writes to
  // this process's standard output and error; `input` is written to its
  // standard input, then closed, and the child is reaped when it ends, on a
  // thread of its own, which keeps `keptUntilExit` until then.  False when
  // the program could not be started.
  static bool launchTaskInBackground(const std::string& path, const std::vector<std::string>& arguments,
                                     const std::string& input = std::string(),
                                     std::shared_ptr<void> keptUntilExit = nullptr);

  const std::optional<std::string>& response() const { return response_; }
  const std::optional<std::string>& errorMessage() const { return errorMessage_; }
  // The child's exit status (0 to 255), 128 plus the number of the signal
  // that ended it, or kNotStarted.
  int terminationStatus() const { return terminationStatus_; }

 private:
  std::optional<std::string> response_;
  std::optional<std::string> errorMessage_;
  int terminationStatus_ = kNotStarted;
};

#endif  // ZQ_SYSTEM_TASKWRAPPER_H_
