// Real loop devices for tests, detached (and unmounted) whatever a test's
// outcome.
#ifndef ZQ_TESTS_SUPPORT_LOOPDEVICE_H_
#define ZQ_TESTS_SUPPORT_LOOPDEVICE_H_

#include <string>

// Why loop devices cannot be used here, or empty when they can.
std::string LoopDevicesUnavailable();

class LoopDevice {
 public:
  // Attaches `imagePath`; with `sectorSize` non-zero, as a device of that
  // logical block size.  valid() is false when attaching failed.
  explicit LoopDevice(const std::string& imagePath, unsigned sectorSize = 0, bool readOnly = false);
  ~LoopDevice();
  LoopDevice(const LoopDevice&) = delete;
  LoopDevice& operator=(const LoopDevice&) = delete;

  bool valid() const { return !devicePath_.empty(); }
  const std::string& devicePath() const { return devicePath_; }  // "/dev/loop3"
  std::string bsdName() const;                                    // "loop3"

  // Mounts the device at `mountPoint` with `type`; unmounted again on
  // destruction.
  bool Mount(const std::string& mountPoint, const std::string& type);

 private:
  std::string devicePath_;
  std::string mountPoint_;
};

#endif  // ZQ_TESTS_SUPPORT_LOOPDEVICE_H_
