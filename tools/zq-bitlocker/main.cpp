// zq-bitlocker: looks at, checks, reads, finds and makes BitLocker volumes
// through the engine.  Credentials come from standard input or a prompt, never from
// the command line.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "engine/CBitlockerVolume.h"
#include "tools/zq-bitlocker/CommandLine.h"
#include "tools/zq-bitlocker/DiskSource.h"
#include "tools/zq-bitlocker/Failure.h"
#include "tools/zq-bitlocker/VolumeCreate.h"
#include "tools/zq-bitlocker/VolumeDump.h"
#include "tools/zq-bitlocker/VolumeList.h"
#include "tools/zq-bitlocker/VolumeReport.h"
#include "tools/zq-bitlocker/VolumeScan.h"
#include "util/CredentialInput.h"
#include "util/ProgramVersion.h"

using namespace bitlocker;

namespace {

constexpr int kUsageError = 64;

int UsageError(const std::string& error) {
  std::cerr << "zq-bitlocker: " << error << "\nTry 'zq-bitlocker --help'.\n";
  return kUsageError;
}

std::optional<Credential> AskCredential(const std::string& kind) {
  if (kind == "clear-key") return Credential::ClearKey();
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

// How dump's copy and create's wipe tell their progress.
ProgressStyle ProgressStyleOf(const Options& options) {
  if (options.progressJson) return ProgressStyle::kJson;
  return ::isatty(STDERR_FILENO) ? ProgressStyle::kTerminal : ProgressStyle::kSummary;
}

// Where the volumes of a partitioned disk lie, for --offset.
void SuggestOffsets(const std::string& device, const Disk& disk) {
  for (const FoundVolume& volume : FindVolumes(device, disk, true)) {
    std::cerr << "zq-bitlocker: " << device << ": partition " << volume.partition
              << " holds a BitLocker volume: give --offset " << volume.offset << "\n";
  }
}

// info, verify and dump: one volume, at its offset in the device.
int RunOnVolume(const Options& options) {
  const std::string& device = options.devices.front();
  const DumpTarget target{device, options.output, options.force};
  if (options.command == "dump") {
    const std::string refusal = DumpRefusal(target);
    if (!refusal.empty()) return UsageError(refusal);
  }

  const std::optional<Disk> disk = OpenDisk(device);
  if (!disk) return Fail(Status::kIoError, device, std::strerror(errno));
  std::shared_ptr<const IByteSource> window = VolumeWindow(*disk, options.offset);
  if (!window) return UsageError("offset " + std::to_string(options.offset) + " lies beyond the end of " + device);
  std::string why;
  std::unique_ptr<CBitlockerVolume> volume;
  Status status = CBitlockerVolume::Open(window, &volume, &why);
  if (status != Status::kOk) {
    Fail(status, device, why);
    if (status == Status::kNotBitlocker && options.offset == 0) SuggestOffsets(device, *disk);
    return status;
  }

  if (options.command == "info") {
    (options.json ? PrintVolumeReportJson : PrintVolumeReport)(*volume, std::cout);
    return 0;
  }

  auto credential = AskCredential(options.kind);
  if (!credential) return UsageError("no credential could be read from standard input");
  std::unique_ptr<CUnlockedVolume> unlocked;
  status = volume->Unlock(*credential, &unlocked, &why);
  if (status != Status::kOk) return Fail(status, device, why);

  if (options.command == "verify") {
    std::cout << "unlocked with the " << CredentialKindName(credential->kind()) << "\n";
    return 0;
  }
  return DumpVolume(*unlocked, target, ProgressStyleOf(options));
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string error;
  switch (ParseCommandLine(argc, argv, &options, &error)) {
    case Request::kHelp:
      PrintUsage(std::cout);
      return 0;
    case Request::kVersion:
      std::cout << "zq-bitlocker " << kProgramVersion << "\n";
      return 0;
    case Request::kUsageError:
      return UsageError(error);
    case Request::kRun:
      break;
  }
  if (options.command == "list") return ListVolumes(options.devices, options.json, std::cout);
  if (options.command == "create") {
    const std::string refusal = CreateRefusal(options);
    return refusal.empty() ? RunCreate(options, ProgressStyleOf(options)) : UsageError(refusal);
  }
  return RunOnVolume(options);
}
