#include "PackageVolume.h"

#include <dlfcn.h>

#include "BundleLayout.h"
#include "MounterStatus.h"
#include "Platform.h"

namespace {

using OpenFunction = int (*)(const char*, const char*, IVolume**);

int StatusOfOpen(int libraryStatus) {
  switch (libraryStatus) {
    case kBitlockerOpened: return kMounterMounted;
    case kBitlockerNotBitlocker: return kMounterNotBitlocker;
    case kBitlockerWrongCredential: return kMounterWrongCredential;
    case kBitlockerUnsupported: return kMounterUnsupported;
    default: return kMounterUnreadable;
  }
}

}  // namespace

std::string PackageLibraryPath() { return platform::MainBundlePath() + kBundleBitlockerLibrary; }

int OpenPackageVolume(const std::string& libraryPath, const std::string& rawDevice, const std::string& credential,
                      std::unique_ptr<IVolume>* volume) {
  // The handle stays open: the volume's code lives in the library.
  void* library = dlopen(libraryPath.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return kMounterNoLibrary;
  const auto open = reinterpret_cast<OpenFunction>(dlsym(library, "open_bitlocker_device"));
  if (open == nullptr) return kMounterNoLibrary;
  IVolume* opened = nullptr;
  const int status = StatusOfOpen(open(rawDevice.c_str(), credential.c_str(), &opened));
  if (status != kMounterMounted) {
    delete opened;
    return status;
  }
  if (opened == nullptr) return kMounterUnreadable;
  volume->reset(opened);
  return kMounterMounted;
}
