#include "tests/support/StubBundle.h"

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "platform/Folders.h"
#include "util/ShellQuoting.h"

int RunShell(const std::string& command) {
  const int status = std::system(command.c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string MakeTempDir(const std::string& prefix) {
  std::string pattern = "/tmp/" + prefix + "XXXXXX";
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  return pattern;
}

StubBundle::StubBundle(const std::string& parent) {
  root_ = parent.empty() ? MakeTempDir("zq-bundle-") : parent;
  bundlePath_ = root_ + "/Zq Test Bundle.app";
  stubDir_ = root_ + "/stub record";
  const std::string macos = bundlePath_ + "/Contents/MacOS";
  const std::string explorer = macos + "/Zq Norvane Explorer.app/Contents/MacOS";
  std::string command =
      "mkdir -p " + SingleQuoted(explorer) + " " + SingleQuoted(stubDir_) + " " + SingleQuoted(root_ + "/bin");
  for (const std::string& stub :
       {macos + "/zq-mounter", explorer + "/Zq Norvane Explorer", root_ + "/bin/diskutil", root_ + "/bin/installer"})
    command += " && cp " + SingleQuoted(ZQ_TEST_SUPPORT_DIR "/record-args.sh") + " " + SingleQuoted(stub);
  command += " && cp " + SingleQuoted(ZQ_FAKE_LIBRARY_PATH) + " " + SingleQuoted(macos + "/libBitLockerWapper.dylib") +
             " && chmod 755 " + SingleQuoted(root_) + " && touch " + SingleQuoted(stubDir_ + "/calls");
  if (RunShell(command) != 0) throw std::runtime_error("failed: " + command);
  setenv("ZQ_STUB_DIR", stubDir_.c_str(), 1);
  setenv("ZQ_ACTIVITY_LOG", platform::ActivityLogPath().c_str(), 1);
  const char* path = std::getenv("PATH");
  oldPath_ = path ? path : "";
  setenv("PATH", (root_ + "/bin:" + oldPath_).c_str(), 1);
}

StubBundle::~StubBundle() {
  setenv("PATH", oldPath_.c_str(), 1);
  unsetenv("ZQ_STUB_DIR");
  unsetenv("ZQ_ACTIVITY_LOG");
  RunShell("rm -rf " + SingleQuoted(root_));
}

void StubBundle::Answer(const std::string& file, const std::string& text) const {
  std::ofstream(stubDir_ + "/" + file, std::ios::binary) << text;
}

void StubBundle::RemoveAnswer(const std::string& file) const { std::remove((stubDir_ + "/" + file).c_str()); }

std::vector<StubCall> StubBundle::Calls() const {
  std::ifstream in(stubDir_ + "/calls", std::ios::binary);
  std::vector<StubCall> calls;
  std::string program, count;
  while (std::getline(in, program, '\0') && std::getline(in, count, '\0')) {
    StubCall call{program, {}};
    std::string argument;
    for (int i = std::stoi(count); i > 0 && std::getline(in, argument, '\0'); --i) call.arguments.push_back(argument);
    calls.push_back(call);
  }
  return calls;
}

std::vector<StubCall> StubBundle::CallsOf(const std::string& program) const {
  std::vector<StubCall> matching;
  for (const StubCall& call : Calls())
    if (call.program == program) matching.push_back(call);
  return matching;
}

void StubBundle::ClearCalls() const { std::ofstream(stubDir_ + "/calls", std::ios::trunc); }
