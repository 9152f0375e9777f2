#include "tools/zq-bitlocker/DiskSource.h"

#include <fcntl.h>
#include <unistd.h>

#include "engine/CFileSource.h"
#include "platform/Devices.h"
#include "tools/zq-bitlocker/COffsetSource.h"

using namespace bitlocker;

std::optional<Disk> OpenDisk(const std::string& path) {
  Disk disk;
  disk.source = CFileSource::Open(path);
  if (!disk.source) return std::nullopt;
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd >= 0) {
    if (std::optional<platform::DeviceGeometry> geometry = platform::QueryDeviceGeometry(fd)) disk.sectorSize = geometry->blockSize;
    ::close(fd);
  }
  return disk;
}

std::vector<Partition> DiskPartitions(const Disk& disk) { return ReadPartitionTable(*disk.source, disk.sectorSize); }

std::shared_ptr<const IByteSource> VolumeWindow(const Disk& disk, uint64_t offset) {
  const uint64_t size = disk.source->Size();
  if (offset == 0) return disk.source;
  if (offset >= size) return nullptr;
  const std::vector<Partition> partitions = DiskPartitions(disk);
  const Partition* partition = PartitionAt(partitions, offset);
  return std::make_shared<COffsetSource>(disk.source, offset, partition ? partition->size : size - offset);
}
