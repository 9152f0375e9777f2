// The interface of the package's BitLocker library, "libBitLockerWapper.dylib".
//
// The service loads the library at run time and calls the two entry points
// below; the mounter also asks the third why an open failed.  A volume that the library opens is handed over as an IVolume; the
// receiver deletes it, which releases everything and wipes its keys.
#ifndef ZQ_BITLOCKER_IVOLUME_H_
#define ZQ_BITLOCKER_IVOLUME_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "bitlocker/BitlockerStatus.h"

class IVolume {
 public:
  virtual ~IVolume() = default;

  // Size of the unlocked volume in bytes.
  virtual uint64_t Size() const = 0;

  // Reads up to `length` bytes of the unlocked volume at `offset` into
  // `buffer`.  Returns the number of bytes read (0 at the end of the
  // volume), or -1 with errno set.
  virtual ssize_t Read(uint64_t offset, void* buffer, size_t length) = 0;

  // Null when the volume can be written; otherwise why it can only be read
  // ("partially encrypted volume", "the device is read-only", ...).
  virtual const char* ReadOnlyReason() const = 0;

  // Writes `length` bytes of the unlocked volume at `offset`, encrypted, to
  // the device before returning; a part of a sector is read, changed and
  // written whole, so concurrent writers of one sector keep each other's
  // bytes.  Returns `length` (less only at the end of the volume), or -1
  // with errno set: EROFS when the volume can only be read, EIO when the
  // range touches BitLocker's own areas (nothing is written then) or the
  // device fails.
  virtual ssize_t Write(uint64_t offset, const void* buffer, size_t length) = 0;

  // Makes every write so far durable on the device.  0, or -1 with errno set.
  virtual int Flush() = 0;
};

// These are the library's only exported symbols; everything
// else in it is built with hidden visibility.
#define ZQ_BITLOCKER_API __attribute__((visibility("default")))

extern "C" {

// True when the device holds a BitLocker or BitLocker To Go volume.  Needs
// no credential.
ZQ_BITLOCKER_API bool is_bitlocker_drive(const char* rawDevice);

// Opens the volume on `rawDevice` with `credential`: a password, a 48-digit
// recovery password, or the path of a startup key (.BEK) file, which is
// read with the rights of the user at the machine when the caller is root
// (one they may not read gives bitlocker::kWrongCredential); an empty
// credential asks for the clear key.  On success stores a new volume in
// *volume and returns bitlocker::kOk; otherwise returns the bitlocker::Status
// that says why not.
ZQ_BITLOCKER_API int open_bitlocker_device(const char* rawDevice, const char* credential,
                                           IVolume** volume);

// Why the calling thread's last open_bitlocker_device failed, in a few
// words ("the password does not open the volume", "the volume has no clear
// key protector"), naming no startup key file; empty when it did not fail
// or the status says it all.  Valid until the thread's next call.
ZQ_BITLOCKER_API const char* bitlocker_open_failure(void);

}  // extern "C"

#endif  // ZQ_BITLOCKER_IVOLUME_H_
