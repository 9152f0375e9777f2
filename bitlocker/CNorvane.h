// The disk-changing commands: unmounting and mounting through "diskutil",
// mounting a BitLocker volume with the package's mounter tool, and handing a
// volume to the explorer application.
//
// The mount and explorer commands first ask the BitLocker library whether
// the device holds a BitLocker volume and touch nothing when it does not
// (bitlocker::kNotBitlocker).  Then the device is unmounted; when that
// fails they answer kResultUnmountFailed (19) and start nothing.  A missing
// string (a client field that was not UTF-8) is formatted as "(null)".
#ifndef ZQ_BITLOCKER_CNORVANE_H_
#define ZQ_BITLOCKER_CNORVANE_H_

#include <memory>
#include <optional>
#include <string>

using OptionalString = std::optional<std::string>;

class CNorvane {
 public:
  CNorvane();

  // Unmounts `bsdName`, then runs the mounter on its raw device with the
  // path the mount point word stands for, the options, and the credential
  // on its standard input; returns the mounter's exit status (127 when it
  // cannot be started), 19, or 1 or kMounterNoLibrary before that.
  int Bitlocker_Mount(const OptionalString& bsdName, const OptionalString& mountArg2,
                      const OptionalString& mountArg3, const OptionalString& mountArg4);

  // Unmounts `bsdName`, then opens it in the explorer application with the
  // credential; returns the library's status, 255 without a library, or 19.
  // `keptUntilExit` is kept until the explorer started has ended.
  int Bitlocker_Explorer(const OptionalString& bsdName, const OptionalString& explorerArg2,
                         std::shared_ptr<void> keptUntilExit = nullptr);

  // True when "diskutil unmount" reports the volume unmounted or not mounted.
  bool Unmount(const OptionalString& name);
  bool Bitlocker_Unmount(const OptionalString& name);

  // True when "diskutil mount" reports a mounted volume.
  bool Mount(const OptionalString& name);

  std::string getDeviceRname(const char* devicePath);

 private:
  std::string mounterPath_;
};

#endif  // ZQ_BITLOCKER_CNORVANE_H_
