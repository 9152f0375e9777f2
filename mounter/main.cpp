// zq-mounter: unlocks a BitLocker volume and mounts it through FUSE, then
// returns to its caller while a background process serves it.  The mount
// is read-write wherever the volume can be written, unless OPTIONS hold
// "ro".  The mount point must be one that MountPoint.h allows; a missing
// one is made once the volume has unlocked, and removed again at the end.
//
//   zq-mounter RAW_DEVICE MOUNT_POINT OPTIONS < CREDENTIAL
//   zq-mounter -h | --help | --version
//
// The exit status is one of MounterStatus.h.  On success, which is status
// 0 either way, the line on standard error says which mount it got:
//
//   zq-mounter: mounted read-write
//   zq-mounter: mounted read-only: REASON
//
// REASON is "asked for with ro", what the volume says keeps it from being
// written ("the device is read-only", ...), or "the NTFS (exFAT, FAT) file
// system would only mount read-only".  `umount MOUNT_POINT` ends
// everything the mount made, the background process included.
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bitlocker/MountPoint.h"
#include "bitlocker/MounterStatus.h"
#include "mounter/CCallerReport.h"
#include "mounter/CMountPoint.h"
#include "mounter/CMountSession.h"
#include "mounter/MountRequest.h"
#include "mounter/PackageVolume.h"
#include "platform/Users.h"
#include "system/ActivityLog.h"
#include "system/PrimaryGroup.h"
#include "util/CredentialInput.h"
#include "util/ProgramVersion.h"

namespace {

constexpr char kUsage[] =
    "usage: zq-mounter RAW_DEVICE MOUNT_POINT OPTIONS < CREDENTIAL\n"
    "       zq-mounter -h | --help | --version\n"
    "  OPTIONS: comma-separated; raw, ro, uid=N, gid=N, umask=OOO\n"
    "           (default: read-write where the volume can be written, the user at the machine's alone)\n"
    "  On success it says \"mounted read-write\" or \"mounted read-only: REASON\" and exits 0.\n";

}  // namespace

int main(int argc, char** argv) {
  const std::string first = argc > 1 ? argv[1] : "";
  if (first == "-h" || first == "--help") {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (first == "--version") {
    std::printf("zq-mounter %s\n", kProgramVersion);
    return 0;
  }
  MountRequest request;
  std::string error;
  // Each run leaves one line in the activity log, written before the caller
  // is told, with what it is told.
  const auto logRun = [&](int status, const std::string& report) {
    AppendActivity({"zq-mounter", argc > 1 ? argv[1] : "", argc > 2 ? argv[2] : "", status,
                    DescribeMounterStatus(status), report.empty() ? DescribeMounterStatus(status) : report, ""});
  };
  const uid_t consoleUser = platform::ConsoleUser();
  int mountPointParent = -1;
  // Only the first word is named back when it is not understood: a later
  // one may be a credential given by mistake.
  if (first.rfind('-', 0) == 0) {
    error = "unknown option \"" + first + "\"";
  } else if (ParseMountRequest(std::vector<std::string>(argv + 1, argv + argc), &request, &error) &&
             SettleOwner(consoleUser, PrimaryGroupOf(consoleUser), &request, &error)) {
    error = MountPointRefusal(request.mountPoint, consoleUser, MountedFolder::kRefused, &mountPointParent);
  }
  std::optional<std::string> credential;
  if (error.empty() && !(credential = ReadCredential("Credential: "))) error = "no credential on standard input";
  if (!error.empty()) {
    std::fprintf(stderr, "zq-mounter: %s\n%s", error.c_str(), kUsage);
    logRun(kMounterUsage, error);
    return kMounterUsage;
  }

  CCallerReport caller = CCallerReport::Detach();
  std::unique_ptr<IVolume> volume;
  std::string why;
  const int opened = OpenPackageVolume(request.rawDevice, *credential, &volume, &why);
  WipeCredential(&*credential);
  if (opened != bitlocker::kOk) {
    const std::string report =
        std::string(DescribeMounterStatus(opened)) + ": " + request.rawDevice + (why.empty() ? "" : ": " + why);
    logRun(opened, report);
    caller.Send(opened, report);
    return opened;
  }

  // Made only now that the volume has unlocked, so that a wrong credential
  // leaves nothing behind.
  std::unique_ptr<CMountPoint> mountPoint = CMountPoint::Open(mountPointParent, request.mountPoint, consoleUser, &error);
  if (mountPoint == nullptr) {
    logRun(kMounterMountFailed, error);
    caller.Send(kMounterMountFailed, error);
    return kMounterMountFailed;
  }
  CMountSession::BlockStopSignals();
  CMountSession session(std::move(volume), request, std::move(mountPoint));
  std::string message;
  const int status = session.Start(&message);
  logRun(status, message);
  caller.Send(status, message);
  if (status != bitlocker::kOk) return status;
  session.ServeUntilUnmounted();
  return bitlocker::kOk;
}
