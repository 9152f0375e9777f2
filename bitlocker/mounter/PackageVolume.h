// Opens a BitLocker volume through the package's BitLocker library, the
// "libBitLockerWapper.dylib" that lies beside the running program in its
// bundle's Contents/MacOS folder.
#ifndef ZQ_BITLOCKER_MOUNTER_PACKAGEVOLUME_H_
#define ZQ_BITLOCKER_MOUNTER_PACKAGEVOLUME_H_

#include <memory>
#include <string>

#include "IVolume.h"

// The library's path inside the bundle of the running program.
std::string PackageLibraryPath();

// Opens `rawDevice` with `credential` through the library at `libraryPath`.
// Returns a MounterStatus: kMounterMounted with *volume set when it opened,
// otherwise the status that says why not.
int OpenPackageVolume(const std::string& libraryPath, const std::string& rawDevice, const std::string& credential,
                      std::unique_ptr<IVolume>* volume);

#endif  // ZQ_BITLOCKER_MOUNTER_PACKAGEVOLUME_H_
