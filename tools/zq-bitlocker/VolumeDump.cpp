#include "tools/zq-bitlocker/VolumeDump.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iostream>
#include <set>
#include <utility>
#include <vector>

#include "platform/Devices.h"
#include "tools/zq-bitlocker/Failure.h"

using namespace bitlocker;

namespace {

constexpr size_t kDumpChunk = 8 * 1024 * 1024;

// The exit status of a dump ended by a signal, as a shell reports one.
constexpr int kInterrupted = 128 + SIGINT;

std::atomic<bool> stopAsked{false};

void AskToStop(int) { stopAsked = true; }

// A file by its device and inode, a block device by its device number.
using Place = std::pair<char, std::pair<dev_t, ino_t>>;

Place PlaceOf(const struct stat& info) {
  if (S_ISBLK(info.st_mode)) return {'b', {info.st_rdev, 0}};
  return {'f', {info.st_dev, info.st_ino}};
}

// Where the bytes of a path lie: the path itself, the disk of a partition,
// and the file behind either.
std::set<Place> StorageOf(const struct stat& info) {
  std::set<Place> places{PlaceOf(info)};
  if (!S_ISBLK(info.st_mode)) return places;
  std::vector<dev_t> devices{info.st_rdev};
  if (const std::optional<dev_t> disk = platform::DiskOfPartition(info.st_rdev)) devices.push_back(*disk);
  for (const dev_t device : devices) {
    places.insert({'b', {device, 0}});
    if (const auto file = platform::BackingFileOf(device)) places.insert({'f', *file});
  }
  return places;
}

// Two partitions of one disk share its storage without sharing bytes, so
// each path is looked for in the other's storage rather than the two
// storages compared.
bool SharesStorage(const struct stat& a, const struct stat& b) {
  return StorageOf(a).count(PlaceOf(b)) > 0 || StorageOf(b).count(PlaceOf(a)) > 0;
}

// A regular file is written under a temporary name beside it and renamed
// into place once whole; anything else (a device, a pipe) in place.
bool WritesInPlace(const std::string& output) {
  struct stat info;
  return ::stat(output.c_str(), &info) == 0 && !S_ISREG(info.st_mode);
}

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
      (::stat(target.device.c_str(), &source) == 0 && SharesStorage(source, output)))
    return target.output + " is where the volume itself is stored";
  return target.force ? "" : target.output + " exists: give --force to replace it";
}

int DumpVolume(CUnlockedVolume& volume, const DumpTarget& target, ProgressStyle style) {
  int fd = STDOUT_FILENO;
  std::string written;  // the temporary name, renamed to the output at the end
  if (WritesInPlace(target.output)) {
    fd = ::open(target.output.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0) return Fail(Status::kIoError, target.output, std::strerror(errno));
  } else if (!target.output.empty()) {
    written = target.output + ".partial-XXXXXX";
    fd = ::mkstemp(written.data());
    if (fd < 0) return Fail(Status::kIoError, target.output, std::strerror(errno));
  }
  struct sigaction stop = {}, savedInt, savedTerm;
  stop.sa_handler = AskToStop;
  ::sigaction(SIGINT, &stop, &savedInt);
  ::sigaction(SIGTERM, &stop, &savedTerm);
  const std::string outputName = target.output.empty() ? "standard output" : target.output;
  std::string failed, why;  // what failed, and why
  std::vector<uint8_t> buffer(kDumpChunk);
  DumpProgress progress(volume.Size(), style, std::cerr);
  uint64_t offset = 0;
  while (offset < volume.Size() && failed.empty() && !stopAsked) {
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
  if (!written.empty() && failed.empty() && !stopAsked && ::rename(written.c_str(), target.output.c_str()) != 0)
    failed = outputName, why = std::strerror(errno);
  if (!written.empty() && (!failed.empty() || stopAsked)) ::unlink(written.c_str());
  ::sigaction(SIGINT, &savedInt, nullptr);
  ::sigaction(SIGTERM, &savedTerm, nullptr);
  progress.Finish(offset);
  if (stopAsked) {
    std::cerr << "zq-bitlocker: interrupted after " << offset << " bytes"
              << (written.empty() ? "" : "; " + target.output + " was not written") << "\n";
    return kInterrupted;
  }
  return failed.empty() ? 0 : Fail(Status::kIoError, failed, why);
}
