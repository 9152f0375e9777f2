// A file or device opened for reading as a disk: its bytes, the sector size
// its partition table counts in, and the window where a volume inside it
// lies.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_DISKSOURCE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_DISKSOURCE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/IByteSource.h"
#include "tools/zq-bitlocker/PartitionTable.h"

struct Disk {
  std::shared_ptr<const bitlocker::IByteSource> source;
  uint32_t sectorSize = 512;  // the device's logical block size; 512 for files
};

// Opens `path` read-only; nullopt with errno set when it cannot.
std::optional<Disk> OpenDisk(const std::string& path);

// The partitions of the disk's table.
std::vector<Partition> DiskPartitions(const Disk& disk);

// The bytes of the volume that starts `offset` bytes into the disk: the
// partition that starts there when the table names one, else everything to
// the end.  Null when `offset` lies at or beyond the end.
std::shared_ptr<const bitlocker::IByteSource> VolumeWindow(const Disk& disk, uint64_t offset);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_DISKSOURCE_H_
