#include "CBitlockerExplorer.h"

#include <cstdlib>

#include "BundleLayout.h"
#include "DeviceNames.h"
#include "LibraryEntryPoint.h"
#include "Platform.h"
#include "ShellQuoting.h"

namespace {

using OpenFunction = int (*)(const char*, const char*, IVolume**);

constexpr int kLibraryMissing = 255;

}  // namespace

CBitlockerExplorer::CBitlockerExplorer()
    : libraryPath_(platform::MainBundlePath() + kBundleBitlockerLibrary),
      explorerPath_(platform::MainBundlePath() + kBundleExplorer) {}

std::string CBitlockerExplorer::getDeviceRname(const char* devicePath) { return RawDevicePath(devicePath); }

bool CBitlockerExplorer::openBitlockerDevice(const char* rawDevicePath, const char* credential, IVolume** volume,
                                             int* status) {
  static LibraryEntryPoint<OpenFunction> lpfn("open_bitlocker_device");
  OpenFunction open = lpfn.Get(libraryPath_);
  if (open == nullptr) return false;
  const int result = open(rawDevicePath, credential, volume);
  if (status != nullptr) *status = result;
  return true;
}

int CBitlockerExplorer::OpenExplorer(const std::optional<std::string>& bsdName,
                                     const std::optional<std::string>& explorerArg2) {
  const std::string rawDevice = getDeviceRname(BlockDevicePath(bsdName).c_str());
  const std::string credential = Described(explorerArg2);
  int status = kLibraryMissing;
  IVolume* volume = nullptr;
  if (openBitlockerDevice(rawDevice.c_str(), credential.c_str(), &volume, &status) && volume != nullptr &&
      status == 0) {
    // The explorer opens the volume itself; the service keeps nothing of it.
    delete volume;
    const std::string commandLine = EscapeBlanks(explorerPath_) + " " + SingleQuoted(rawDevice) + " " + SingleQuoted(credential) + " &";
    std::system(commandLine.c_str());
  }
  return status;
}
