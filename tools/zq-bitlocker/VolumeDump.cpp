#include "tools/zq-bitlocker/VolumeDump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <vector>

#include "tools/zq-bitlocker/Failure.h"

using namespace bitlocker;

namespace {

constexpr size_t kDumpChunk = 8 * 1024 * 1024;

bool WriteAll(int fd, const uint8_t* data, size_t size) {
  while (size > 0) {
    ssize_t put = ::write(fd, data, size);
    if (put < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += put;
    size -= static_cast<size_t>(put);
  }
  return true;
}

}  // namespace

std::string DumpRefusal(const DumpTarget& target) {
  if (target.output.empty()) {
    return ::isatty(STDOUT_FILENO) ? "standard output is a terminal: give --output FILE or a pipe" : "";
  }
  struct stat output, source;
  if (::stat(target.output.c_str(), &output) != 0) return "";
  if (target.output == target.device ||
      (::stat(target.device.c_str(), &source) == 0 && source.st_dev == output.st_dev &&
       source.st_ino == output.st_ino))
    return target.output + " is the volume itself";
  return target.force ? "" : target.output + " exists: give --force to replace it";
}

int DumpVolume(CUnlockedVolume& volume, const DumpTarget& target, ProgressStyle style) {
  int fd = STDOUT_FILENO;
  if (!target.output.empty()) {
    const int replace = target.force ? O_TRUNC : O_EXCL;
    fd = ::open(target.output.c_str(), O_WRONLY | O_CREAT | replace | O_CLOEXEC, 0600);
    if (fd < 0) return Fail(Status::kIoError, target.output, std::strerror(errno));
  }
  const std::string outputName = target.output.empty() ? "standard output" : target.output;
  std::string failed, why;  // what failed, and why
  std::vector<uint8_t> buffer(kDumpChunk);
  DumpProgress progress(volume.Size(), style, std::cerr);
  uint64_t offset = 0;
  while (offset < volume.Size() && failed.empty()) {
    ssize_t got = volume.Read(offset, buffer.data(), buffer.size());
    if (got <= 0) {
      failed = target.device, why = got < 0 ? std::strerror(errno) : "short read";
    } else if (!WriteAll(fd, buffer.data(), static_cast<size_t>(got))) {
      failed = outputName, why = std::strerror(errno);
    } else {
      offset += static_cast<uint64_t>(got);
      progress.Update(offset);
    }
  }
  if (fd != STDOUT_FILENO && ::close(fd) != 0 && failed.empty()) failed = outputName, why = std::strerror(errno);
  progress.Finish(offset);
  return failed.empty() ? 0 : Fail(Status::kIoError, failed, why);
}
