// A BitLocker volume on a device or image file, before it is unlocked: its
// header and metadata, readable by anyone, and the way to unlock it.
#ifndef ZQ_ENGINE_CBITLOCKERVOLUME_H_
#define ZQ_ENGINE_CBITLOCKERVOLUME_H_

#include <memory>
#include <string>

#include "bitlocker/BitlockerStatus.h"
#include "engine/CUnlockedVolume.h"
#include "engine/Credential.h"
#include "engine/FveMetadata.h"
#include "engine/IByteSource.h"
#include "engine/VolumeHeader.h"

namespace bitlocker {

class CBitlockerVolume {
 public:
  // Opens `path` and reads the volume header and every metadata copy.
  // Returns kOk with *volume set, or the reason in *why.  The volume is
  // opened for reading only unless `access` asks for writing; then it is
  // opened for writing where the device allows it, and its unlocked volume
  // says when it does not.
  static Status Open(const std::string& path, std::unique_ptr<CBitlockerVolume>* volume,
                     std::string* why, Access access = Access::kReadOnly);
  // The same on a source, which is written only with Access::kReadWrite.
  static Status Open(std::shared_ptr<const IByteSource> source,
                     std::unique_ptr<CBitlockerVolume>* volume, std::string* why,
                     Access access = Access::kReadOnly);

  // Whether `path` carries a BitLocker volume header, of any kind; needs no
  // credential.
  static bool IsBitlocker(const std::string& path);

  const VolumeHeader& header() const { return header_; }
  // The copy that describes the volume (the first usable one).
  const FveMetadataBlock& metadata() const { return copies_.blocks.front(); }
  const MetadataCopies& copies() const { return copies_; }
  uint64_t deviceSize() const { return source_->Size(); }

  // Unlocks the volume with `credential`.  `lanes` is how many threads
  // decrypt a large read; zero means one per core.
  Status Unlock(const Credential& credential, std::unique_ptr<CUnlockedVolume>* unlocked,
                std::string* why, unsigned lanes = 0) const;

 private:
  CBitlockerVolume() = default;

  std::shared_ptr<const IByteSource> source_;
  bool writable_ = false;
  VolumeHeader header_;
  MetadataCopies copies_;
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_CBITLOCKERVOLUME_H_
