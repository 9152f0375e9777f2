#include "TaskWrapper.h"

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "Platform.h"
#include "Utf8.h"

namespace {

// The three pipes between us and one child, each end closed once.
class ChildPipes {
 public:
  ChildPipes() = default;
  ~ChildPipes() {
    for (int* pipe : {input_, output_, error_})
      for (int end = 0; end < 2; ++end) CloseEnd(pipe, end);
  }
  ChildPipes(const ChildPipes&) = delete;
  ChildPipes& operator=(const ChildPipes&) = delete;

  int Open() {
    for (int* pipe : {input_, output_, error_})
      if (const int error = platform::MakePipe(pipe)) return error;
    return 0;
  }

  // The child's ends: its standard input, output and error.
  void ChildEnds(int streams[3]) const {
    streams[0] = input_[0];
    streams[1] = output_[1];
    streams[2] = error_[1];
  }

  // Once the child has its ends we keep only the two we read from.
  void KeepReadEnds() {
    CloseEnd(input_, 0);
    CloseEnd(input_, 1);
    CloseEnd(output_, 1);
    CloseEnd(error_, 1);
  }

  // Reads standard output and standard error together until both are at
  // their end, so that a child never waits on a full pipe.
  void Drain(std::string* output, std::string* error) {
    pollfd readers[2] = {{output_[0], POLLIN, 0}, {error_[0], POLLIN, 0}};
    std::string* texts[2] = {output, error};
    char buffer[65536];
    while (readers[0].fd >= 0 || readers[1].fd >= 0) {
      if (poll(readers, 2, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      for (int i = 0; i < 2; ++i) {
        if (readers[i].fd < 0 || readers[i].revents == 0) continue;
        const ssize_t got = read(readers[i].fd, buffer, sizeof buffer);
        if (got > 0) {
          texts[i]->append(buffer, static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) {
          readers[i].fd = -1;
        }
      }
    }
  }

 private:
  static void CloseEnd(int* pipe, int end) {
    if (pipe[end] >= 0) close(pipe[end]);
    pipe[end] = -1;
  }

  int input_[2] = {-1, -1};
  int output_[2] = {-1, -1};
  int error_[2] = {-1, -1};
};

std::optional<std::string> AsUtf8(std::string bytes) {
  if (!IsValidUtf8(bytes)) return std::nullopt;
  return bytes;
}

void WaitForExit(pid_t pid) {
  int status;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace

TaskWrapper TaskWrapper::runTaskAtLaunchPath(const std::string& path, const std::vector<std::string>& arguments) {
  TaskWrapper result;
  std::vector<std::string> argv{path};
  argv.insert(argv.end(), arguments.begin(), arguments.end());

  ChildPipes pipes;
  int error = pipes.Open();
  pid_t pid = -1;
  if (error == 0) {
    int streams[3];
    pipes.ChildEnds(streams);
    error = platform::SpawnProcess(path, argv, streams, &pid);
  }
  if (error != 0) {
    result.setResponse(std::string());
    result.setErrorMessage("cannot start " + path + ": " + std::strerror(error));
    return result;
  }

  // Nothing is ever written to the child's input: it reads end of file.
  pipes.KeepReadEnds();
  std::string output, errorText;
  pipes.Drain(&output, &errorText);
  WaitForExit(pid);
  result.setResponse(AsUtf8(std::move(output)));
  result.setErrorMessage(AsUtf8(std::move(errorText)));
  return result;
}

TaskWrapper TaskWrapper::runScript(const std::string& commandLine) {
  return runTaskAtLaunchPath("/bin/sh", {"-c", commandLine});
}
