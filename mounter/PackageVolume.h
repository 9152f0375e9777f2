// Opens a BitLocker volume through the package's BitLocker library.
#ifndef ZQ_MOUNTER_PACKAGEVOLUME_H_
#define ZQ_MOUNTER_PACKAGEVOLUME_H_

#include <memory>
#include <string>

#include "bitlocker/IVolume.h"

// Opens `rawDevice` with `credential`.  Returns bitlocker::kOk with *volume
// set when it opened, kMounterNoLibrary when the library or its entry
// point is missing, otherwise the library's status with the library's
// reason in *why (empty when it gives none).
int OpenPackageVolume(const std::string& rawDevice, const std::string& credential, std::unique_ptr<IVolume>* volume,
                      std::string* why);

#endif  // ZQ_MOUNTER_PACKAGEVOLUME_H_
