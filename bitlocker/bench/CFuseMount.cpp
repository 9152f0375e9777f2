#include "CFuseMount.h"

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

namespace {

// Runs a program and waits; true when it exits with status 0.  Its output
// goes to standard error, where it cannot break the table of figures.
bool RunProgram(const std::vector<std::string>& argv) {
  pid_t child = ::fork();
  if (child < 0) return false;
  if (child == 0) {
    ::dup2(STDERR_FILENO, STDOUT_FILENO);
    std::vector<char*> args;
    for (const auto& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
  }
  int status = 0;
  if (::waitpid(child, &status, 0) != child) return false;
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

bool ProgramInstalled(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path ? path : "");
  std::string folder;
  while (std::getline(folders, folder, ':')) {
    if (::access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

std::unique_ptr<CFuseMount> CFuseMount::Start(std::vector<std::string> argv,
                                              const std::string& fileName) {
  char pattern[] = "/tmp/zq-bitlocker-bench-XXXXXX";
  if (!::mkdtemp(pattern)) return nullptr;
  std::unique_ptr<CFuseMount> mount(new CFuseMount(pattern));
  argv.push_back(pattern);
  if (!RunProgram(argv)) return nullptr;
  mount->file_ = mount->mountPoint_ + "/" + fileName;
  struct stat st;
  if (::stat(mount->file_.c_str(), &st) != 0) return nullptr;
  return mount;
}

CFuseMount::~CFuseMount() {
  if (!file_.empty()) RunProgram({"fusermount", "-u", "-q", mountPoint_});
  ::rmdir(mountPoint_.c_str());
}
