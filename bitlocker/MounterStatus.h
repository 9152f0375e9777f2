// The exit statuses of "zq-mounter".  The service hands the mounter's exit
// status to the client as the mount command's result, so these are what a
// client sees.  Where the outcome is one of opening the volume the status
// is the library's own (bitlocker::Status: 0 mounted, 1 not BitLocker,
// 2 wrong credential, 3 a volume or a file system in it that cannot be
// served, 4 unreadable); the mounter's own outcomes lie above them.
#ifndef ZQ_BITLOCKER_MOUNTERSTATUS_H_
#define ZQ_BITLOCKER_MOUNTERSTATUS_H_

#include "bitlocker/BitlockerStatus.h"

enum MounterStatus : int {
  kMounterMountFailed = 5,  // the volume opened but could not be mounted
  kMounterNoLibrary = 6,    // the BitLocker library is missing from the bundle
  kMounterUsage = 64,       // wrong words: count, options, or a mount point that is no folder
};

// A status in a few words, for logs and command-line tools.
inline const char* DescribeMounterStatus(int status) {
  switch (status) {
    case bitlocker::kOk: return "mounted";
    case kMounterMountFailed: return "the volume opened but could not be mounted";
    case kMounterNoLibrary: return "the BitLocker library is missing from the bundle";
    case kMounterUsage: return "the mounter refused its arguments";
    default: break;
  }
  const char* name = bitlocker::StatusName(status);
  return name != nullptr ? name : "unknown mounter status";
}

#endif  // ZQ_BITLOCKER_MOUNTERSTATUS_H_
