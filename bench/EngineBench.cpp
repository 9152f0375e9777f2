// zq-bitlocker-bench: how fast the engine reads a whole unlocked volume,
// and writes it onto a copy of the image, beside the AES limit of this
// machine (openssl speed) and the reference readers in the distribution
// (dislocker and bdemount, through FUSE); then how fast its cipher for the
// volume decrypts and encrypts in memory, beside openssl speed both ways.
//
// usage: zq-bitlocker-bench [--passes N] IMAGE < credential
// The first line of standard input is the password, recovery password or
// .BEK path.  The reference readers only take it on their command line, so
// use a test credential.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "bench/BenchProgram.h"
#include "bench/CFuseMount.h"
#include "bench/CipherThroughput.h"
#include "bench/OpensslSpeed.h"
#include "bench/Throughput.h"
#include "engine/CBitlockerVolume.h"
#include "engine/SectorCipher.h"

using namespace bitlocker;

namespace {

struct Figure {
  std::string reader;
  std::optional<double> megabytesPerSecond;
  std::string note;
};

// Best of `passes` whole reads of the engine's volume with `lanes` threads.
std::optional<double> EngineThroughput(const CBitlockerVolume& volume, const Credential& credential,
                                       unsigned lanes, int passes) {
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string why;
  if (volume.Unlock(credential, &unlocked, &why, lanes) != Status::kOk) {
    std::cerr << "unlock failed: " << why << "\n";
    return std::nullopt;
  }
  std::optional<double> best;
  for (int pass = 0; pass < passes; ++pass) {
    auto figure = MeasureReadThroughput(
        [&](uint64_t offset, void* buffer, size_t length) {
          return unlocked->Read(offset, buffer, length);
        },
        unlocked->Size());
    if (figure && (!best || *figure > *best)) best = figure;
  }
  return best;
}

// Best of `passes` writes of the whole volume with `lanes` threads, run by
// run as the layout lets it be written, onto a scratch copy of the image.
std::optional<double> EngineWriteThroughput(const std::string& image, const Credential& credential,
                                            unsigned lanes, int passes) {
  char copy[] = "/tmp/zq-bitlocker-bench-XXXXXX";
  int fd = ::mkstemp(copy);
  if (fd < 0) return std::nullopt;
  ::close(fd);
  std::ofstream(copy, std::ios::binary) << std::ifstream(image, std::ios::binary).rdbuf();
  std::unique_ptr<CBitlockerVolume> volume;
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string why;
  std::optional<double> best;
  if (CBitlockerVolume::Open(copy, &volume, &why, Access::kReadWrite) == Status::kOk &&
      volume->Unlock(credential, &unlocked, &why, lanes) == Status::kOk) {
    auto write = [&](uint64_t offset, void* buffer, size_t length) -> ssize_t {
      uint64_t end = std::min<uint64_t>(offset + length, unlocked->Size());
      for (uint64_t at = offset; at < end;) {
        LayoutRun run = unlocked->layout().RunAt(at, end - at);
        auto* bytes = static_cast<const uint8_t*>(buffer) + (at - offset);
        if (run.length == 0 || (run.writable() && unlocked->Write(at, bytes, run.length) !=
                                                      static_cast<ssize_t>(run.length))) {
          return -1;
        }
        at += run.length;
      }
      return static_cast<ssize_t>(end - offset);
    };
    for (int pass = 0; pass < passes; ++pass) {
      auto figure = MeasureReadThroughput(write, unlocked->Size());
      if (figure && (!best || *figure > *best)) best = figure;
    }
  }
  ::unlink(copy);
  return best;
}

std::optional<double> FileThroughput(const std::string& path, uint64_t size) {
  int fd = ::open(path.c_str(), O_RDONLY);
  if (fd < 0) return std::nullopt;
  auto figure = MeasureReadThroughput(
      [fd](uint64_t offset, void* buffer, size_t length) {
        return ::pread(fd, buffer, length, static_cast<off_t>(offset));
      },
      size);
  ::close(fd);
  return figure;
}

// The reference readers' arguments for each kind of credential.
std::vector<std::string> DislockerCommand(const std::string& image, const Credential& credential) {
  std::vector<std::string> argv = {"dislocker", "-V", image};
  switch (credential.kind()) {
    case Credential::Kind::kPassword:
      argv.push_back("-u" + credential.text());
      break;
    case Credential::Kind::kRecoveryPassword:
      argv.push_back("-p" + credential.text());
      break;
    case Credential::Kind::kStartupKeyFile:
      argv.push_back("-f" + credential.text());
      break;
    case Credential::Kind::kClearKey:
      argv.push_back("-c");
      break;
  }
  argv.push_back("--");
  return argv;
}

std::vector<std::string> BdemountCommand(const std::string& image, const Credential& credential) {
  std::vector<std::string> argv = {"bdemount"};
  switch (credential.kind()) {
    case Credential::Kind::kPassword:
      argv.insert(argv.end(), {"-p", credential.text()});
      break;
    case Credential::Kind::kRecoveryPassword:
      argv.insert(argv.end(), {"-r", credential.text()});
      break;
    case Credential::Kind::kStartupKeyFile:
      argv.insert(argv.end(), {"-s", credential.text()});
      break;
    case Credential::Kind::kClearKey:
      break;
  }
  argv.push_back(image);
  return argv;
}

Figure ReferenceFigure(const std::string& name, std::vector<std::string> argv,
                       const std::string& fileName, uint64_t size) {
  if (!ProgramInstalled(argv.front())) return {name, std::nullopt, "not installed"};
  auto mount = CFuseMount::Start(std::move(argv), fileName);
  if (!mount) return {name, std::nullopt, "mount failed"};
  return {name, FileThroughput(mount->file(), size), "FUSE, first read after mounting"};
}

std::string OpensslCipher(uint16_t method) {
  switch (method) {
    case kAesXts128:
      return "aes-128-xts";
    case kAesXts256:
      return "aes-256-xts";
    case kAesCbc128:
    case kAesCbc128Diffuser:
      return "aes-128-cbc";
    default:
      return "aes-256-cbc";
  }
}

void PrintFigures(const std::vector<Figure>& figures, double engine) {
  std::printf("%-44s %10s %14s\n", "reader", "MB/s", "engine / it");
  for (const auto& figure : figures) {
    if (figure.megabytesPerSecond) {
      std::printf("%-44s %10.0f %14.2f", figure.reader.c_str(), *figure.megabytesPerSecond,
                  engine / *figure.megabytesPerSecond);
    } else {
      std::printf("%-44s %10s %14s", figure.reader.c_str(), "-", "-");
    }
    if (!figure.note.empty()) std::printf("   (%s)", figure.note.c_str());
    std::printf("\n");
  }
}

std::string MegabytesText(std::optional<double> megabytesPerSecond) {
  return megabytesPerSecond ? std::to_string(static_cast<long long>(*megabytesPerSecond)) : "-";
}

// Writing encrypts what reading decrypts: the two directions side by side.
void PrintCipherFigures(uint16_t method, uint32_t sectorSize, unsigned cores) {
  std::string cipher = OpensslCipher(method);
  std::string blocks = std::to_string(sectorSize) + "-byte blocks";
  std::string title = "in memory, " + std::to_string(sectorSize) + "-byte sectors";
  std::printf("\n%-44s %12s %12s\n", title.c_str(), "decrypt MB/s", "encrypt MB/s");
  for (unsigned lanes : {1u, cores}) {
    std::string threads = std::to_string(lanes) + (lanes == 1 ? " thread" : " threads");
    std::printf("%-44s %12s %12s\n", ("engine, " + threads).c_str(),
                MegabytesText(MeasureCipherThroughput(method, sectorSize, lanes, false)).c_str(),
                MegabytesText(MeasureCipherThroughput(method, sectorSize, lanes, true)).c_str());
  }
  for (unsigned processes : {1u, cores}) {
    std::string label = "openssl speed -evp " + cipher + ", " + std::to_string(processes) +
                        (processes == 1 ? " process" : " processes");
    std::printf("%-44s %12s %12s   (%s)\n", label.c_str(),
                MegabytesText(OpensslSpeed(cipher, true, sectorSize, processes)).c_str(),
                MegabytesText(OpensslSpeed(cipher, false, sectorSize, processes)).c_str(),
                blocks.c_str());
  }
}

}  // namespace

int main(int argc, char** argv) {
  int passes = 3;
  std::string image;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--passes" && i + 1 < argc) {
      passes = std::max(1, std::atoi(argv[++i]));
    } else {
      image = arg;
    }
  }
  if (image.empty()) {
    std::cerr << "usage: zq-bitlocker-bench [--passes N] IMAGE < credential\n";
    return 64;
  }
  std::string line;
  std::getline(std::cin, line);
  Credential credential = Credential::FromText(line);
  std::fill(line.begin(), line.end(), '\0');

  std::string why;
  std::unique_ptr<CBitlockerVolume> volume;
  if (CBitlockerVolume::Open(image, &volume, &why) != Status::kOk) {
    std::cerr << image << ": " << why << "\n";
    return 1;
  }
  std::unique_ptr<CUnlockedVolume> probe;
  if (volume->Unlock(credential, &probe, &why) != Status::kOk) {
    std::cerr << image << ": " << why << "\n";
    return 2;
  }
  uint16_t method = probe->method();
  uint64_t size = probe->Size();
  uint32_t sectorSize = probe->layout().sectorSize();
  probe.reset();

  unsigned cores = std::max(1u, std::thread::hardware_concurrency());
  std::printf("%s: %s, %llu bytes, %u-byte sectors, %u cores\n\n", image.c_str(),
              EncryptionMethodName(method).c_str(), static_cast<unsigned long long>(size),
              sectorSize, cores);

  auto engine = EngineThroughput(*volume, credential, cores, passes);
  if (!engine) return 4;
  std::string cipher = OpensslCipher(method);
  bool cbc = method != kAesXts128 && method != kAesXts256;
  std::string speedNote = std::to_string(sectorSize) + "-byte blocks" + (cbc ? ", decrypt" : "");
  std::vector<Figure> figures = {
      {"engine, " + std::to_string(cores) + " threads", engine, "best of " + std::to_string(passes)},
      {"engine, 1 thread", EngineThroughput(*volume, credential, 1, passes), ""},
      {"engine writing, " + std::to_string(cores) + " threads",
       EngineWriteThroughput(image, credential, cores, passes), "onto a copy in /tmp"},
      {"openssl speed -evp " + cipher + ", 1 process", OpensslSpeed(cipher, cbc, sectorSize, 1),
       speedNote},
      {"openssl speed -evp " + cipher + ", " + std::to_string(cores) + " processes",
       OpensslSpeed(cipher, cbc, sectorSize, cores), speedNote},
      ReferenceFigure("dislocker", DislockerCommand(image, credential), "dislocker-file", size),
      ReferenceFigure("bdemount", BdemountCommand(image, credential), "bde1", size),
  };
  PrintFigures(figures, *engine);
  PrintCipherFigures(method, sectorSize, cores);
  return 0;
}
