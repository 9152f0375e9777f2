#include "bitlocker/DeviceNames.h"

#include <sys/stat.h>

#include "platform/Devices.h"

std::string Described(const std::optional<std::string>& text) { return text ? *text : "(null)"; }

std::string BlockDevicePath(const std::optional<std::string>& bsdName) { return "/dev/" + Described(bsdName); }

std::string RawDevicePath(const char* devicePath) {
  struct stat info;
  if (devicePath == nullptr || stat(devicePath, &info) != 0 || !S_ISBLK(info.st_mode)) return "";
  const std::string name = platform::RawDeviceName(info.st_rdev);
  return name.empty() ? "" : "/dev/" + name;
}
