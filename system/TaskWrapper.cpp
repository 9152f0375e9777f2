#include "system/TaskWrapper.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "platform/Pipes.h"
#include "platform/Processes.h"
#include "system/MainBundle.h"
#include "util/Utf8.h"

namespace {

// The pipes between us and one child, each end closed once.  A background
// child has no output pipes: it writes where we write.
class ChildPipes {
 public:
  explicit ChildPipes(bool captureOutput) : captureOutput_(captureOutput) {}
  ~ChildPipes() {
    for (int* pipe : {input_, output_, error_})
      for (int end = 0; end < 2; ++end) CloseEnd(pipe, end);
  }
  ChildPipes(const ChildPipes&) = delete;
  ChildPipes& operator=(const ChildPipes&) = delete;

  int Open() {
    if (const int error = platform::MakePipe(input_)) return error;
    if (!captureOutput_) return 0;
    for (int* pipe : {output_, error_})
      if (const int error = platform::MakePipe(pipe)) return error;
    return 0;
  }

  // The child's ends: its standard input, output and error.
  void ChildEnds(int streams[3]) const {
    streams[0] = input_[0];
    streams[1] = captureOutput_ ? output_[1] : STDOUT_FILENO;
    streams[2] = captureOutput_ ? error_[1] : STDERR_FILENO;
  }

  // Once the child has its ends we keep only ours: the input's write end
  // and the outputs' read ends.
  void KeepOurEnds() {
    CloseEnd(input_, 0);
    CloseEnd(output_, 1);
    CloseEnd(error_, 1);
  }

  // Writes all of `input` to the child without waiting on it: it may end,
  // or close its input, before reading any.
  void WriteInput(const std::string& input) {
    size_t done = 0;
    while (done < input.size()) {
      const ssize_t wrote = platform::WriteWithoutSigpipe(input_[1], input.data() + done, input.size() - done);
      if (wrote < 0 && errno == EINTR) continue;
      if (wrote <= 0) break;
      done += static_cast<size_t>(wrote);
    }
    CloseEnd(input_, 1);
  }

  // Writes `input` and reads standard output and standard error, all at
  // once, until both outputs are at their end, so that a child never waits
  // on a full pipe.
  void Exchange(const std::string& input, std::string* output, std::string* error) {
    fcntl(input_[1], F_SETFL, fcntl(input_[1], F_GETFL) | O_NONBLOCK);
    size_t written = 0;
    if (input.empty()) CloseEnd(input_, 1);
    pollfd ends[3] = {{output_[0], POLLIN, 0}, {error_[0], POLLIN, 0}, {input_[1], POLLOUT, 0}};
    std::string* texts[2] = {output, error};
    char buffer[65536];
    while (ends[0].fd >= 0 || ends[1].fd >= 0) {
      if (poll(ends, 3, -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      for (int i = 0; i < 2; ++i) {
        if (ends[i].fd < 0 || ends[i].revents == 0) continue;
        const ssize_t got = read(ends[i].fd, buffer, sizeof buffer);
        if (got > 0) {
          texts[i]->append(buffer, static_cast<size_t>(got));
        } else if (got == 0 || errno != EINTR) {
          ends[i].fd = -1;
        }
      }
      if (ends[2].fd >= 0 && ends[2].revents != 0) {
        const ssize_t wrote = platform::WriteWithoutSigpipe(input_[1], input.data() + written, input.size() - written);
        if (wrote > 0) written += static_cast<size_t>(wrote);
        if (written == input.size() || (wrote < 0 && errno != EAGAIN && errno != EINTR)) {
          CloseEnd(input_, 1);
          ends[2].fd = -1;
        }
      }
    }
  }

 private:
  static void CloseEnd(int* pipe, int end) {
    if (pipe[end] >= 0) close(pipe[end]);
    pipe[end] = -1;
  }

  bool captureOutput_;
  int input_[2] = {-1, -1};
  int output_[2] = {-1, -1};
  int error_[2] = {-1, -1};
};

std::optional<std::string> AsUtf8(std::string bytes) {
  if (!IsValidUtf8(bytes)) return std::nullopt;
  return bytes;
}

int WaitForExit(pid_t pid) {
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return TaskWrapper::kNotStarted;
  }
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return WEXITSTATUS(status);
}

// The strings as the null-terminated array of pointers that exec takes;
// valid while `strings` is.
std::vector<char*> ExecArray(const std::vector<std::string>& strings) {
  std::vector<char*> array;
  for (const std::string& text : strings) array.push_back(const_cast<char*>(text.c_str()));
  array.push_back(nullptr);
  return array;
}

// Starts the program at `path` with `arguments` (the program name first),
// SIGPIPE at its default action and no signal blocked.  `streams` become
// the child's standard input, output and error; no other descriptor of
// this process reaches the child.  Returns 0 with the child's id in `pid`,
// or an errno value.
int Spawn(const std::string& path, const std::vector<std::string>& arguments, const int streams[3], pid_t* pid) {
  const std::vector<std::string> environment = platform::ChildEnvironment(MainBundlePath() + "/Contents/MacOS");
  std::vector<char*> envp = ExecArray(environment);
  std::vector<char*> argv = ExecArray(arguments);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (int target = 0; target < 3; ++target) posix_spawn_file_actions_adddup2(&actions, streams[target], target);
  short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  platform::CloseOtherDescriptorsInChild(&actions, &flags);

  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&attributes, &signals);
  sigaddset(&signals, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &signals);
  posix_spawnattr_setflags(&attributes, flags);

  const int error = posix_spawn(pid, path.c_str(), &actions, &attributes, argv.data(), envp.data());
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

// Starts the child on `pipes`; 0 or an errno value.
int Start(const std::string& path, const std::vector<std::string>& arguments, ChildPipes* pipes, pid_t* pid) {
  std::vector<std::string> argv{path};
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  int error = pipes->Open();
  if (error == 0) {
    int streams[3];
    pipes->ChildEnds(streams);
    error = Spawn(path, argv, streams, pid);
  }
  if (error == 0) pipes->KeepOurEnds();
  return error;
}

}  // namespace

TaskWrapper TaskWrapper::runTaskAtLaunchPath(const std::string& path, const std::vector<std::string>& arguments,
                                             const std::string& input) {
  TaskWrapper result;
  ChildPipes pipes(true);
  pid_t pid = -1;
  if (const int error = Start(path, arguments, &pipes, &pid)) {
    result.response_ = std::string();
    result.errorMessage_ = "cannot start " + path + ": " + std::strerror(error);
    return result;
  }
  std::string output, errorText;
  pipes.Exchange(input, &output, &errorText);
  result.terminationStatus_ = WaitForExit(pid);
  result.response_ = AsUtf8(std::move(output));
  result.errorMessage_ = AsUtf8(std::move(errorText));
  return result;
}

TaskWrapper TaskWrapper::runScript(const std::string& commandLine) {
  return runTaskAtLaunchPath("/bin/sh", {"-c", commandLine});
}

bool TaskWrapper::launchTaskInBackground(const std::string& path, const std::vector<std::string>& arguments,
                                         const std::string& input, std::shared_ptr<void> keptUntilExit) {
  auto pipes = std::make_shared<ChildPipes>(false);
  pid_t pid = -1;
  if (Start(path, arguments, pipes.get(), &pid) != 0) return false;
  platform::RunInBackground([pipes, pid, input, keptUntilExit] {
    pipes->WriteInput(input);
    WaitForExit(pid);
  });
  return true;
}
