#include "system/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>

namespace {

bool MakeFolders(const std::string& folder) {
  for (size_t slash = folder.find('/', 1); ; slash = folder.find('/', slash + 1)) {
    const std::string prefix = folder.substr(0, slash);
    if (mkdir(prefix.c_str(), 0755) != 0 && errno != EEXIST) return false;
    if (slash == std::string::npos) break;
  }
  struct stat info;
  return stat(folder.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// Opens a file name in `folder` that nobody else uses; -1 when none can be made.
int OpenFreshFile(const std::string& folder, const std::string& baseName, std::string* tempPath) {
  static std::atomic<unsigned> counter{0};
  for (int attempt = 0; attempt < 100; ++attempt) {
    *tempPath = folder + "/." + baseName + ".tmp-" + std::to_string(getpid()) + "-" + std::to_string(counter++);
    const int fd = open(tempPath->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0 || errno != EEXIST) return fd;
  }
  return -1;
}

bool WriteAll(int fd, const std::string& contents) {
  size_t done = 0;
  while (done < contents.size()) {
    const ssize_t written = write(fd, contents.data() + done, contents.size() - done);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(written);
  }
  return true;
}

}  // namespace

bool WriteFileAtomically(const std::string& path, const std::string& contents, mode_t mode) {
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  const std::string baseName = slash == std::string::npos ? path : path.substr(slash + 1);
  if (baseName.empty() || !MakeFolders(folder)) return false;

  std::string tempPath;
  const int fd = OpenFreshFile(folder, baseName, &tempPath);
  if (fd < 0) return false;
  bool written = fchmod(fd, mode) == 0 && WriteAll(fd, contents) && fsync(fd) == 0;
  written = close(fd) == 0 && written;
  if (written && rename(tempPath.c_str(), path.c_str()) == 0) return true;
  unlink(tempPath.c_str());
  return false;
}
