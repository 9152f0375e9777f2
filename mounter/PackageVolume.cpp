#include "mounter/PackageVolume.h"

#include "bitlocker/MounterStatus.h"
#include "bitlocker/PackageLibrary.h"

int OpenPackageVolume(const std::string& rawDevice, const std::string& credential, std::unique_ptr<IVolume>* volume,
                      std::string* why) {
  const OpenBitlockerDeviceFunction open = PackageOpenBitlockerDevice();
  if (open == nullptr) return kMounterNoLibrary;
  IVolume* opened = nullptr;
  const int status = open(rawDevice.c_str(), credential.c_str(), &opened);
  if (status != bitlocker::kOk) {
    delete opened;
    const OpenFailureFunction failure = PackageOpenFailure();
    const char* reason = failure != nullptr ? failure() : nullptr;
    *why = reason != nullptr ? reason : "";
    return status;
  }
  if (opened == nullptr) return bitlocker::kIoError;
  volume->reset(opened);
  return bitlocker::kOk;
}
