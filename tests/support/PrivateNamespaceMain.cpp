// Runs each test case in namespaces of its own under a private root
// (scripts/private-root.sh): a /tmp, /run, /Library, /etc/systemd/system,
// /var/log, /dev/shm and volumes folders of its own, so that FIFOs, the
// logs, the startup items, the systemd unit, the named semaphores, the
// mounter's staging folders and the mount points never meet those of another
// case or of a service running on the machine, and a process table of its
// own, so that the single-copy rule sees only this case's services.  Each
// case gets fresh ones whether CTest runs it alone or the whole binary runs.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "tests/support/ProgramRun.h"
#include "tests/support/ServiceTestEnvironment.h"

namespace {

constexpr char kInsideVariable[] = "ZQ_TEST_CASE_IN_PRIVATE_ROOT";

std::string unavailable;

std::string ThisProgram() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

// The cases the command line selects, as --gtest_list_tests names them;
// false when the program could not list them.
bool SelectedCases(const std::string& program, std::vector<std::string> flags, std::vector<std::string>* cases) {
  flags.push_back("--gtest_list_tests");
  const ProgramRun listing = RunProgram(program, flags);
  std::string suite;
  size_t start = 0;
  while (start < listing.output.size()) {
    size_t end = listing.output.find('\n', start);
    if (end == std::string::npos) end = listing.output.size();
    std::string line = listing.output.substr(start, end - start);
    start = end + 1;
    line = line.substr(0, line.find("  #"));
    if (line.empty()) continue;
    if (line[0] != ' ')
      suite = line;
    else
      cases->push_back(suite + line.substr(line.find_first_not_of(' ')));
  }
  return listing.status == 0;
}

// Runs one case of `program` in fresh namespaces and prints what it said.
bool RunCaseInPrivateRoot(const std::string& program, std::vector<std::string> flags, const std::string& name) {
  std::vector<std::string> words = {"--mount", "--pid", "--fork", "--mount-proc", "--propagation", "private",
                                    ZQ_PRIVATE_ROOT_SCRIPT, "--keep", ZQ_SOURCE_DIR, "--keep", ZQ_BUILD_DIR};
  if (access(ZQ_SOURCE_DIR "/../shared", F_OK) == 0) words.insert(words.end(), {"--keep", ZQ_SOURCE_DIR "/../shared"});
  words.push_back(program);
  flags.push_back("--gtest_filter=" + name);
  words.insert(words.end(), flags.begin(), flags.end());
  const ProgramRun run = RunProgram("/usr/bin/unshare", words);
  std::fputs(run.output.c_str(), stdout);
  std::fputs(run.errors.c_str(), stderr);
  std::fflush(nullptr);
  return run.status == 0;
}

}  // namespace

const std::string& ServiceTestsUnavailable() { return unavailable; }

int main(int argc, char** argv) {
  // GoogleTest takes its own flags out of argv; the cases run with them all.
  const std::vector<std::string> flags(argv + 1, argv + argc);
  testing::InitGoogleTest(&argc, argv);
  if (std::getenv(kInsideVariable) != nullptr || GTEST_FLAG_GET(list_tests)) return RUN_ALL_TESTS();
  unavailable = geteuid() != 0                              ? "the service tests need root (private mount and process namespaces)"
                : access("/usr/bin/unshare", X_OK) != 0 ? "unshare(1) is missing"
                                                            : "";
  if (!unavailable.empty()) return RUN_ALL_TESTS();

  const std::string program = ThisProgram();
  setenv(kInsideVariable, "1", 1);
  std::vector<std::string> cases;
  if (!SelectedCases(program, flags, &cases)) {
    std::fprintf(stderr, "%s could not list its cases\n", program.c_str());
    return 1;
  }
  std::vector<std::string> failed;
  for (const std::string& name : cases)
    if (!RunCaseInPrivateRoot(program, flags, name)) failed.push_back(name);
  std::printf("[==========] %zu cases, each in namespaces of its own; %zu failed\n", cases.size(), failed.size());
  for (const std::string& name : failed) std::printf("[  FAILED  ] %s\n", name.c_str());
  return failed.empty() ? 0 : 1;
}
