// The exit statuses of "zq-mounter".  The service hands the mounter's exit
// status to the client as the mount command's result, so these are what a
// client sees.  Where a status means what a status of the BitLocker
// library means, it has the library's number, so that a client reads the
// mount command's result and the explorer command's result alike.
#ifndef ZQ_BITLOCKER_MOUNTER_MOUNTERSTATUS_H_
#define ZQ_BITLOCKER_MOUNTER_MOUNTERSTATUS_H_

#include "IVolume.h"

enum MounterStatus : int {
  kMounterMounted = kBitlockerOpened,                     // 0: mounted; the server runs in the background
  kMounterNotBitlocker = kBitlockerNotBitlocker,          // 1: the device holds no BitLocker volume
  kMounterWrongCredential = kBitlockerWrongCredential,    // 2: no protector opens with the credential
  kMounterUnsupported = kBitlockerUnsupported,            // 3: a volume, or a file system in it, that cannot be served
  kMounterUnreadable = kBitlockerIoError,                 // 4: the device could not be read
  kMounterMountFailed = 5,                                // the volume opened but could not be mounted
  kMounterNoLibrary = 6,                                  // the BitLocker library is missing from the bundle
  kMounterUsage = 64,                                     // wrong words: count, options, or a mount point that is no folder
};

// A short English description of a status, for logs and command-line tools.
inline const char* DescribeMounterStatus(int status) {
  switch (status) {
    case kMounterMounted: return "mounted";
    case kMounterNotBitlocker: return "not a BitLocker volume";
    case kMounterWrongCredential: return "wrong credential";
    case kMounterUnsupported: return "unsupported volume";
    case kMounterUnreadable: return "device unreadable";
    case kMounterMountFailed: return "mount failed";
    case kMounterNoLibrary: return "BitLocker library missing";
    case kMounterUsage: return "usage error";
    default: return "unknown mounter status";
  }
}

#endif  // ZQ_BITLOCKER_MOUNTER_MOUNTERSTATUS_H_
