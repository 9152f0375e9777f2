// The encrypt-on-write volume: detected, opened with each credential to its
// boot sectors in the clear and the rest decrypted; and conversions the
// engine must refuse, made by changing the volume's bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "Bytes.h"
#include "CBitlockerVolume.h"
#include "CFileSource.h"
#include "CPatchedSource.h"
#include "EncryptOnWriteImage.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

constexpr uint64_t kSector = 512;
constexpr uint64_t kPartWay = 40 * 1024 * 1024;

std::vector<uint8_t> Le64(uint64_t value) {
  std::vector<uint8_t> bytes(8);
  StoreLe64(value, bytes.data());
  return bytes;
}

bool Hidden(const VolumeLayout& layout, uint64_t at) {
  for (const Extent& extent : layout.hidden()) {
    if (at >= extent.offset && at < extent.end()) return true;
  }
  return false;
}

// The volume seen through a source that tests can change, with its bytes as
// they lie on the device and as the unchanged volume unlocks.
class EncryptOnWriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    image_ = testimages::EncryptOnWriteImage(&why_);
    if (!image_) GTEST_SKIP() << why_;
    file_ = CFileSource::Open(image_->path);
    ASSERT_TRUE(file_);
    raw_.resize(file_->Size());
    ASSERT_TRUE(file_->ReadAt(0, raw_.data(), raw_.size()));
    Reset();
  }

  // Undoes every change and opens the volume afresh.
  void Reset() {
    source_ = std::make_shared<CPatchedSource>(file_);
    ASSERT_EQ(Open(), Status::kOk) << why_;
    offsets_ = volume_->header().metadataOffsets;
  }

  Status Open() { return CBitlockerVolume::Open(source_, &volume_, &why_); }
  Status Unlock(const Credential& credential) { return volume_->Unlock(credential, &unlocked_, &why_); }
  void PatchEachCopy(uint64_t field, const std::vector<uint8_t>& bytes) {
    for (uint64_t offset : offsets_) source_->Patch(offset + field, bytes);
  }

  const testimages::Image* image_ = nullptr;
  std::string why_;
  std::shared_ptr<const IByteSource> file_;
  std::shared_ptr<CPatchedSource> source_;
  std::vector<uint8_t> raw_;
  std::array<uint64_t, 3> offsets_{};
  std::unique_ptr<CBitlockerVolume> volume_;
  std::unique_ptr<CUnlockedVolume> unlocked_;
};

TEST_F(EncryptOnWriteTest, IsDetectedByItsHeaderIdentifier) {
  EXPECT_TRUE(CBitlockerVolume::IsBitlocker(image_->path));
  EXPECT_EQ(volume_->header().identifier, HeaderIdentifier::kEncryptOnWrite);
  EXPECT_EQ(volume_->metadata().metadata.volumeId.ToString(), image_->volumeGuid);
  EXPECT_EQ(volume_->metadata().encryptedSize, raw_.size());
}

TEST_F(EncryptOnWriteTest, OpensWithEachCredentialToAnNtfsVolumeOfItsSize) {
  std::string firstDigest;
  for (const Credential& credential : {Credential::Password(image_->password),
                                       Credential::RecoveryPassword(image_->recoveryPassword)}) {
    SCOPED_TRACE(CredentialKindName(credential.kind()));
    ASSERT_EQ(Unlock(credential), Status::kOk) << why_;
    std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked_);
    ASSERT_EQ(bytes.size(), raw_.size());

    // NTFS keeps its last sector for the backup boot sector.
    EXPECT_EQ(std::memcmp(bytes.data() + 3, "NTFS    ", 8), 0);
    EXPECT_EQ(LoadLe16(bytes.data() + 11), kSector);
    EXPECT_EQ(LoadLe64(bytes.data() + 40) + 1, bytes.size() / kSector);
    EXPECT_EQ(LoadLe16(bytes.data() + 510), 0xaa55);

    const VolumeLayout& layout = unlocked_->layout();
    const Extent& stored = layout.storedHeader();
    EXPECT_EQ(std::memcmp(bytes.data(), raw_.data() + stored.offset, stored.length), 0);
    size_t copied = 0, zeroHidden = 0, hidden = 0;
    for (uint64_t at = stored.length; at < bytes.size(); at += kSector) {
      bool same = std::memcmp(bytes.data() + at, raw_.data() + at, kSector) == 0;
      if (!Hidden(layout, at)) {
        copied += same ? 1 : 0;
        continue;
      }
      ++hidden;
      zeroHidden += std::all_of(bytes.begin() + at, bytes.begin() + at + kSector,
                                [](uint8_t b) { return b == 0; });
    }
    EXPECT_EQ(copied, 0u) << "sectors shown as they lie instead of decrypted";
    EXPECT_EQ(zeroHidden, hidden);

    std::string digest = testimages::Sha256Hex(bytes.data(), bytes.size());
    if (firstDigest.empty()) firstDigest = digest;
    EXPECT_EQ(digest, firstDigest);
  }
}

TEST_F(EncryptOnWriteTest, PartWayWithoutEncryptOnWriteBlocksShowsTheRestAsItLies) {
  ASSERT_EQ(Unlock(Credential::Password(image_->password)), Status::kOk) << why_;
  std::vector<uint8_t> full = ReadWholeVolume(*unlocked_);

  source_->Patch(200, std::vector<uint8_t>(16, 0));
  PatchEachCopy(12, {kStateConverting, 0});
  PatchEachCopy(16, Le64(kPartWay));
  ASSERT_EQ(Open(), Status::kOk) << why_;
  ASSERT_EQ(Unlock(Credential::RecoveryPassword(image_->recoveryPassword)), Status::kOk) << why_;
  std::vector<uint8_t> partial = ReadWholeVolume(*unlocked_);
  ASSERT_EQ(partial.size(), full.size());

  EXPECT_EQ(std::memcmp(partial.data(), full.data(), kPartWay), 0);
  for (uint64_t at = kPartWay; at < partial.size(); at += kSector) {
    const uint8_t* expected = Hidden(unlocked_->layout(), at) ? full.data() : raw_.data();
    ASSERT_EQ(std::memcmp(partial.data() + at, expected + at, kSector), 0) << "sector at " << at;
  }
}

struct FieldChange {
  uint64_t field;  // offset in each metadata copy's block header
  std::vector<uint8_t> value;
};

struct Refusal {
  const char* name;
  uint64_t at;  // a byte of the device to change; 0 for none
  uint8_t byte;
  std::vector<FieldChange> fields;
  bool byOpen;         // refused when opened rather than when unlocked
  const char* reason;  // a phrase of the refusal
};

TEST_F(EncryptOnWriteTest, RefusesWhatItCannotReadWithTheReason) {
  const uint64_t size = raw_.size();
  const uint64_t storedCopy = volume_->metadata().volumeHeaderOffset;
  const Refusal refusals[] = {
      {"unknown identifier", 160, 0x3c, {}, true, "identifier 92a84d3c"},
      {"encrypted size past the end", 0, 0, {{16, Le64(size + kSector)}}, false, "beyond the volume"},
      {"encrypted size in part of a sector", 0, 0, {{16, Le64(size - 100)}}, false, "whole number"},
      {"unknown state", 0, 0, {{12, {9, 0}}}, false, "unknown conversion state 9"},
      {"unknown next state", 0, 0, {{14, {0, 0}}}, false, "unknown next conversion state 0"},
      {"state 3", 0, 0, {{12, {3, 0}}}, false, "conversion state 3 (encrypt-on-write"},
      {"decrypted yet encrypted", 0, 0, {{12, {kStateDecrypted, 0}}}, false, "says decrypted"},
      {"encrypted yet nothing is", 0, 0, {{16, Le64(0)}}, false, "says encrypted"},
      {"part way", 0, 0, {{12, {kStatePaused, 0}}, {16, Le64(kPartWay)}}, false, "part way"},
      {"boot copy encrypted", storedCopy + 511, 0, {}, false, "not in the clear"},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.name);
    Reset();
    if (refusal.at != 0) source_->Patch(refusal.at, {refusal.byte});
    for (const FieldChange& change : refusal.fields) PatchEachCopy(change.field, change.value);

    Status status = Open();
    if (!refusal.byOpen) {
      ASSERT_EQ(status, Status::kOk) << why_;
      unlocked_.reset();
      status = Unlock(Credential::Password(image_->password));
      EXPECT_FALSE(unlocked_);
    }
    EXPECT_EQ(status, Status::kUnsupported);
    EXPECT_NE(why_.find(refusal.reason), std::string::npos) << why_;
  }
}

}  // namespace
