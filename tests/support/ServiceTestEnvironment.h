// The running service and the two clients as the end-to-end tests see them.
#ifndef ZQ_TESTS_SUPPORT_SERVICETESTENVIRONMENT_H_
#define ZQ_TESTS_SUPPORT_SERVICETESTENVIRONMENT_H_

#include <sys/types.h>

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Include/ClientChannels.h"
#include "Include/CommandData.h"
#include "tests/support/StubBundle.h"

// Why these tests cannot run here, or empty (see PrivateNamespaceMain.cpp).
const std::string& ServiceTestsUnavailable();

using Block = std::array<unsigned char, 512>;

// One client application's end of a channel, on raw FIFOs: it makes both
// FIFOs, as a client does, and moves whole 512-byte blocks.
class RawClient {
 public:
  explicit RawClient(const ClientChannel& channel);
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  // Writes one block: the id, then the record, then zeros.
  bool Send(uint32_t msgId, const void* record, size_t length);
  bool Send(uint32_t msgId, const CCommandDataWrapper<char>& record);
  // The next block from the service, or nullopt after `seconds`.
  std::optional<Block> Receive(int seconds);

 private:
  ClientChannel channel_;
  int readFd_ = -1;
  int writeFd_ = -1;
};

// The service executable, copied into a bundle and started as a child.
class ServiceProcess {
 public:
  explicit ServiceProcess(const std::string& bundlePath);
  ~ServiceProcess();  // kills the service if it still runs
  ServiceProcess(const ServiceProcess&) = delete;
  ServiceProcess& operator=(const ServiceProcess&) = delete;

  // Starts the service with `arguments` (none for the plain start).
  void Start(const std::vector<std::string>& arguments = {});
  // Waits up to `seconds` for the service to end; its exit status, or
  // nullopt if it still runs.
  std::optional<int> WaitForExit(int seconds);
  bool Running();
  pid_t pid() const { return pid_; }
  // How the process ended when it was killed by a signal.
  int terminatingSignal() const { return signal_; }

 private:
  std::string executable_;
  pid_t pid_ = -1;
  int signal_ = 0;
};

// One end-to-end test's stub bundle with the service copied into it; the
// test is skipped where the service tests cannot run.
class ServiceTestBase : public testing::Test {
 protected:
  void SetUp() override;

  std::unique_ptr<StubBundle> bundle;
  std::unique_ptr<ServiceProcess> service;
};

// A record of `type` with its table length and everything else zero.
CCommandDataWrapper<char> MakeRecord(COMMAND_TYPE type);

// The lines of the service's log, without their prefix, time and CR LF.
std::vector<std::string> LogMessages();

// A bundle that only root can change, as an installed one is, holding a
// service program: "/Library/Applications/Zq Norvane.app" in the tests'
// private /Library.
std::string MakeRootOwnedBundle();

// Waits up to `seconds` for `path` to exist.
bool WaitForPath(const std::string& path, int seconds);

// Runs `work` in a forked child that has become `uid` (and the group of the
// same number); the child's exit status, or -1.
int RunAsUser(uid_t uid, const std::function<int()>& work);

// Makes `uid` the user at the machine while it lives: a file of theirs is
// bind-mounted over /dev/console in the tests' private mount namespace.
class ConsoleUserIs {
 public:
  explicit ConsoleUserIs(uid_t uid);
  ~ConsoleUserIs();
  ConsoleUserIs(const ConsoleUserIs&) = delete;
  ConsoleUserIs& operator=(const ConsoleUserIs&) = delete;
};

#endif  // ZQ_TESTS_SUPPORT_SERVICETESTENVIRONMENT_H_
