// A program that the system tests start, often under a chosen file name:
//   bundle-path  prints the main bundle's path
//   fds          prints its open descriptors, one a line
#include <dirent.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "Platform.h"

int main(int argc, char** argv) {
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "bundle-path") {
    std::printf("%s", platform::MainBundlePath().c_str());
    return 0;
  }
  DIR* folder = mode == "fds" ? opendir("/proc/self/fd") : nullptr;
  if (folder == nullptr) return 1;
  while (const dirent* entry = readdir(folder))
    if (entry->d_name[0] != '.' && std::atoi(entry->d_name) != dirfd(folder)) std::printf("%s\n", entry->d_name);
  closedir(folder);
  return 0;
}
