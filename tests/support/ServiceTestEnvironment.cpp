#include "tests/support/ServiceTestEnvironment.h"

#include <fcntl.h>
#include <grp.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <fstream>

#include "Include/CPipeDataWrapper.h"

namespace {

// Polls `done` 20 times a second for up to `seconds`; true once it holds.
bool PollFor(int seconds, const std::function<bool()>& done) {
  for (int i = 0; i < seconds * 20; ++i, usleep(50 * 1000))
    if (done()) return true;
  return done();
}

}  // namespace

RawClient::RawClient(const ClientChannel& channel) : channel_(channel) {
  mkfifo(channel_.toService, 0600);
  mkfifo(channel_.toClient, 0600);
  readFd_ = open(channel_.toClient, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
}

RawClient::~RawClient() {
  for (int fd : {readFd_, writeFd_})
    if (fd != -1) close(fd);
}

bool RawClient::Send(uint32_t msgId, const void* record, size_t length) {
  // The service opens its read end within a second of the FIFO appearing.
  const auto opened = [&] { return (writeFd_ = open(channel_.toService, O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; };
  if (writeFd_ == -1 && !PollFor(10, opened)) return false;
  Block block{};
  std::memcpy(block.data(), &msgId, sizeof msgId);
  std::memcpy(block.data() + 4, record, std::min(length, block.size() - 4));
  return write(writeFd_, block.data(), block.size()) == static_cast<ssize_t>(block.size());
}

bool RawClient::Send(uint32_t msgId, const CCommandDataWrapper<char>& record) {
  return Send(msgId, &record, CPipeDataWrapper::GetCommandDataLen(static_cast<COMMAND_TYPE>(record.type)));
}

std::optional<Block> RawClient::Receive(int seconds) {
  Block block{};
  if (PollFor(seconds, [&] { return read(readFd_, block.data(), block.size()) == static_cast<ssize_t>(block.size()); }))
    return block;
  return std::nullopt;
}

ServiceProcess::ServiceProcess(const std::string& bundlePath)
    : executable_(bundlePath + "/Contents/MacOS/Zq-NorvaneServices") {
  RunShell("cp '" ZQ_SERVICE_EXECUTABLE "' '" + executable_ + "'");
}

ServiceProcess::~ServiceProcess() {
  if (Running() && kill(pid_, SIGKILL) == 0) WaitForExit(5);
}

void ServiceProcess::Start(const std::vector<std::string>& arguments) {
  std::vector<char*> argv{executable_.data()};
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  if ((pid_ = fork()) == 0) {
    execv(argv[0], argv.data());
    _exit(126);
  }
  signal_ = 0;
}

std::optional<int> ServiceProcess::WaitForExit(int seconds) {
  int status = 0;
  if (!PollFor(seconds, [&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) return std::nullopt;
  pid_ = -1;
  signal_ = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
  return WIFSIGNALED(status) ? -1 : WEXITSTATUS(status);
}

bool ServiceProcess::Running() { return pid_ > 0 && !WaitForExit(0).has_value(); }

CCommandDataWrapper<char> MakeRecord(COMMAND_TYPE type) {
  CCommandDataWrapper<char> record;
  std::memset(&record, 0, sizeof record);
  record.type = type;
  record.length = CPipeDataWrapper::GetCommandDataLen(type);
  return record;
}

std::vector<std::string> LogMessages() {
  std::ifstream log("/tmp/zqlog.log", std::ios::binary);
  std::vector<std::string> messages;
  for (std::string line; std::getline(log, line);) {
    const size_t start = line.find("    ");
    if (start != std::string::npos)
      messages.push_back(line.substr(start + 4, line.size() - start - 4 - (line.back() == '\r')));
  }
  return messages;
}

bool WaitForPath(const std::string& path, int seconds) {
  struct stat info;
  return PollFor(seconds, [&] { return lstat(path.c_str(), &info) == 0; });
}

std::string MakeRootOwnedBundle() {
  const std::string bundle = "/Library/Applications/Zq Norvane.app";
  RunShell("mkdir -p -m 755 '" + bundle + "/Contents/MacOS' && cp '" ZQ_SERVICE_EXECUTABLE "' '" + bundle +
           "/Contents/MacOS/Zq-NorvaneServices'");
  return bundle;
}

int RunAsUser(uid_t uid, const std::function<int()>& work) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) _exit(setgroups(0, nullptr) != 0 || setgid(uid) != 0 || setuid(uid) != 0 ? 126 : work());
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
  return WEXITSTATUS(status);
}

ConsoleUserIs::ConsoleUserIs(uid_t uid) {
  const std::string stand = "/tmp/console-of-" + std::to_string(uid);
  RunShell("touch '" + stand + "' && chown " + std::to_string(uid) + " '" + stand + "'");
  if (mount(stand.c_str(), "/dev/console", nullptr, MS_BIND, nullptr) != 0) ADD_FAILURE() << "no bind mount";
}

ConsoleUserIs::~ConsoleUserIs() { umount("/dev/console"); }

void ServiceTestBase::SetUp() {
  if (!ServiceTestsUnavailable().empty()) GTEST_SKIP() << ServiceTestsUnavailable();
  bundle = std::make_unique<StubBundle>();
  service = std::make_unique<ServiceProcess>(bundle->bundlePath());
}
