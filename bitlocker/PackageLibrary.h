// The package's BitLocker library, "libBitLockerWapper.dylib" in the
// running program's bundle, and its entry points.  This is the one
// place that loads it: the detection and explorer commands of the service
// and the mounter all come here.
//
// Each entry point is resolved on first use and kept for the life of the
// process; the library is never unloaded.  A library or symbol that is
// missing gives null and is looked up again at the next call.
#ifndef ZQ_BITLOCKER_PACKAGELIBRARY_H_
#define ZQ_BITLOCKER_PACKAGELIBRARY_H_

#include <string>

#include "bitlocker/IVolume.h"

using IsBitlockerDriveFunction = bool (*)(const char* rawDevice);
using OpenBitlockerDeviceFunction = int (*)(const char* rawDevice, const char* credential, IVolume** volume);
using OpenFailureFunction = const char* (*)();

// The library's path: the main bundle's path and its fixed place in it.
std::string PackageLibraryPath();

IsBitlockerDriveFunction PackageIsBitlockerDrive();
OpenBitlockerDeviceFunction PackageOpenBitlockerDevice();
OpenFailureFunction PackageOpenFailure();

#endif  // ZQ_BITLOCKER_PACKAGELIBRARY_H_
