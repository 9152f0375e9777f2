// A program that the system tests start, often under a chosen file name:
//   bundle-path  prints the main bundle's path
//   fds          prints its open descriptors, one a line
#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <string>

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
  } else if (mode == "fds") {
    PrintOpenDescriptors();
  } else {
    return 1;
  }
  return 0;
}
