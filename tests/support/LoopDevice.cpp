#include "tests/support/LoopDevice.h"

#include <unistd.h>

#include "tests/support/ProgramRun.h"
#include "tests/support/StubBundle.h"

std::string LoopDevicesUnavailable() {
  if (geteuid() != 0) return "loop devices need root";
  if (RunShell("command -v losetup >/dev/null && test -e /dev/loop-control") != 0)
    return "losetup or /dev/loop-control is missing";
  return "";
}

LoopDevice::LoopDevice(const std::string& imagePath, unsigned sectorSize, bool readOnly) {
  std::string command = "losetup -f --show";
  if (sectorSize != 0) command += " -b " + std::to_string(sectorSize);
  if (readOnly) command += " -r";
  const std::string output = RunProgram("/bin/sh", {"-c", command + " '" + imagePath + "'"}).output;
  if (output.rfind("/dev/loop", 0) == 0) devicePath_ = output.substr(0, output.find('\n'));
}

LoopDevice::~LoopDevice() {
  if (!mountPoint_.empty()) RunShell("umount '" + mountPoint_ + "' 2>/dev/null || umount -l '" + mountPoint_ + "' 2>/dev/null");
  if (valid()) RunShell("losetup -d " + devicePath_);
}

std::string LoopDevice::bsdName() const { return devicePath_.substr(devicePath_.rfind('/') + 1); }

bool LoopDevice::Mount(const std::string& mountPoint, const std::string& type) {
  if (RunShell("mount -t " + type + " " + devicePath_ + " '" + mountPoint + "'") != 0) return false;
  mountPoint_ = mountPoint;
  return true;
}
