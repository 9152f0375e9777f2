// The disk devices of this machine and the mount table's sources: the
// questions about devices whose answers differ between operating systems.
// One implementation file per platform.
#ifndef ZQ_BITLOCKER_TOOL_BLOCKDEVICES_H_
#define ZQ_BITLOCKER_TOOL_BLOCKDEVICES_H_

#include <string>
#include <vector>

struct BlockDevice {
  std::string path;          // "/dev/sda1", "/dev/disk2s1"
  bool partitioned = false;  // a whole disk whose partitions are devices of their own
};

// Every disk and partition device with a size, in name order.
std::vector<BlockDevice> ListBlockDevices();

// What every mounted file system is mounted from, as the mount table names
// it: "/dev/sda1", or the device a FUSE mounter named as its source.
std::vector<std::string> MountSources();

#endif  // ZQ_BITLOCKER_TOOL_BLOCKDEVICES_H_
