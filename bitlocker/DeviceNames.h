// Device paths as the volume operations use them.
#ifndef ZQ_BITLOCKER_DEVICENAMES_H_
#define ZQ_BITLOCKER_DEVICENAMES_H_

#include <optional>
#include <string>

// "/dev/" followed by a BSD name such as disk2s1.  A missing name reads
// "(null)", as a formatted missing string does.
std::string BlockDevicePath(const std::optional<std::string>& bsdName);

// The raw (character) device path of a block device path, such as
// /dev/rdisk2s1 for /dev/disk2s1; empty when the path is not a block device
// or has no raw device.
std::string RawDevicePath(const char* devicePath);

// The text a formatted string shows for a string that may be missing.
std::string Described(const std::optional<std::string>& text);

#endif  // ZQ_BITLOCKER_DEVICENAMES_H_
