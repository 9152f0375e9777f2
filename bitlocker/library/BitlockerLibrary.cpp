// The package's BitLocker library: the two entry points over the engine.
#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "CBitlockerVolume.h"
#include "Credential.h"
#include "IVolume.h"

namespace {

int ToOpenStatus(bitlocker::Status status) {
  switch (status) {
    case bitlocker::Status::kOk:
      return kBitlockerOpened;
    case bitlocker::Status::kNotBitlocker:
      return kBitlockerNotBitlocker;
    case bitlocker::Status::kWrongCredential:
      return kBitlockerWrongCredential;
    case bitlocker::Status::kUnsupported:
      return kBitlockerUnsupported;
    case bitlocker::Status::kIoError:
      return kBitlockerIoError;
  }
  return kBitlockerUnsupported;
}

int OpenDevice(const char* rawDevice, const char* credential, IVolume** volume) {
  std::string why;
  std::unique_ptr<bitlocker::CBitlockerVolume> locked;
  bitlocker::Status status = bitlocker::CBitlockerVolume::Open(rawDevice, &locked, &why);
  if (status != bitlocker::Status::kOk) return ToOpenStatus(status);

  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  status = locked->Unlock(bitlocker::Credential::FromText(credential ? credential : ""), &unlocked,
                          &why);
  if (status != bitlocker::Status::kOk) return ToOpenStatus(status);
  *volume = unlocked.release();
  return kBitlockerOpened;
}

}  // namespace

extern "C" {

bool is_bitlocker_drive(const char* rawDevice) {
  if (rawDevice == nullptr) return false;
  try {
    return bitlocker::CBitlockerVolume::IsBitlocker(rawDevice);
  } catch (const std::exception&) {
    return false;
  }
}

int open_bitlocker_device(const char* rawDevice, const char* credential, IVolume** volume) {
  if (volume == nullptr) return kBitlockerIoError;
  *volume = nullptr;
  if (rawDevice == nullptr) return kBitlockerIoError;
  try {
    return OpenDevice(rawDevice, credential, volume);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return kBitlockerIoError;
  } catch (const std::exception&) {
    return kBitlockerUnsupported;
  }
}

}  // extern "C"
