// A program that the system tests start, often under a chosen file name:
//   bundle-path  prints the main bundle's path
//   kill NAME    kills the first other process named like NAME
//   find NAME    prints the id of the first other process named like NAME,
//                or "none"
//   fds          prints its open descriptors, one a line
#include <dirent.h>
#include <sys/types.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "CProcessManager.h"
#include "Platform.h"

namespace {

void PrintOpenDescriptors() {
  DIR* folder = opendir("/proc/self/fd");
  if (folder == nullptr) std::exit(2);
  while (const dirent* entry = readdir(folder)) {
    if (entry->d_name[0] == '.' || std::atoi(entry->d_name) == dirfd(folder)) continue;
    std::printf("%s\n", entry->d_name);
  }
  closedir(folder);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "bundle-path") {
    std::printf("%s", platform::MainBundlePath().c_str());
  } else if (mode == "kill" && argc > 2) {
    CProcessManager().KillProcess(argv[2]);
  } else if (mode == "find" && argc > 2) {
    const std::optional<pid_t> pid = FindOtherProcessNamedLike(argv[2]);
    std::printf("%s", pid ? std::to_string(*pid).c_str() : "none");
  } else if (mode == "fds") {
    PrintOpenDescriptors();
  } else {
    return 1;
  }
  return 0;
}
