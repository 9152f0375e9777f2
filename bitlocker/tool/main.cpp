// zq-bitlocker: looks at, checks and reads BitLocker volumes through the
// engine.  Credentials come from standard input or a prompt, never from the
// command line.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "CBitlockerVolume.h"
#include "CredentialInput.h"
#include "VolumeReport.h"

using namespace bitlocker;

namespace {

constexpr int kUsageError = 64;
constexpr size_t kDumpChunk = 8 * 1024 * 1024;

void PrintUsage() {
  std::cerr << "usage: zq-bitlocker info DEVICE\n"
               "       zq-bitlocker verify [--kind KIND] DEVICE\n"
               "       zq-bitlocker dump [--kind KIND] [--output FILE] DEVICE\n"
               "\n"
               "The credential is read from standard input, or asked for without echo on a\n"
               "terminal: a password, a 48-digit recovery password, or the path of a startup\n"
               "key (.BEK) file.  KIND says which it is instead of guessing: password,\n"
               "recovery, startup-key, or clear-key (nothing is read).\n"
               "\n"
               "Exit status: 0 done, 1 not BitLocker, 2 wrong credential, 3 unsupported,\n"
               "4 I/O error, 64 usage.\n";
}

// Same numbers as the library's open statuses.
int ExitCode(Status status) {
  switch (status) {
    case Status::kOk:
      return 0;
    case Status::kNotBitlocker:
      return 1;
    case Status::kWrongCredential:
      return 2;
    case Status::kUnsupported:
      return 3;
    case Status::kIoError:
      return 4;
  }
  return 3;
}

int Fail(Status status, const std::string& device, const std::string& why) {
  std::cerr << "zq-bitlocker: " << device << ": " << StatusName(status);
  if (!why.empty()) std::cerr << ": " << why;
  std::cerr << "\n";
  return ExitCode(status);
}

struct Options {
  std::string command;
  std::string device;
  std::string kind = "auto";
  std::string output;
};

bool ParseOptions(int argc, char** argv, Options* options) {
  if (argc < 2) return false;
  options->command = argv[1];
  for (int i = 2; i < argc; ++i) {
    std::string arg = argv[i];
    if ((arg == "--kind" || arg == "--output") && i + 1 < argc) {
      (arg == "--kind" ? options->kind : options->output) = argv[++i];
    } else if (!arg.empty() && arg[0] != '-' && options->device.empty()) {
      options->device = arg;
    } else {
      return false;
    }
  }
  if (options->device.empty()) return false;
  if (options->command == "info") return options->kind == "auto" && options->output.empty();
  if (options->command == "verify") return options->output.empty();
  return options->command == "dump";
}

std::optional<Credential> AskCredential(const std::string& kind) {
  if (kind == "clear-key") return Credential::ClearKey();
  if (kind != "auto" && kind != "password" && kind != "recovery" && kind != "startup-key") {
    return std::nullopt;
  }
  auto text = ReadCredential("Password, recovery password or startup key file: ");
  if (!text) return std::nullopt;
  std::optional<Credential> credential;
  if (kind == "password") {
    credential = Credential::Password(*text);
  } else if (kind == "recovery") {
    credential = Credential::RecoveryPassword(*text);
  } else if (kind == "startup-key") {
    credential = Credential::StartupKeyFile(*text);
  } else {
    credential = Credential::FromText(*text);
  }
  WipeCredential(&*text);
  return credential;
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

int Dump(CUnlockedVolume& volume, const Options& options) {
  int fd = STDOUT_FILENO;
  if (!options.output.empty()) {
    fd = ::open(options.output.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return Fail(Status::kIoError, options.output, std::strerror(errno));
  }
  std::vector<uint8_t> buffer(kDumpChunk);
  int result = 0;
  for (uint64_t offset = 0; offset < volume.Size();) {
    ssize_t got = volume.Read(offset, buffer.data(), buffer.size());
    if (got <= 0) {
      result = Fail(Status::kIoError, options.device, got < 0 ? std::strerror(errno) : "short read");
      break;
    }
    if (!WriteAll(fd, buffer.data(), static_cast<size_t>(got))) {
      result = Fail(Status::kIoError, options.output.empty() ? "standard output" : options.output,
                    std::strerror(errno));
      break;
    }
    offset += static_cast<uint64_t>(got);
  }
  if (fd != STDOUT_FILENO && ::close(fd) != 0 && result == 0) {
    result = Fail(Status::kIoError, options.output, std::strerror(errno));
  }
  return result;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  if (!ParseOptions(argc, argv, &options)) {
    PrintUsage();
    return kUsageError;
  }

  std::string why;
  std::unique_ptr<CBitlockerVolume> volume;
  Status status = CBitlockerVolume::Open(options.device, &volume, &why);
  if (status != Status::kOk) return Fail(status, options.device, why);

  if (options.command == "info") {
    PrintVolumeReport(*volume, std::cout);
    return 0;
  }

  auto credential = AskCredential(options.kind);
  if (!credential) {
    PrintUsage();
    return kUsageError;
  }
  std::unique_ptr<CUnlockedVolume> unlocked;
  status = volume->Unlock(*credential, &unlocked, &why);
  if (status != Status::kOk) return Fail(status, options.device, why);

  if (options.command == "verify") {
    std::cout << "unlocked with the " << CredentialKindName(credential->kind()) << "\n";
    return 0;
  }
  return Dump(*unlocked, options);
}
