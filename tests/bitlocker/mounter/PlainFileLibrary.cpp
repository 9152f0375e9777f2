// A BitLocker library for tests whose "BitLocker volumes" are plain files
// and devices: the credential "plain" opens any of them as it is.  Other
// credentials choose the library's failures, so that the mounter's
// answers to each can be tested without encrypted images:
//   "not-bitlocker", "unsupported", "unreadable", anything else: wrong.
#include <cerrno>
#include <cstring>

#include "CFileVolume.h"
#include "IVolume.h"

#define ZQ_EXPORT extern "C" __attribute__((visibility("default")))

ZQ_EXPORT bool is_bitlocker_drive(const char*) { return true; }

ZQ_EXPORT int open_bitlocker_device(const char* rawDevice, const char* credential, IVolume** volume) {
  *volume = nullptr;
  if (std::strcmp(credential, "not-bitlocker") == 0) return bitlocker::kNotBitlocker;
  if (std::strcmp(credential, "unsupported") == 0) return bitlocker::kUnsupported;
  if (std::strcmp(credential, "unreadable") == 0) return bitlocker::kIoError;
  if (std::strcmp(credential, "plain") != 0) return bitlocker::kWrongCredential;
  CFileVolume* file = new CFileVolume(rawDevice);
  if (!file->valid()) {
    delete file;
    return bitlocker::kIoError;
  }
  *volume = file;
  return bitlocker::kOk;
}
