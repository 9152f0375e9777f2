// "Zq Norvane Explorer" for Linux, without a window:
//
//   "Zq Norvane Explorer" RAW_DEVICE < CREDENTIAL
//   "Zq Norvane Explorer" -h | --help | --version
//
// Opens the BitLocker volume on RAW_DEVICE with the credential that is the
// first line of its standard input (a password, a recovery password, the
// path of a startup key file, or empty for a clear key), never a word of its
// command line, where every user could read it; prints what the volume is, and talks to the service as the client
// "FileExplorer": every command the main application forwards to it (11)
// is printed.  It ends on a forwarded command whose byte is 'q', or when
// the service no longer answers.  Exit statuses: 0 after either end, 2 for
// a usage error, 3 when the volume does not open, 4 when the FIFOs cannot
// be made.  Each run leaves one line in the activity log (ActivityLog.h):
// how opening the volume, and then connecting, ended.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "bitlocker/BitlockerStatus.h"
#include "engine/CBitlockerVolume.h"
#include "engine/Credential.h"
#include "engine/SectorCipher.h"
#include "explorer/CExplorerClient.h"
#include "system/ActivityLog.h"
#include "tools/zq-bitlocker/VolumeReport.h"
#include "util/CredentialInput.h"
#include "util/ProgramVersion.h"

namespace {

enum ExplorerStatus : int { kExplorerEnded = 0, kExplorerUsage = 2, kExplorerNoVolume = 3, kExplorerNoChannel = 4 };

constexpr unsigned kCheckEverySeconds = 2;
constexpr unsigned kAnswerSeconds = 3;
// The service opens its end of a new channel within a second or two.
constexpr unsigned kFirstAnswerSeconds = 10;
constexpr int kMissedChecksToEnd = 2;

constexpr char kProgramName[] = "Zq Norvane Explorer";
constexpr char kUsage[] =
    "usage: \"Zq Norvane Explorer\" RAW_DEVICE < CREDENTIAL\n"
    "\nOpens the BitLocker volume on RAW_DEVICE with the credential on the first line of\n"
    "standard input, prints what it is, and prints each command forwarded to it as the\n"
    "client FileExplorer until the byte 'q' or until the service goes away.\n"
    "\nExit status: 0 ended, 2 usage, 3 the volume did not open, 4 no channel.\n";

using namespace bitlocker;

void LogRun(const std::string& device, Status status, const std::string& report) {
  AppendActivity({kProgramName, device, "", status, StatusName(status), report, ""});
}

bool OpenVolume(const std::string& device, const std::string& credentialText,
                std::unique_ptr<CBitlockerVolume>* volume, std::unique_ptr<CUnlockedVolume>* unlocked) {
  std::string why;
  Status status = CBitlockerVolume::Open(device, volume, &why);
  if (status == Status::kOk) {
    const Credential credential = Credential::FromText(credentialText);
    status = (*volume)->Unlock(credential, unlocked, &why, 1);
  }
  if (status == Status::kOk) return true;
  std::fprintf(stderr, "Zq Norvane Explorer: %s: %s: %s\n", device.c_str(), StatusName(status), why.c_str());
  LogRun(device, status, std::string(StatusName(status)) + ": " + why);
  return false;
}

void PrintVolume(const std::string& device, const CBitlockerVolume& volume, const CUnlockedVolume& unlocked) {
  std::cout << "volume on " << device << "\n";
  PrintVolumeReport(volume, std::cout);
  std::cout << "unlocked: " << unlocked.Size() << " bytes, " << unlocked.layout().sectorSize() << "-byte sectors, "
            << EncryptionMethodName(unlocked.method()) << "\n"
            << std::flush;
}

// One line on standard output, at once: the explorer's output is often a
// pipe or a file that someone is watching.
void Say(const char* line) {
  std::printf("%s\n", line);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  const char* word = argc == 2 ? argv[1] : "";
  if (std::strcmp(word, "-h") == 0 || std::strcmp(word, "--help") == 0) {
    std::printf("%s", kUsage);
    return kExplorerEnded;
  }
  if (std::strcmp(word, "--version") == 0) {
    std::printf("%s %s\n", kProgramName, kProgramVersion);
    return kExplorerEnded;
  }
  std::optional<std::string> credential =
      argc == 2 && word[0] != '-' ? ReadCredential("Credential: ") : std::nullopt;
  if (!credential) {
    if (argc == 2 && word[0] == '-') std::fprintf(stderr, "Zq Norvane Explorer: unknown option '%s'\n", word);
    std::fprintf(stderr, "%s", kUsage);
    return kExplorerUsage;
  }
  const std::string device = argv[1];
  std::unique_ptr<CBitlockerVolume> volume;
  std::unique_ptr<CUnlockedVolume> unlocked;
  const bool opened = OpenVolume(device, *credential, &volume, &unlocked);
  WipeCredential(&*credential);
  if (!opened) return kExplorerNoVolume;
  PrintVolume(device, *volume, *unlocked);

  CExplorerClient client(stdout);
  std::string why;
  if (!client.Connect(&why)) {
    std::fprintf(stderr, "Zq Norvane Explorer: %s\n", why.c_str());
    LogRun(device, Status::kOk, "opened; no channel: " + why);
    return kExplorerNoChannel;
  }
  if (!client.ServiceAnswers(kFirstAnswerSeconds)) {
    Say("the service does not answer");
    LogRun(device, Status::kOk, "opened; the service does not answer");
    return kExplorerEnded;
  }
  Say("connected to the service as FileExplorer");
  LogRun(device, Status::kOk, "opened; connected to the service as FileExplorer");
  for (int missed = 0; missed < kMissedChecksToEnd;) {
    if (client.WaitForQuit(kCheckEverySeconds)) {
      Say("quit");
      return kExplorerEnded;
    }
    missed = client.ServiceAnswers(kAnswerSeconds) ? 0 : missed + 1;
  }
  Say("the service went away");
  return kExplorerEnded;
}
