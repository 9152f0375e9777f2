// How an attempt to open a BitLocker volume ended: one vocabulary for every
// layer.  The engine returns these statuses, the library's
// open_bitlocker_device returns their numbers, the explorer command answers
// with them, and the mounter exits with them (MounterStatus.h adds the
// mounter's own numbers above them).
#ifndef ZQ_BITLOCKER_BITLOCKERSTATUS_H_
#define ZQ_BITLOCKER_BITLOCKERSTATUS_H_

namespace bitlocker {

enum Status : int {
  kOk = 0,
  kNotBitlocker = 1,     // the device holds no BitLocker volume
  kWrongCredential = 2,  // no protector opens with what was given
  kUnsupported = 3,      // a BitLocker volume this engine cannot read
  kIoError = 4,          // the device or a key file could not be read
};

// A status in a few words for people; nullptr for a number that is no
// status.
inline const char* StatusName(int status) {
  switch (status) {
    case kOk: return "opened";
    case kNotBitlocker: return "not a BitLocker volume";
    case kWrongCredential: return "wrong credential";
    case kUnsupported: return "unsupported volume";
    case kIoError: return "I/O error";
    default: return nullptr;
  }
}

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_BITLOCKERSTATUS_H_
