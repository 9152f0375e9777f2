// How an attempt to open or unlock a volume ended.
#ifndef ZQ_BITLOCKER_ENGINE_STATUS_H_
#define ZQ_BITLOCKER_ENGINE_STATUS_H_

namespace bitlocker {

enum class Status {
  kOk,
  kNotBitlocker,     // the device holds no BitLocker volume
  kWrongCredential,  // no protector opens with what was given
  kUnsupported,      // a BitLocker volume this engine cannot read
  kIoError,          // the device or a key file could not be read
};

const char* StatusName(Status status);

}  // namespace bitlocker

#endif  // ZQ_BITLOCKER_ENGINE_STATUS_H_
