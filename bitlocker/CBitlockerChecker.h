// Tells whether a disk or partition holds a BitLocker volume.
//
// The service's answer comes from the package's BitLocker library.  Beside
// it the class carries a self-contained check that reads the device itself:
// the signature in the first block, or failing that the block that a marker
// file on the device's visible volume points at.
#ifndef ZQ_BITLOCKER_CBITLOCKERCHECKER_H_
#define ZQ_BITLOCKER_CBITLOCKERCHECKER_H_

#include <cstdint>
#include <optional>
#include <string>

// The signature of a BitLocker volume header.
extern const char* pszBitlockerMark;

class CBitlockerChecker {
 public:
  CBitlockerChecker();
  ~CBitlockerChecker();
  CBitlockerChecker(const CBitlockerChecker&) = delete;
  CBitlockerChecker& operator=(const CBitlockerChecker&) = delete;

  // Asks the library about /dev/<bsdName>.  False when the library is
  // missing.
  bool IsBitlocker(const char* bsdName);

  std::string getDeviceRname(const char* devicePath);

  // The self-contained route: openDisk, then checkBitlockerMark with the
  // same name.
  bool openDisk(const char* bsdName);
  uint32_t getBlockSize();
  bool checkBitlockerMark(const char* bsdName);

  // Where the volume on the device is mounted; nullopt when it is not.
  std::optional<std::string> bsdNameToFilePath(const char* bsdName);

 private:
  int diskDescriptor_;
};

#endif  // ZQ_BITLOCKER_CBITLOCKERCHECKER_H_
