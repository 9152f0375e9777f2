// The package's BitLocker library: the entry points over the engine.
#include <cerrno>
#include <memory>
#include <new>
#include <string>

#include "bitlocker/IVolume.h"
#include "engine/CBitlockerVolume.h"
#include "engine/Credential.h"

namespace {

// What bitlocker_open_failure answers, per calling thread.
thread_local std::string lastFailure;

int OpenDevice(const char* rawDevice, const char* credential, IVolume** volume) {
  std::string& why = lastFailure;
  std::unique_ptr<bitlocker::CBitlockerVolume> locked;
  bitlocker::Status status =
      bitlocker::CBitlockerVolume::Open(rawDevice, &locked, &why, bitlocker::Access::kReadWrite);
  if (status != bitlocker::Status::kOk) return status;

  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  const bitlocker::Credential given = bitlocker::Credential::FromText(credential ? credential : "");
  status = locked->Unlock(given, &unlocked, &why);
  if (status != bitlocker::Status::kOk) {
    // The reason goes into logs, which must not name the credential, not
    // even a startup key file's path.
    const std::string& text = given.text();
    const bool named = given.kind() == bitlocker::Credential::Kind::kStartupKeyFile;
    for (size_t at; named && (at = why.find(text)) != std::string::npos;)
      why.replace(at, text.size(), "(the file given)");
    return status;
  }
  *volume = unlocked.release();
  return bitlocker::kOk;
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
  lastFailure.clear();
  if (volume == nullptr) return bitlocker::kIoError;
  *volume = nullptr;
  if (rawDevice == nullptr) return bitlocker::kIoError;
  try {
    return OpenDevice(rawDevice, credential, volume);
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return bitlocker::kIoError;
  } catch (const std::exception& error) {
    lastFailure = error.what();
    return bitlocker::kUnsupported;
  }
}

const char* bitlocker_open_failure(void) { return lastFailure.c_str(); }

}  // extern "C"
