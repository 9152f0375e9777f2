#include "platform/Bundle.h"

#include <unistd.h>

namespace platform {
namespace {

std::string ExecutablePath() {
  std::string path(256, '\0');
  for (;;) {
    const ssize_t length = readlink("/proc/self/exe", &path[0], path.size());
    if (length < 0) return "";
    if (static_cast<size_t>(length) < path.size()) {
      path.resize(static_cast<size_t>(length));
      return path;
    }
    path.resize(path.size() * 2);
  }
}

}  // namespace

std::string ExecutableBundlePath() {
  const std::string executable = ExecutablePath();
  const size_t slash = executable.rfind('/');
  std::string folder = slash == std::string::npos ? "" : executable.substr(0, slash);
  constexpr char kInsideBundle[] = "/Contents/MacOS";
  constexpr size_t kInsideLength = sizeof kInsideBundle - 1;
  if (folder.size() >= kInsideLength && folder.compare(folder.size() - kInsideLength, kInsideLength, kInsideBundle) == 0)
    folder.resize(folder.size() - kInsideLength);
  return folder.empty() ? "/" : folder;
}

}  // namespace platform
