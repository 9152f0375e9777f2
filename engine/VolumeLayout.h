// Where each byte of the unlocked volume comes from.  The volume is shown as
// the field's reference readers show it: the original boot sectors, kept
// elsewhere on the volume, in their place at the start; the FVE metadata
// blocks and the stored boot sectors as zeros; the part that is not (yet)
// encrypted as it lies on the device.  Ordinary volumes keep the stored boot
// sectors encrypted, encrypt-on-write volumes in the clear or encrypted.
#ifndef ZQ_ENGINE_VOLUMELAYOUT_H_
#define ZQ_ENGINE_VOLUMELAYOUT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bitlocker/BitlockerStatus.h"
#include "engine/FveMetadata.h"
#include "engine/VolumeHeader.h"

namespace bitlocker {

struct Extent {
  uint64_t offset = 0;
  uint64_t length = 0;
  uint64_t end() const { return offset + length; }
};

// A stretch of the unlocked volume that is produced in one way.
struct LayoutRun {
  enum class Action {
    kZero,             // shown as zeros
    kCopy,             // copied from the device as it is
    kDecrypt,          // read from the device and decrypted
    kVistaBootSector,  // the Vista header sector, turned back into the NTFS one
  };
  Action action = Action::kZero;
  uint64_t sourceOffset = 0;  // where the bytes lie on the device (kCopy, kDecrypt)
  uint64_t length = 0;

  // kCopy runs are written in the clear and kDecrypt runs encrypted, at
  // sourceOffset; the others never.
  bool writable() const { return action == Action::kCopy || action == Action::kDecrypt; }
};

class VolumeLayout {
 public:
  // Builds the layout of a volume from its header and a metadata copy.
  // Refuses, with a reason, a conversion state it cannot read faithfully.
  static Status Build(const VolumeHeader& header, const FveMetadataBlock& metadata,
                      uint64_t deviceSize, VolumeLayout* layout, std::string* why);

  uint64_t size() const { return size_; }
  uint32_t sectorSize() const { return sectorSize_; }
  uint64_t encryptedSize() const { return encryptedSize_; }
  const Extent& storedHeader() const { return storedHeader_; }
  bool storedHeaderInClear() const { return storedHeaderInClear_; }
  // For an encrypt-on-write volume whose stored boot sectors turn out to be
  // encrypted like an ordinary volume's.
  void KeepStoredHeaderEncrypted() { storedHeaderInClear_ = false; }
  const std::vector<Extent>& hidden() const { return hidden_; }
  uint64_t mftMirrorCluster() const { return mftMirrorCluster_; }

  // Null when the volume may be written; otherwise why it may only be read.
  const char* readOnlyReason() const { return readOnlyReason_; }

  // The run that starts at `offset` (below size()), at most `length` long.
  LayoutRun RunAt(uint64_t offset, uint64_t length) const;

  // Whether every run of [offset, offset + length), within size(), is
  // writable.
  bool Writable(uint64_t offset, uint64_t length) const;

 private:
  uint64_t size_ = 0;
  uint32_t sectorSize_ = 512;
  uint64_t encryptedSize_ = 0;
  bool vista_ = false;
  const char* readOnlyReason_ = nullptr;
  uint64_t mftMirrorCluster_ = 0;
  // The first storedHeader_.length bytes of the volume are read from
  // storedHeader_.offset (Windows 7 and To Go).
  Extent storedHeader_;
  bool storedHeaderInClear_ = false;
  std::vector<Extent> hidden_;  // sorted, sector-aligned, shown as zeros
};

}  // namespace bitlocker

#endif  // ZQ_ENGINE_VOLUMELAYOUT_H_
