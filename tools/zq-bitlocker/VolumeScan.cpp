#include "tools/zq-bitlocker/VolumeScan.h"

#include <sys/stat.h>

#include <algorithm>

#include "engine/CBitlockerVolume.h"
#include "engine/KeyProtector.h"
#include "platform/Devices.h"
#include "tools/zq-bitlocker/COffsetSource.h"
#include "tools/zq-bitlocker/VolumeFacts.h"

using namespace bitlocker;

namespace {

const char* ShortKindName(VolumeKind kind) {
  switch (kind) {
    case VolumeKind::kVista: return "Vista";
    case VolumeKind::kWindows7: return "Windows 7+";
    case VolumeKind::kToGo: return "To Go";
  }
  return "?";
}

// The volume in `window`, `offset` bytes into the device, if its first
// sector is a BitLocker header.  A volume whose metadata cannot be read is
// still found, with the reason.
bool Inspect(const std::string& device, std::shared_ptr<const IByteSource> window, unsigned partition,
             uint64_t offset, FoundVolume* found) {
  uint8_t sector[VolumeHeader::kSize];
  if (window->Size() < sizeof(sector) || !window->ReadAt(0, sector, sizeof(sector))) return false;
  const std::optional<VolumeHeader> header = ParseVolumeHeader(sector);
  if (!header) return false;
  *found = {device, partition, offset, window->Size(), ShortKindName(header->kind), "", {}, "", false};
  std::unique_ptr<CBitlockerVolume> volume;
  if (CBitlockerVolume::Open(window, &volume, &found->problem) != Status::kOk) return true;
  found->description = VolumeDescription(volume->metadata().metadata);
  for (const KeyProtector& protector : ListKeyProtectors(volume->metadata().metadata)) {
    found->protectors.push_back(ProtectionName(protector.protection));
  }
  return true;
}

}  // namespace

std::vector<FoundVolume> FindVolumes(const std::string& device, const Disk& disk, bool readTable) {
  std::vector<FoundVolume> volumes;
  FoundVolume found;
  if (Inspect(device, disk.source, 0, 0, &found)) {
    volumes.push_back(std::move(found));
    return volumes;
  }
  if (!readTable) return volumes;
  for (const Partition& partition : DiskPartitions(disk)) {
    const auto window = std::make_shared<COffsetSource>(disk.source, partition.offset, partition.size);
    if (Inspect(device, window, partition.number, partition.offset, &found)) volumes.push_back(std::move(found));
  }
  return volumes;
}

bool IsMountedSource(const std::string& device, const std::vector<std::string>& sources) {
  std::string mounterName;
  struct stat info;
  if (::stat(device.c_str(), &info) == 0 && S_ISBLK(info.st_mode)) {
    const std::string name = platform::RawDeviceName(info.st_rdev);
    if (!name.empty()) mounterName = "/dev/" + name;
  }
  return std::any_of(sources.begin(), sources.end(), [&](const std::string& source) {
    return source == device || (!mounterName.empty() && source == mounterName);
  });
}
