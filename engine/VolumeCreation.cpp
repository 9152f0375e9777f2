#include "engine/VolumeCreation.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <optional>
#include <thread>
#include <vector>

#include "engine/AesCcm.h"
#include "engine/Bytes.h"
#include "engine/CUnlockedVolume.h"
#include "engine/FveMetadata.h"
#include "engine/KeyDerivation.h"
#include "engine/KeyProtector.h"
#include "engine/MetadataValidation.h"
#include "engine/RandomBytes.h"
#include "engine/StartupKeyFile.h"
#include "engine/VolumeHeader.h"
#include "engine/VolumeLayout.h"

namespace bitlocker {
namespace {

constexpr uint32_t kSectorSize = 512;
// Each metadata copy has 64 KiB to itself, and the first sectors are kept
// in a slot of that size between the first and second copy.
constexpr uint64_t kCopyArea = 64 * 1024;
constexpr uint32_t kStoredHeaderSectors = 16;
constexpr uint64_t kReservedTail = 4 * kCopyArea;
constexpr size_t kWipeChunk = 8 * 1024 * 1024;

constexpr size_t kKeySize = 32;
constexpr size_t kRecoveryKeySize = 16;
constexpr size_t kNonceBaseSize = 8;
constexpr size_t kGuidSize = 16;
constexpr uint16_t kMetadataVersion = 2;
// A description that leaves the copy ample room in its 64 KiB.
constexpr size_t kMaxDescriptionUnits = 256;

// The methods inside key entries and stretch entries, as the Windows-made
// volumes show them: the stretch entries name the kind of secret, the
// wrapped keys what they are.
constexpr uint32_t kStretchOfPassword = 0x1001;
constexpr uint32_t kStretchOfRecoveryPassword = 0x1000;
constexpr uint16_t kMethodVolumeMasterKey = 0x2003;
constexpr uint16_t kMethodPasswordStretchedKey = 0x2007;
constexpr uint16_t kMethodRecoveryStretchedKey = 0x2008;
constexpr uint16_t kMethodRecoveryKey = 0x1000;
// A recovery password's stretch entry carries, under the volume master
// key, the recovery key itself and the stretched key, so that whoever
// holds the master key can show the recovery password again.
constexpr uint16_t kEntryRecoveryKey = 0x0012;
constexpr uint16_t kEntryRecoveryStretchedKey = 0x0013;

// The nonce counter of each wrapped key, in the order Windows spends them
// (it skips 7): a startup key protector, made after the full volume key,
// wraps the startup key under the master key, then the master key under
// the startup key.  The validation takes the next counter, and the header
// names the one after.
enum NonceCounter : uint32_t {
  kNoncePasswordStretchedKey = 2,
  kNoncePasswordMasterKey = 3,
  kNonceRecoveryKey = 4,
  kNonceRecoveryStretchedKey = 5,
  kNonceRecoveryMasterKey = 6,
  kNonceFullVolumeKey = 8,
  kNonceStartupKey = 9,
  kNonceStartupMasterKey = 10,
};

size_t FullVolumeKeySize(uint16_t method) {
  switch (method) {
    case kAesCbc128:
      return 16;
    case kAesCbc256:
    case kAesXts128:
      return 32;
    case kAesXts256:
      return 64;
  }
  return 0;
}

uint64_t RoundDown(uint64_t value, uint64_t unit) { return value / unit * unit; }
uint64_t RoundUp(uint64_t value, uint64_t unit) { return (value + unit - 1) / unit * unit; }

// Every random value of a new volume.
struct Secrets {
  CSecureBuffer volumeMasterKey, fullVolumeKey, recoveryKey, startupKey;
  CSecureBuffer passwordSalt, recoverySalt, nonceBase;
  CSecureBuffer volumeId, passwordId, recoveryId, startupId;

  bool Draw(uint16_t method) {
    for (auto [buffer, size] : {std::pair{&volumeMasterKey, kKeySize},
                                {&fullVolumeKey, FullVolumeKeySize(method)},
                                {&recoveryKey, kRecoveryKeySize},
                                {&startupKey, kKeySize},
                                {&passwordSalt, kSaltSize},
                                {&recoverySalt, kSaltSize},
                                {&nonceBase, kNonceBaseSize},
                                {&volumeId, kGuidSize},
                                {&passwordId, kGuidSize},
                                {&recoveryId, kGuidSize},
                                {&startupId, kGuidSize}}) {
      auto bytes = RandomBytes(size);
      if (!bytes) return false;
      *buffer = std::move(*bytes);
    }
    // Random identifiers carry the marks of a version 4 GUID.
    for (CSecureBuffer* id : {&volumeId, &passwordId, &recoveryId, &startupId}) {
      id->data()[7] = static_cast<uint8_t>((id->data()[7] & 0x0f) | 0x40);
      id->data()[8] = static_cast<uint8_t>((id->data()[8] & 0x3f) | 0x80);
    }
    return true;
  }
};

// Builds the metadata copy of a new volume, entry by entry in the order and
// shape the Windows-made volumes show.
class MetadataComposer {
 public:
  MetadataComposer(const NewVolume& request, const Secrets& secrets) : request_(request), secrets_(secrets) {}

  // The entries, or nullopt when a key could not be wrapped, the password
  // or description is not UTF-8 or the description too long (*why says
  // which).
  std::optional<std::vector<uint8_t>> Entries(uint64_t storedHeaderOffset, std::string* why) {
    auto passwordHash = PasswordHash(request_.password);
    auto description = Utf8ToUtf16Le(request_.description);
    if (!passwordHash || !description) {
      *why = passwordHash ? "the description is not UTF-8 text" : "the password is not UTF-8 text";
      return std::nullopt;
    }
    if (description->size() > 2 * kMaxDescriptionUnits) {
      *why = "the description is longer than " + std::to_string(kMaxDescriptionUnits) + " characters";
      return std::nullopt;
    }
    const CSecureBuffer passwordKey = StretchKey(*passwordHash, secrets_.passwordSalt.data());
    const CSecureBuffer recoveryKey =
        StretchKey(RecoveryPasswordHash(secrets_.recoveryKey), secrets_.recoverySalt.data());

    std::vector<uint8_t> entries;
    std::vector<uint8_t> text(description->data(), description->data() + description->size());
    text.insert(text.end(), {0, 0});
    AppendEntry(&entries, kEntryDescription, kValueUnicodeString, text.data(), text.size());

    std::vector<uint8_t> passwordStretch;
    ok_ = Wrap(&passwordStretch, kEntryProperty, kMethodPasswordStretchedKey, passwordKey, secrets_.volumeMasterKey,
               kNoncePasswordStretchedKey);
    AppendProtector(&entries, secrets_.passwordId, kProtectionPassword, kStretchOfPassword, secrets_.passwordSalt,
                    passwordStretch, passwordKey, kNoncePasswordMasterKey);

    std::vector<uint8_t> recoveryStretch;
    ok_ = ok_ && Wrap(&recoveryStretch, kEntryRecoveryKey, kMethodRecoveryKey, secrets_.recoveryKey,
                      secrets_.volumeMasterKey, kNonceRecoveryKey);
    ok_ = ok_ && Wrap(&recoveryStretch, kEntryRecoveryStretchedKey, kMethodRecoveryStretchedKey, recoveryKey,
                      secrets_.volumeMasterKey, kNonceRecoveryStretchedKey);
    AppendProtector(&entries, secrets_.recoveryId, kProtectionRecoveryPassword, kStretchOfRecoveryPassword,
                    secrets_.recoverySalt, recoveryStretch, recoveryKey, kNonceRecoveryMasterKey);

    ok_ = ok_ && Wrap(&entries, kEntryFullVolumeKey, request_.method, secrets_.fullVolumeKey, secrets_.volumeMasterKey,
                      kNonceFullVolumeKey);
    if (request_.saveStartupKey) AppendStartupKeyProtector(&entries);

    // Windows follows the offset and size with a 76-byte record that the
    // public descriptions of the format do not explain; readers need only
    // the two numbers, so they are all this entry holds.
    uint8_t storedHeader[16];
    StoreLe64(storedHeaderOffset, storedHeader);
    StoreLe64(uint64_t{kStoredHeaderSectors} * kSectorSize, storedHeader + 8);
    AppendEntry(&entries, kEntryVolumeHeaderBlock, kValueOffsetAndSize, storedHeader, sizeof storedHeader);

    if (!ok_) {
      *why = "a key could not be wrapped";
      return std::nullopt;
    }
    return entries;
  }

  uint32_t ValidationCounter() const {
    return (request_.saveStartupKey ? kNonceStartupMasterKey : kNonceFullVolumeKey) + 1;
  }

  std::array<uint8_t, 12> Nonce(uint32_t counter) const {
    std::array<uint8_t, 12> nonce{};
    std::memcpy(nonce.data(), secrets_.nonceBase.data(), kNonceBaseSize);
    StoreLe32(counter, nonce.data() + kNonceBaseSize);
    return nonce;
  }

 private:
  // Appends an AES-CCM entry holding `keyBytes` of `method` under `key`.
  bool Wrap(std::vector<uint8_t>* out, uint16_t type, uint16_t method, const CSecureBuffer& keyBytes,
            const CSecureBuffer& key, uint32_t counter) const {
    auto value = WrapKeyEntry(method, keyBytes, key, Nonce(counter).data());
    if (!value) return false;
    AppendEntry(out, type, kValueAesCcmKey, value->data(), value->size());
    return true;
  }

  // A volume master key entry: identifier, time, protection, then the
  // stretch entry (salt and what it carries) and the master key wrapped
  // under the stretched key.
  void AppendProtector(std::vector<uint8_t>* out, const CSecureBuffer& id, uint16_t protection, uint32_t stretchKind,
                       const CSecureBuffer& salt, const std::vector<uint8_t>& stretchCarries,
                       const CSecureBuffer& stretchedKey, uint32_t counter) {
    std::vector<uint8_t> stretch(4);
    StoreLe32(stretchKind, stretch.data());
    stretch.insert(stretch.end(), salt.data(), salt.data() + salt.size());
    stretch.insert(stretch.end(), stretchCarries.begin(), stretchCarries.end());

    std::vector<uint8_t> value = ProtectorStart(id, protection);
    AppendEntry(&value, kEntryProperty, kValueStretchKey, stretch.data(), stretch.size());
    ok_ = ok_ && Wrap(&value, kEntryProperty, kMethodVolumeMasterKey, secrets_.volumeMasterKey, stretchedKey, counter);
    AppendEntry(out, kEntryVolumeMasterKey, kValueVolumeMasterKey, value.data(), value.size());
  }

  // A startup key protector: identifier, time, protection, its name, the
  // startup key wrapped under the master key (so that whoever holds the
  // master key can write the .BEK file again), and the master key wrapped
  // under the startup key.
  void AppendStartupKeyProtector(std::vector<uint8_t>* out) {
    std::vector<uint8_t> value = ProtectorStart(secrets_.startupId, kProtectionStartupKey);
    const CSecureBuffer name = ExternalKeyName();
    AppendEntry(&value, kEntryProperty, kValueUnicodeString, name.data(), name.size());
    std::vector<uint8_t> useKey(4);
    StoreLe16(kMethodExternalKey, useKey.data());
    ok_ = ok_ && Wrap(&useKey, kEntryProperty, kMethodExternalKey, secrets_.startupKey, secrets_.volumeMasterKey,
                      kNonceStartupKey);
    AppendEntry(&value, kEntryProperty, kValueUseKey, useKey.data(), useKey.size());
    ok_ = ok_ && Wrap(&value, kEntryProperty, kMethodVolumeMasterKey, secrets_.volumeMasterKey, secrets_.startupKey,
                      kNonceStartupMasterKey);
    AppendEntry(out, kEntryVolumeMasterKey, kValueVolumeMasterKey, value.data(), value.size());
  }

  // The fixed start of a volume master key entry.
  std::vector<uint8_t> ProtectorStart(const CSecureBuffer& id, uint16_t protection) const {
    std::vector<uint8_t> value(id.data(), id.data() + id.size());
    value.resize(value.size() + 12);
    StoreLe64(request_.creationTime, value.data() + kGuidSize);
    StoreLe16(protection, value.data() + kGuidSize + 10);
    return value;
  }

  const NewVolume& request_;
  const Secrets& secrets_;
  bool ok_ = true;
};

// Where the parts of a new volume lie.
struct Placement {
  uint64_t volumeSize = 0;
  std::array<uint64_t, 3> copies{};
  uint64_t storedHeader = 0;
};

Placement Place(uint64_t targetSize) {
  Placement place;
  place.volumeSize = RoundDown(targetSize, kSectorSize);
  const uint64_t tail = RoundDown(place.volumeSize, kCopyArea) - kReservedTail;
  place.copies = {tail, tail + 2 * kCopyArea, tail + 3 * kCopyArea};
  place.storedHeader = tail + kCopyArea;
  return place;
}

// A whole metadata copy: block header, metadata header, entries, padding
// and validation, padded with zeros to fill its area.
std::vector<uint8_t> ComposeCopy(const NewVolume& request, const Placement& place, const Secrets& secrets,
                                 const std::vector<uint8_t>& entries, uint32_t nextNonceCounter) {
  const size_t metadataSize = FveMetadata::kHeaderSize + entries.size();
  const size_t covered = RoundUp(FveMetadataBlock::kHeaderSize + metadataSize, 16);
  std::vector<uint8_t> copy(kCopyArea);
  uint8_t* block = copy.data();
  std::memcpy(block, "-FVE-FS-", 8);
  StoreLe16(static_cast<uint16_t>(covered / 16), block + 8);
  StoreLe16(kMetadataVersion, block + 10);
  StoreLe16(kStateEncrypted, block + 12);
  StoreLe16(kStateEncrypted, block + 14);
  StoreLe64(place.volumeSize, block + 16);
  StoreLe32(kStoredHeaderSectors, block + 28);
  for (size_t i = 0; i < place.copies.size(); ++i) StoreLe64(place.copies[i], block + 32 + 8 * i);
  StoreLe64(place.storedHeader, block + 56);

  uint8_t* metadata = block + FveMetadataBlock::kHeaderSize;
  StoreLe32(static_cast<uint32_t>(metadataSize), metadata);
  StoreLe32(1, metadata + 4);
  StoreLe32(FveMetadata::kHeaderSize, metadata + 8);
  StoreLe32(static_cast<uint32_t>(metadataSize), metadata + 12);
  std::memcpy(metadata + 16, secrets.volumeId.data(), kGuidSize);
  StoreLe32(nextNonceCounter, metadata + 32);
  // The method twice, as every Windows-made volume has it.
  StoreLe16(request.method, metadata + 36);
  StoreLe16(request.method, metadata + 38);
  StoreLe64(request.creationTime, metadata + 40);
  std::copy(entries.begin(), entries.end(), metadata + FveMetadata::kHeaderSize);
  return copy;
}

// Writes encrypted zeros over the writable runs of [0, end) of the volume,
// telling `progress`, when there is one, how far it has come.  False when a
// write fails, or with errno ECANCELED when `progress` says to stop.
bool WriteZeros(CUnlockedVolume& volume, uint64_t end, const std::function<bool(uint64_t, uint64_t)>& progress) {
  auto goOn = [&](uint64_t at) {
    if (!progress || progress(at, end)) return true;
    errno = ECANCELED;
    return false;
  };
  const std::vector<uint8_t> zeros(kWipeChunk);
  for (uint64_t at = 0; at < end;) {
    if (!goOn(at)) return false;
    const LayoutRun run = volume.layout().RunAt(at, std::min<uint64_t>(kWipeChunk, end - at));
    if (run.writable() && volume.Write(at, zeros.data(), static_cast<size_t>(run.length)) < 0) return false;
    at += run.length;
  }
  return volume.Flush() == 0 && goOn(end);
}

}  // namespace

Status CreateVolume(const std::shared_ptr<const IByteSource>& target, const NewVolume& request, CreatedVolume* created,
                    std::string* why) {
  if (FullVolumeKeySize(request.method) == 0) {
    *why = EncryptionMethodName(request.method) + " is not a method new volumes are made with";
    return Status::kUnsupported;
  }
  if (request.password.empty()) {
    *why = "the password is empty";
    return Status::kUnsupported;
  }
  if (target->Size() < kMinimumNewVolumeSize) {
    *why = "a volume needs at least " + std::to_string(kMinimumNewVolumeSize) + " bytes";
    return Status::kUnsupported;
  }
  Secrets secrets;
  if (!secrets.Draw(request.method)) {
    *why = std::string("no random bytes: ") + std::strerror(errno);
    return Status::kIoError;
  }
  const Placement place = Place(target->Size());
  MetadataComposer composer(request, secrets);
  auto entries = composer.Entries(place.storedHeader, why);
  if (!entries) return Status::kUnsupported;
  const uint32_t validationCounter = composer.ValidationCounter();
  std::vector<uint8_t> copy = ComposeCopy(request, place, secrets, *entries, validationCounter + 1);
  const size_t covered = size_t{LoadLe16(copy.data() + 8)} * 16;
  if (!SealMetadataCopy(copy.data(), covered, secrets.volumeMasterKey, composer.Nonce(validationCounter).data())) {
    *why = "the metadata could not be sealed";
    return Status::kIoError;
  }
  const std::array<uint8_t, VolumeHeader::kSize> headerSector =
      FormatVolumeHeader(kSectorSize, place.volumeSize, place.copies);

  // The data is written through the same path as an unlocked volume's, with
  // the layout read back from what was just composed.
  auto header = ParseVolumeHeader(headerSector.data());
  auto block = ParseFveMetadataBlock(copy.data(), covered);
  VolumeLayout layout;
  if (!header || !block || VolumeLayout::Build(*header, *block, target->Size(), &layout, why) != Status::kOk) {
    *why = "the composed metadata does not read back: " + *why;
    return Status::kIoError;
  }
  const Guid startupId = Guid::FromBytes(secrets.startupId.data());
  if (request.saveStartupKey &&
      !request.saveStartupKey(startupId, FormatStartupKeyFile(startupId, secrets.startupKey, request.creationTime),
                              why))
    return Status::kIoError;
  const uint64_t storedHeaderSize = layout.storedHeader().length;
  UnwrappedKey fullVolumeKey{request.method, secrets.fullVolumeKey};
  auto volume = CUnlockedVolume::Make(target, std::move(layout), fullVolumeKey,
                                      std::max(1u, std::thread::hardware_concurrency()), true);
  // The first sectors on the device are never shown by the volume; they
  // are cleared first, so that an old header does not outlive a stopped
  // wipe, and the new header goes over them at the end.
  const std::vector<uint8_t> clear(storedHeaderSize);
  auto failed = [&](const char* what) {
    *why = std::string(what) + ": " + std::strerror(errno);
    return Status::kIoError;
  };
  if (!volume) return failed("the data area could not be written");
  if (!target->WriteAt(0, clear.data(), clear.size())) return failed("the first sectors could not be written");
  const bool wrote = request.wipe ? WriteZeros(*volume, volume->Size(), request.wipeProgress)
                                  : WriteZeros(*volume, storedHeaderSize, nullptr);
  if (!wrote) return failed("the data area could not be written");
  for (uint64_t offset : place.copies) {
    if (!target->WriteAt(offset, copy.data(), copy.size())) return failed("a metadata copy could not be written");
  }
  if (!target->Sync()) return failed("the metadata could not be made durable");
  if (!target->WriteAt(0, headerSector.data(), headerSector.size()) || !target->Sync())
    return failed("the volume header could not be written");

  created->volumeId = Guid::FromBytes(secrets.volumeId.data());
  created->recoveryPassword = FormatRecoveryPassword(secrets.recoveryKey);
  created->dataSize = place.copies[0];
  return Status::kOk;
}

}  // namespace bitlocker
