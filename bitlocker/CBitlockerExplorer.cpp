#include "bitlocker/CBitlockerExplorer.h"

#include <utility>

#include "bitlocker/BundleLayout.h"
#include "bitlocker/DeviceNames.h"
#include "bitlocker/PackageLibrary.h"
#include "system/MainBundle.h"
#include "system/TaskWrapper.h"

CBitlockerExplorer::CBitlockerExplorer() : explorerPath_(MainBundlePath() + kBundleExplorer) {}

std::string CBitlockerExplorer::getDeviceRname(const char* devicePath) { return RawDevicePath(devicePath); }

bool CBitlockerExplorer::openBitlockerDevice(const char* rawDevicePath, const char* credential, IVolume** volume,
                                             int* status) {
  const OpenBitlockerDeviceFunction open = PackageOpenBitlockerDevice();
  if (open == nullptr) return false;
  const int result = open(rawDevicePath, credential, volume);
  if (status != nullptr) *status = result;
  return true;
}

int CBitlockerExplorer::OpenExplorer(const std::optional<std::string>& bsdName,
                                     const std::optional<std::string>& explorerArg2,
                                     std::shared_ptr<void> keptUntilExit) {
  const std::string rawDevice = getDeviceRname(BlockDevicePath(bsdName).c_str());
  const std::string credential = Described(explorerArg2);
  int status = kLibraryMissing;
  IVolume* volume = nullptr;
  if (openBitlockerDevice(rawDevice.c_str(), credential.c_str(), &volume, &status) && volume != nullptr &&
      status == bitlocker::kOk) {
    // The explorer opens the volume itself; the service keeps nothing of it.
    delete volume;
    TaskWrapper::launchTaskInBackground(explorerPath_, {rawDevice}, credential + "\n", std::move(keptUntilExit));
  }
  return status;
}
