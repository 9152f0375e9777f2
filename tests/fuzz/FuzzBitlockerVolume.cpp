// Feeds devices whose bytes an attacker chose to the BitLocker engine: the
// service reads the header and metadata of any disk that is plugged in,
// as root, before anyone has given a credential.
//
// An input whose first byte is even is the metadata block, served behind a
// well-formed volume header at all three metadata offsets, so that the
// fuzzer spends its time in the metadata and its entries; an odd first byte
// makes the rest of the input the whole device, header included.
#include <algorithm>
#include <cstring>
#include <memory>

#include "engine/Bytes.h"
#include "engine/CBitlockerVolume.h"
#include "engine/Guid.h"

using namespace bitlocker;

namespace {

constexpr uint64_t kMetadataOffsets[3] = {0x10000, 0x20000, 0x30000};
constexpr size_t kMetadataSpan = 0x10000;

// The device's bytes in memory.
struct CMemorySource : IByteSource {
  std::vector<uint8_t> bytes;
  uint64_t Size() const override { return bytes.size(); }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override {
    if (offset > bytes.size() || length > bytes.size() - offset) return false;
    std::memcpy(buffer, bytes.data() + offset, length);
    return true;
  }
};

std::vector<uint8_t> DeviceAroundMetadata(const uint8_t* metadata, size_t size) {
  std::vector<uint8_t> device(kMetadataOffsets[2] + kMetadataSpan);
  std::memcpy(device.data() + 3, "-FVE-FS-", 8);
  device[12] = 512 >> 8;  // bytes per sector, little-endian
  device[13] = 8;
  std::copy(kBitlockerVolumeGuid.bytes.begin(), kBitlockerVolumeGuid.bytes.end(), device.begin() + 160);
  for (int copy = 0; copy < 3; ++copy) {
    StoreLe64(kMetadataOffsets[copy], device.data() + 176 + 8 * copy);
    std::memcpy(device.data() + kMetadataOffsets[copy], metadata, std::min(size, kMetadataSpan));
  }
  return device;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  auto source = std::make_shared<CMemorySource>();
  source->bytes = (data[0] & 1) ? std::vector<uint8_t>(data + 1, data + size) : DeviceAroundMetadata(data + 1, size - 1);
  std::unique_ptr<CBitlockerVolume> volume;
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string why;
  if (CBitlockerVolume::Open(source, &volume, &why) != Status::kOk) return 0;
  if (volume->Unlock(Credential::ClearKey(), &unlocked, &why, 1) != Status::kOk) return 0;
  uint8_t sector[4096];
  const uint64_t end = unlocked->Size();
  for (uint64_t offset : {uint64_t{0}, end / 2, end > sizeof sector ? end - sizeof sector : 0}) {
    unlocked->Read(offset, sector, static_cast<size_t>(std::min<uint64_t>(sizeof sector, end - offset)));
  }
  return 0;
}
