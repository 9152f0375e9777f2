#include "CNorvane.h"

#include <cstdlib>

#include "BundleLayout.h"
#include "CBitlockerExplorer.h"
#include "CommandData.h"
#include "DeviceNames.h"
#include "Platform.h"
#include "ShellQuoting.h"
#include "TaskWrapper.h"

namespace {

TaskWrapper RunShell(const std::string& commandLine) {
  return TaskWrapper::runTaskAtLaunchPath("/bin/sh", {"-c", commandLine});
}

// A stream that was not UTF-8 arrives as no string, and a search in no
// string counts as a match.
bool Mentions(const std::optional<std::string>& text, const char* word) {
  return !text || text->find(word) != std::string::npos;
}

}  // namespace

CNorvane::CNorvane() : mounterPath_(platform::MainBundlePath() + kBundleMounter) {}

bool CNorvane::Unmount(const OptionalString& name) {
  const TaskWrapper result = RunShell("diskutil unmount " + Described(name));
  if (!Mentions(result.response(), "successful") && !Mentions(result.errorMessage(), "already unmounted"))
    return false;
  RunShell("sync");
  return true;
}

bool CNorvane::Bitlocker_Unmount(const OptionalString& name) { return Unmount(name); }

bool CNorvane::Mount(const OptionalString& name) {
  return Mentions(RunShell("diskutil mount " + Described(name)).response(), "mounted");
}

std::string CNorvane::getDeviceRname(const char* devicePath) { return RawDevicePath(devicePath); }

int CNorvane::Bitlocker_Mount(const OptionalString& bsdName, const OptionalString& mountArg2,
                              const OptionalString& mountArg3, const OptionalString& mountArg4) {
  if (!Unmount(bsdName)) return kResultUnmountFailed;
  const std::string rawDevice = getDeviceRname(BlockDevicePath(bsdName).c_str());
  // The raw device is quoted so that an empty one is still a word.  The
  // mount point goes to the shell as the client wrote it, the options are
  // quoted as they stand, and the credential is protected against quotes.
  const std::string commandLine = EscapeBlanks(mounterPath_) + " " + SingleQuoted(rawDevice) + " " + Described(mountArg2) +
                                  " '" + Described(mountArg3) + "' " + SingleQuoted(Described(mountArg4));
  const int status = std::system(commandLine.c_str());
  return (status >> 8) & 0xFF;
}

int CNorvane::Bitlocker_Explorer(const OptionalString& bsdName, const OptionalString& explorerArg2) {
  if (!Unmount(bsdName)) return kResultUnmountFailed;
  CBitlockerExplorer explorer;
  return explorer.OpenExplorer(bsdName, explorerArg2);
}
