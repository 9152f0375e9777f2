#include "bitlocker/CNorvane.h"

#include <utility>

#include "Include/CommandData.h"
#include "bitlocker/BundleLayout.h"
#include "bitlocker/CBitlockerExplorer.h"
#include "bitlocker/DeviceNames.h"
#include "bitlocker/MounterStatus.h"
#include "bitlocker/PackageLibrary.h"
#include "system/MainBundle.h"
#include "system/TaskWrapper.h"
#include "util/ShellQuoting.h"

namespace {

// What the mount command answers when the mounter could not be started, as
// a shell would.
constexpr int kMounterMissing = 127;

// A stream that was not UTF-8 arrives as no string, and a search in no
// string counts as a match.
bool Mentions(const std::optional<std::string>& text, const char* word) {
  return !text || text->find(word) != std::string::npos;
}

// Whether the library calls /dev/<bsdName> BitLocker: kOk when it does,
// kNotBitlocker when it does not, `libraryMissing` when there is no
// library to ask.  Nothing is unmounted or started for a device it does
// not call BitLocker.
int BitlockerDeviceOr(const OptionalString& bsdName, int libraryMissing) {
  const IsBitlockerDriveFunction isBitlockerDrive = PackageIsBitlockerDrive();
  if (isBitlockerDrive == nullptr) return libraryMissing;
  const std::string rawDevice = RawDevicePath(BlockDevicePath(bsdName).c_str());
  return isBitlockerDrive(rawDevice.c_str()) ? bitlocker::kOk : bitlocker::kNotBitlocker;
}

}  // namespace

CNorvane::CNorvane() : mounterPath_(MainBundlePath() + kBundleMounter) {}

bool CNorvane::Unmount(const OptionalString& name) {
  const TaskWrapper result = TaskWrapper::runScript("diskutil unmount " + Described(name));
  if (!Mentions(result.response(), "successful") && !Mentions(result.errorMessage(), "already unmounted"))
    return false;
  TaskWrapper::runScript("sync");
  return true;
}

bool CNorvane::Bitlocker_Unmount(const OptionalString& name) { return Unmount(name); }

bool CNorvane::Mount(const OptionalString& name) {
  return Mentions(TaskWrapper::runScript("diskutil mount " + Described(name)).response(), "mounted");
}

std::string CNorvane::getDeviceRname(const char* devicePath) { return RawDevicePath(devicePath); }

int CNorvane::Bitlocker_Mount(const OptionalString& bsdName, const OptionalString& mountArg2,
                              const OptionalString& mountArg3, const OptionalString& mountArg4) {
  if (const int answer = BitlockerDeviceOr(bsdName, kMounterNoLibrary)) return answer;
  if (!Unmount(bsdName)) return kResultUnmountFailed;
  const std::string rawDevice = getDeviceRname(BlockDevicePath(bsdName).c_str());
  // The mount point arrives as the one shell word the client wrote; the
  // mounter gets the path that word stands for.  The credential goes on
  // its standard input, where no other process can read it.
  const TaskWrapper run = TaskWrapper::runTaskAtLaunchPath(
      mounterPath_, {rawDevice, ShellWordText(Described(mountArg2)), Described(mountArg3)}, Described(mountArg4) + "\n");
  return run.terminationStatus() == TaskWrapper::kNotStarted ? kMounterMissing : run.terminationStatus();
}

int CNorvane::Bitlocker_Explorer(const OptionalString& bsdName, const OptionalString& explorerArg2,
                                 std::shared_ptr<void> keptUntilExit) {
  if (const int answer = BitlockerDeviceOr(bsdName, CBitlockerExplorer::kLibraryMissing)) return answer;
  if (!Unmount(bsdName)) return kResultUnmountFailed;
  CBitlockerExplorer explorer;
  return explorer.OpenExplorer(bsdName, explorerArg2, std::move(keptUntilExit));
}
