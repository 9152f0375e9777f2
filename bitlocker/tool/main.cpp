// zq-bitlocker: looks at, checks and reads BitLocker volumes through the
// engine.  Credentials come from standard input or a prompt, never from the
// command line.
#include <fcntl.h>
#include <sys/stat.h>
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
               "       zq-bitlocker dump [--kind KIND] [--output FILE [--force]] DEVICE\n"
               "\n"
               "The credential is read from standard input, or asked for without echo on a\n"
               "terminal: a password, a 48-digit recovery password, or the path of a startup\n"
               "key (.BEK) file.  KIND says which it is instead of guessing: password,\n"
               "recovery, startup-key, or clear-key (nothing is read).\n"
               "\n"
               "dump writes the unlocked volume to FILE, which must not exist yet (--force\n"
               "replaces it) and must not be DEVICE, or to standard output when that is no\n"
               "terminal.\n"
               "\n"
               "Exit status: 0 done, 1 not BitLocker, 2 wrong credential, 3 unsupported,\n"
               "4 I/O error, 64 usage.\n";
}

// The exit status is the status itself: the library's open statuses.
int Fail(Status status, const std::string& device, const std::string& why) {
  std::cerr << "zq-bitlocker: " << device << ": " << StatusName(status);
  if (!why.empty()) std::cerr << ": " << why;
  std::cerr << "\n";
  return status;
}

struct Options {
  std::string command;
  std::string device;
  std::string kind = "auto";
  std::string output;
  bool force = false;
};

bool ParseOptions(int argc, char** argv, Options* options) {
  if (argc < 2) return false;
  options->command = argv[1];
  for (int i = 2; i < argc; ++i) {
    std::string arg = argv[i];
    if ((arg == "--kind" || arg == "--output") && i + 1 < argc) {
      (arg == "--kind" ? options->kind : options->output) = argv[++i];
    } else if (arg == "--force") {
      options->force = true;
    } else if (!arg.empty() && arg[0] != '-' && options->device.empty()) {
      options->device = arg;
    } else {
      return false;
    }
  }
  if (options->device.empty() || (options->force && options->output.empty())) return false;
  if (options->command == "info") return options->kind == "auto" && options->output.empty();
  if (options->command == "verify") return options->output.empty();
  return options->command == "dump";
}

// Why a dump may not go where it is asked to, or the empty string.  Checked
// before anything is read or written: a dump must never destroy its own
// volume, another file unasked, or a terminal.
std::string DumpRefusal(const Options& options) {
  if (options.output.empty()) {
    return ::isatty(STDOUT_FILENO) ? "standard output is a terminal: give --output FILE or a pipe" : "";
  }
  struct stat target, source;
  if (::stat(options.output.c_str(), &target) != 0) return "";
  if (options.output == options.device ||
      (::stat(options.device.c_str(), &source) == 0 && source.st_dev == target.st_dev &&
       source.st_ino == target.st_ino))
    return options.output + " is the volume itself";
  return options.force ? "" : options.output + " exists: give --force to replace it";
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
    const int replace = options.force ? O_TRUNC : O_EXCL;
    fd = ::open(options.output.c_str(), O_WRONLY | O_CREAT | replace | O_CLOEXEC, 0600);
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
  if (options.command == "dump") {
    const std::string refusal = DumpRefusal(options);
    if (!refusal.empty()) {
      std::cerr << "zq-bitlocker: " << refusal << "\n";
      return kUsageError;
    }
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
