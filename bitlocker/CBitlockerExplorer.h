// Opens a BitLocker volume through the package's library to prove the
// credential, then starts the explorer application on it in the background.
#ifndef ZQ_BITLOCKER_CBITLOCKEREXPLORER_H_
#define ZQ_BITLOCKER_CBITLOCKEREXPLORER_H_

#include <memory>
#include <optional>
#include <string>

#include "bitlocker/IVolume.h"

class CBitlockerExplorer {
 public:
  // What OpenExplorer answers when the library or its entry point is
  // missing.
  static constexpr int kLibraryMissing = 255;

  CBitlockerExplorer();

  // kLibraryMissing, or the library's status.  The explorer is started
  // only when the volume opened; `keptUntilExit` is kept until it ends.
  int OpenExplorer(const std::optional<std::string>& bsdName, const std::optional<std::string>& explorerArg2,
                   std::shared_ptr<void> keptUntilExit = nullptr);

  std::string getDeviceRname(const char* devicePath);

  // Calls the library's open_bitlocker_device; false when the library or the
  // entry point is missing (status untouched).  `status` may be null.
  bool openBitlockerDevice(const char* rawDevicePath, const char* credential, IVolume** volume, int* status);

 private:
  std::string explorerPath_;
};

#endif  // ZQ_BITLOCKER_CBITLOCKEREXPLORER_H_
