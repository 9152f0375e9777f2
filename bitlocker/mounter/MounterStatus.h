// The exit statuses of "zq-mounter".  The service hands the mounter's exit
// status to the client as the mount command's result, so these are what a
// client sees.
#ifndef ZQ_BITLOCKER_MOUNTER_MOUNTERSTATUS_H_
#define ZQ_BITLOCKER_MOUNTER_MOUNTERSTATUS_H_

enum MounterStatus : int {
  kMounterMounted = 0,           // the volume is mounted; the server runs in the background
  kMounterUsage = 2,             // wrong words: count, options, or a mount point that is no folder
  kMounterNotBitlocker = 3,      // the device holds no BitLocker volume
  kMounterWrongCredential = 4,   // no protector of the volume opens with the credential
  kMounterUnsupported = 5,       // a volume, or a file system inside it, that cannot be served
  kMounterUnreadable = 6,        // the device could not be read
  kMounterMountFailed = 7,       // the volume opened but could not be mounted
  kMounterNoLibrary = 8,         // the BitLocker library is missing from the bundle
};

// A short English description of a status, for logs and command-line tools.
inline const char* DescribeMounterStatus(int status) {
  switch (status) {
    case kMounterMounted: return "mounted";
    case kMounterUsage: return "usage error";
    case kMounterNotBitlocker: return "not a BitLocker volume";
    case kMounterWrongCredential: return "wrong credential";
    case kMounterUnsupported: return "unsupported volume";
    case kMounterUnreadable: return "device unreadable";
    case kMounterMountFailed: return "mount failed";
    case kMounterNoLibrary: return "BitLocker library missing";
    default: return "unknown mounter status";
  }
}

#endif  // ZQ_BITLOCKER_MOUNTER_MOUNTERSTATUS_H_
