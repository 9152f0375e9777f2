#include "engine/CBitlockerVolume.h"

#include <cerrno>
#include <cstring>
#include <thread>
#include <vector>

#include "engine/CFileSource.h"
#include "engine/SectorCipher.h"
#include "engine/Unlock.h"

namespace bitlocker {
namespace {

// Read workers are few: the work is bound by AES instructions per core.
constexpr unsigned kMaxLanes = 8;

bool ReadHeaderSector(const IByteSource& source, uint8_t* sector) {
  if (source.Size() < VolumeHeader::kSize) {
    errno = 0;
    return false;
  }
  return source.ReadAt(0, sector, VolumeHeader::kSize);
}

// The start of a boot sector: a jump, and the signature at its end.
bool IsBootSector(const uint8_t* sector) {
  return (sector[0] == 0xeb || sector[0] == 0xe9) && sector[510] == 0x55 && sector[511] == 0xaa;
}

// Encrypt-on-write volumes made by Windows keep their stored boot sectors
// in the clear; a volume that began as an ordinary one keeps them encrypted
// like any other sector.  The sectors themselves tell which: whichever
// reading gives a boot sector.  One that gives none would show the volume's
// first sectors wrong, and is refused.
Status ChooseStoredHeaderForm(const std::shared_ptr<const IByteSource>& source, const UnwrappedKey& fullVolumeKey,
                              VolumeLayout* layout, std::string* why) {
  std::vector<uint8_t> sector(layout->sectorSize());
  if (!source->ReadAt(layout->storedHeader().offset, sector.data(), sector.size())) {
    *why = std::string("cannot read the stored boot sectors: ") + std::strerror(errno);
    return Status::kIoError;
  }
  if (IsBootSector(sector.data())) return Status::kOk;
  auto cipher = MakeSectorCipher(fullVolumeKey.method, fullVolumeKey.key, layout->sectorSize());
  if (cipher && cipher->Decrypt(layout->storedHeader().offset, sector.data(), 1) && IsBootSector(sector.data())) {
    layout->KeepStoredHeaderEncrypted();
    return Status::kOk;
  }
  *why = "the stored boot sectors of this encrypt-on-write volume read as a boot sector neither in the clear "
         "nor decrypted";
  return Status::kUnsupported;
}

}  // namespace

Status CBitlockerVolume::Open(const std::string& path, std::unique_ptr<CBitlockerVolume>* volume,
                              std::string* why, Access access) {
  std::shared_ptr<CFileSource> source = CFileSource::Open(path, access);
  if (!source) {
    *why = "cannot open " + path + ": " + std::strerror(errno);
    return Status::kIoError;
  }
  Access granted = source->writable() ? Access::kReadWrite : Access::kReadOnly;
  return Open(std::move(source), volume, why, granted);
}

Status CBitlockerVolume::Open(std::shared_ptr<const IByteSource> source,
                              std::unique_ptr<CBitlockerVolume>* volume, std::string* why,
                              Access access) {
  uint8_t sector[VolumeHeader::kSize];
  if (!ReadHeaderSector(*source, sector)) {
    if (errno == 0) {
      *why = "too small to hold a volume";
      return Status::kNotBitlocker;
    }
    *why = std::string("cannot read the volume header: ") + std::strerror(errno);
    return Status::kIoError;
  }
  auto header = ParseVolumeHeader(sector);
  if (!header) {
    *why = "no BitLocker volume header";
    return Status::kNotBitlocker;
  }
  if (header->identifier == HeaderIdentifier::kUnknown) {
    *why = "the volume header carries the identifier " + header->guid.ToString() +
           ", which marks neither an ordinary nor an encrypt-on-write BitLocker volume";
    return Status::kUnsupported;
  }
  MetadataCopies copies = ReadFveMetadataCopies(*source, *header);
  if (copies.blocks.empty()) {
    *why = "no usable FVE metadata copy:\n" + copies.problems;
    return copies.ioError ? Status::kIoError : Status::kUnsupported;
  }
  std::unique_ptr<CBitlockerVolume> opened(new CBitlockerVolume());
  opened->source_ = std::move(source);
  opened->writable_ = access == Access::kReadWrite;
  opened->header_ = *header;
  opened->copies_ = std::move(copies);
  *volume = std::move(opened);
  return Status::kOk;
}

bool CBitlockerVolume::IsBitlocker(const std::string& path) {
  auto source = CFileSource::Open(path);
  uint8_t sector[VolumeHeader::kSize];
  return source && ReadHeaderSector(*source, sector) && ParseVolumeHeader(sector).has_value();
}

Status CBitlockerVolume::Unlock(const Credential& credential,
                                std::unique_ptr<CUnlockedVolume>* unlocked, std::string* why,
                                unsigned lanes) const {
  UnwrappedKey fullVolumeKey;
  size_t copyUsed = 0;
  Status status = UnlockFullVolumeKey(copies_.blocks, credential, &fullVolumeKey, &copyUsed, why);
  if (status != Status::kOk) return status;

  VolumeLayout layout;
  status = VolumeLayout::Build(header_, copies_.blocks[copyUsed], source_->Size(), &layout, why);
  if (status != Status::kOk) return status;
  if (layout.storedHeaderInClear()) {
    status = ChooseStoredHeaderForm(source_, fullVolumeKey, &layout, why);
    if (status != Status::kOk) return status;
  }

  if (lanes == 0) lanes = std::max(1u, std::min(kMaxLanes, std::thread::hardware_concurrency()));
  auto volume = CUnlockedVolume::Make(source_, std::move(layout), fullVolumeKey, lanes, writable_);
  if (!volume) {
    *why = "the data is encrypted with " + EncryptionMethodName(fullVolumeKey.method) +
           ", which this engine does not decrypt";
    return Status::kUnsupported;
  }
  *unlocked = std::move(volume);
  return Status::kOk;
}

}  // namespace bitlocker
