// The partitions of a whole disk (or an image of one) as its partition
// table names them: MBR with its chain of logical partitions, or GPT behind
// its protective MBR.
#ifndef ZQ_TOOLS_ZQ_BITLOCKER_PARTITIONTABLE_H_
#define ZQ_TOOLS_ZQ_BITLOCKER_PARTITIONTABLE_H_

#include <cstdint>
#include <vector>

#include "engine/IByteSource.h"

struct Partition {
  unsigned number = 0;  // as the system numbers it: MBR 1-4 primary, 5 on logical; GPT from 1
  uint64_t offset = 0;  // bytes from the start of the disk
  uint64_t size = 0;    // bytes, cut at the end of the disk
};

// The partitions in the table at the start of `source`, in table order;
// empty when it holds no table.  MBR addresses count `sectorSize` bytes a
// sector (the disk's logical block size; 512 for image files); a GPT header
// is sought after the first 512 and after the first 4096 bytes.  Extended
// partitions themselves are left out, their logical partitions are not.
std::vector<Partition> ReadPartitionTable(const bitlocker::IByteSource& source, uint32_t sectorSize);

// The partition of `source`'s table that starts at `offset`, if any.
const Partition* PartitionAt(const std::vector<Partition>& partitions, uint64_t offset);

#endif  // ZQ_TOOLS_ZQ_BITLOCKER_PARTITIONTABLE_H_
