// Finding BitLocker volumes on a disk, at its start or in the partitions of
// its table, without any credential.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_VOLUMESCAN_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_VOLUMESCAN_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/zq-bitlocker/DiskSource.h"

struct FoundVolume {
  std::string device;  // the file or device it lies in
  unsigned partition = 0;  // its number in the table; 0 when it starts the device
  uint64_t offset = 0;     // bytes into the device: what --offset takes
  uint64_t size = 0;
  std::string kind;  // "Windows 7+", "To Go" or "Vista"
  std::string description;
  std::vector<std::string> protectors;
  std::string problem;  // why its metadata cannot be read, or empty
  bool mounted = false;
};

// The volumes of `disk` (opened from `device`): the one that starts it, or
// else, when `readTable`, those that start partitions of its table.
std::vector<FoundVolume> FindVolumes(const std::string& device, const Disk& disk, bool readTable);

// Whether one of the mount table's `sources` names `device`: as given, or
// as our FUSE mounter names a block device's mount (its raw device,
// /dev/rdisk2s1 on macOS; on Linux the kernel's name, whatever link was
// given).
bool IsMountedSource(const std::string& device, const std::vector<std::string>& sources);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_VOLUMESCAN_H_
