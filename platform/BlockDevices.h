// The disk and partition devices of this machine.
#ifndef ZQ_PLATFORM_BLOCKDEVICES_H_
#define ZQ_PLATFORM_BLOCKDEVICES_H_

#include <string>
#include <vector>

namespace platform {

struct BlockDevice {
  std::string path;          // "/dev/sda1", "/dev/disk2s1"
  bool partitioned = false;  // a whole disk whose partitions are devices of their own
};

// Every disk and partition device with a size, in name order.
std::vector<BlockDevice> ListBlockDevices();

}  // namespace platform

#endif  // ZQ_PLATFORM_BLOCKDEVICES_H_
