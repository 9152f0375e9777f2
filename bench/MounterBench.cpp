// zq-mounter-bench: how fast the unlocked volume reads through the
// mounter's FUSE file, beside the same volume read through the bundle's
// library in this process, without FUSE (the mounter's ceiling, measured
// under the same load), and the FUSE files of the distribution's reference
// readers (dislocker, bdemount); then how fast it is written, beside
// dislocker writing the same sparse copy of the image.
//
// usage: zq-mounter-bench [--passes N] [--mounter PATH] IMAGE < credential
// The first line of standard input is the password, recovery password or
// .BEK path; the mounter reads it on its standard input, the reference
// readers take it on their command line, so use a test credential.  Each
// pass mounts afresh below /mnt, where the mounter may mount, and reads the
// whole file once, so that no pass reads from the page cache of an earlier
// one, or writes it once in 1 MiB pieces, BitLocker's own areas left out,
// up to an fdatasync.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchProgram.h"
#include "bench/Throughput.h"
#include "bench/WriteThroughput.h"
#include "bitlocker/MounterStatus.h"
#include "engine/KeyDerivation.h"
#include "mounter/PackageVolume.h"
#include "system/MainBundle.h"

namespace {

struct Reader {
  std::string name;
  std::vector<std::string> argv;  // "MOUNT" stands for the mount point
  std::string fileName;           // the unlocked volume's file in the mount
  std::string input;              // written to its standard input
  bool inProcess = false;         // the library beside argv[0], without a mount
};

void Unmount(const std::string& mountPoint) {
  for (int attempt = 0; attempt < 50 && umount2(mountPoint.c_str(), 0) != 0 && errno == EBUSY; ++attempt)
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

// Times one pass over the open file of the unlocked volume.
using Measure = std::function<std::optional<double>(int fd, uint64_t size)>;

// One pass: mount, measure through the file opened with `flags`, unmount.
std::optional<double> Pass(const Reader& reader, int flags, const Measure& measure) {
  char pattern[] = "/mnt/zq-mounter-bench-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return std::nullopt;
  const std::string mountPoint = pattern;
  std::vector<std::string> argv = reader.argv;
  for (std::string& arg : argv)
    if (arg == "MOUNT") arg = mountPoint;
  std::optional<double> figure;
  if (RunProgram(argv, reader.input)) {
    const std::string file = mountPoint + "/" + reader.fileName;
    const int fd = open(file.c_str(), flags);
    struct stat info;
    if (fd >= 0 && fstat(fd, &info) == 0) figure = measure(fd, static_cast<uint64_t>(info.st_size));
    if (fd >= 0) close(fd);
    Unmount(mountPoint);
  }
  rmdir(mountPoint.c_str());
  return figure;
}

std::optional<double> ReadPass(int fd, uint64_t size) {
  return MeasureReadThroughput(
      [fd](uint64_t offset, void* buffer, size_t length) {
        return pread(fd, buffer, length, static_cast<off_t>(offset));
      },
      size);
}

std::optional<double> LibraryPass(const std::string& mounter, const std::string& image, const std::string& credential) {
  SetMainBundlePath(mounter.substr(0, mounter.rfind("/Contents/MacOS/")));
  std::unique_ptr<IVolume> volume;
  std::string why;
  if (OpenPackageVolume(image, credential, &volume, &why) != bitlocker::kOk) return std::nullopt;
  return MeasureReadThroughput(
      [&volume](uint64_t offset, void* buffer, size_t length) { return volume->Read(offset, buffer, length); },
      volume->Size());
}

std::vector<Reader> Readers(const std::string& mounter, const std::string& image, const std::string& credential) {
  const bool recovery = bitlocker::HasRecoveryPasswordShape(credential);
  const bool keyFile = !recovery && access(credential.c_str(), R_OK) == 0;
  const std::string dislockerOption = recovery ? "-p" : keyFile ? "-f" : "-u";
  const std::string bdemountOption = recovery ? "-r" : keyFile ? "-s" : "-p";
  return {
      {"zq-mounter", {mounter, image, "MOUNT", "raw"}, "volume", credential + "\n"},
      {"library", {mounter}, "", "", true},
      {"dislocker", {"dislocker", "-V", image, dislockerOption + credential, "--", "MOUNT"}, "dislocker-file", ""},
      {"bdemount", {"bdemount", bdemountOption, credential, image, "MOUNT"}, "bde1", ""},
  };
}

// The best of `passes` passes of each of `readers`, a table row each, with
// the ratio of zq-mounter's figure (the first row) to each; returns that
// figure.  Pass by pass, each reader in turn, so that every reader meets
// the same load on a shared machine.
std::optional<double> PrintTable(const std::vector<Reader>& readers, int passes,
                                 const std::function<std::optional<double>(const Reader&)>& pass) {
  std::printf("%-12s %10s %16s\n", "reader", "MB/s", "zq-mounter / it");
  std::vector<std::optional<double>> best(readers.size());
  for (int round = 0; round < passes; ++round) {
    for (size_t i = 0; i < readers.size(); ++i) {
      if (!ProgramInstalled(readers[i].argv.front())) continue;
      const std::optional<double> figure = pass(readers[i]);
      if (figure && (!best[i] || *figure > *best[i])) best[i] = figure;
    }
  }
  const std::optional<double> ours = best[0];
  for (size_t i = 0; i < readers.size(); ++i) {
    if (best[i]) {
      std::printf("%-12s %10.0f", readers[i].name.c_str(), *best[i]);
      if (ours) std::printf(" %16.2f", *ours / *best[i]);
      std::printf("\n");
    } else {
      std::printf("%-12s %10s %16s   (%s)\n", readers[i].name.c_str(), "-", "-",
                  ProgramInstalled(readers[i].argv.front()) ? "mount or measure failed" : "not installed");
    }
  }
  return ours;
}

// The write passes over a sparse copy of `image`, made in a folder of its
// own in memory and removed again, so that the writes, like the reads from
// the page cache, time the programs rather than the disk below the copy:
// zq-mounter beside dislocker mounted read-write.
std::optional<double> PrintWriteTable(const std::string& mounter, const std::string& image,
                                      const std::string& credential, int passes) {
  std::string why;
  const std::vector<uint64_t> chunks = WritableChunks(image, credential, &why);
  char pattern[] = "/dev/shm/zq-mounter-bench-copy-XXXXXX";
  if (chunks.empty() || mkdtemp(pattern) == nullptr) {
    std::printf("writes: not measured: %s\n", why.empty() ? "no room for a copy" : why.c_str());
    return std::nullopt;
  }
  const std::string copy = std::string(pattern) + "/volume.img";
  std::optional<double> ours;
  if (RunProgram({"cp", "--sparse=always", image, copy})) {
    std::vector<Reader> writers;
    for (Reader& reader : Readers(mounter, copy, credential))
      if (reader.name == "zq-mounter" || reader.name == "dislocker") writers.push_back(std::move(reader));
    std::printf("\nwrites of %zu MiB in 1 MiB pieces, best of %d passes, each after mounting afresh\n", chunks.size(),
                passes);
    ours = PrintTable(writers, passes, [&chunks](const Reader& writer) {
      return Pass(writer, O_WRONLY, [&chunks](int fd, uint64_t) { return MeasureWriteThroughput(fd, chunks); });
    });
  }
  unlink(copy.c_str());
  rmdir(pattern);
  return ours;
}

}  // namespace

int main(int argc, char** argv) {
  int passes = 3;
  std::string mounter = ZQ_MOUNTER_FILE;
  std::string image;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--passes" && i + 1 < argc) {
      passes = std::max(1, std::atoi(argv[++i]));
    } else if (arg == "--mounter" && i + 1 < argc) {
      mounter = argv[++i];
    } else {
      image = arg;
    }
  }
  std::string credential;
  if (image.empty() || !std::getline(std::cin, credential)) {
    std::cerr << "usage: zq-mounter-bench [--passes N] [--mounter PATH] IMAGE < credential\n";
    return 64;
  }

  std::printf("%s, best of %d passes, each the first read after mounting\n", image.c_str(), passes);
  const std::optional<double> reads =
      PrintTable(Readers(mounter, image, credential), passes, [&](const Reader& reader) {
        return reader.inProcess ? LibraryPass(mounter, image, credential) : Pass(reader, O_RDONLY, ReadPass);
      });
  const std::optional<double> writes = PrintWriteTable(mounter, image, credential, passes);
  if (reads && writes) std::printf("zq-mounter writes / its reads: %.2f\n", *writes / *reads);
  return reads && writes ? 0 : 1;
}
