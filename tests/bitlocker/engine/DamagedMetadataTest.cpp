// Volumes whose metadata is damaged or whose encryption is incomplete,
// made from a real image by overlaying changed bytes on it.
#include <gtest/gtest.h>

#include <cstring>
#include <functional>

#include "Bytes.h"
#include "PatchedImageTest.h"

using namespace bitlocker;

namespace {

std::vector<uint8_t> Le64(uint64_t value) {
  std::vector<uint8_t> bytes(8);
  StoreLe64(value, bytes.data());
  return bytes;
}

class DamagedMetadataTest : public PatchedImageTest {
 protected:
  // Where the entry of this type starts in the metadata copy at `block`.
  uint64_t EntryOffset(uint64_t block, uint16_t type) {
    uint8_t header[4];
    source_->ReadAt(block + 64, header, 4);
    const uint64_t end = block + 64 + LoadLe32(header);
    for (uint64_t at = block + 64 + 48; at < end; at += LoadLe16(header)) {
      source_->ReadAt(at, header, 4);
      if (LoadLe16(header + 2) == type) return at;
    }
    ADD_FAILURE() << "no entry of type " << type;
    return 0;
  }
};

TEST_F(DamagedMetadataTest, ADamagedCopyGivesWayToTheNext) {
  struct Damage {
    const char* what;
    std::function<void()> apply;
    size_t copiesLeft;
    Credential credential;
  };
  const Damage damages[] = {
      {"first copy's signature", [&] { source_->Patch(offsets_[0], {'X'}); }, 2,
       Credential::Password(image_->password)},
      {"full volume key in the first two copies",
       [&] {
         for (int copy = 0; copy < 2; ++copy) {
           const uint64_t key = EntryOffset(offsets_[copy], 0x0003) + 8 + 12 + 16;
           source_->Patch(key, {static_cast<uint8_t>(source_->ByteAt(key) ^ 0x40)});
         }
       },
       3, Credential::RecoveryPassword(image_->recoveryPassword)},
  };
  const auto pristine = source_;
  for (const Damage& damage : damages) {
    SCOPED_TRACE(damage.what);
    source_ = std::make_shared<CPatchedSource>(*pristine);
    damage.apply();
    std::unique_ptr<CBitlockerVolume> volume;
    std::string why;
    ASSERT_EQ(CBitlockerVolume::Open(source_, &volume, &why), Status::kOk) << why;
    EXPECT_EQ(volume->copies().blocks.size(), damage.copiesLeft);
    ExpectOpensWith(damage.credential);
  }
}

TEST_F(DamagedMetadataTest, WhatCannotBeReadIsRefusedWithTheReason) {
  struct Refusal {
    uint64_t at;  // from each metadata copy's start
    std::vector<uint8_t> bytes;
    const char* reason;
  };
  const Refusal refusals[] = {
      {10, {9, 0}, "metadata copy 3"},    // an unknown version in every copy
      {12, {7, 0}, "conversion state 7"},  // an unknown conversion state
  };
  const auto pristine = source_;
  for (const Refusal& refusal : refusals) {
    source_ = std::make_shared<CPatchedSource>(*pristine);
    for (uint64_t offset : offsets_) source_->Patch(offset + refusal.at, refusal.bytes);
    std::string why;
    EXPECT_EQ(Unlock(Credential::Password(image_->password), &why), Status::kUnsupported) << refusal.reason;
    EXPECT_NE(why.find(refusal.reason), std::string::npos) << why;
  }
}

TEST_F(DamagedMetadataTest, APartlyEncryptedVolumeShowsItsPlainPartAsItIs) {
  std::vector<uint8_t> raw(source_->Size());
  ASSERT_TRUE(source_->ReadAt(0, raw.data(), raw.size()));
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string why;
  ASSERT_EQ(Unlock(Credential::Password(image_->password), &why, &unlocked), Status::kOk) << why;
  const std::vector<uint8_t> full = ReadWholeVolume(*unlocked);

  const uint64_t encrypted = 40 * 1024 * 1024 + 512;
  for (uint64_t offset : offsets_) {
    source_->Patch(offset + 12, {2, 0});  // converting
    source_->Patch(offset + 16, Le64(encrypted));
  }
  ASSERT_EQ(Unlock(Credential::Password(image_->password), &why, &unlocked), Status::kOk) << why;
  const std::vector<uint8_t> partial = ReadWholeVolume(*unlocked);
  ASSERT_EQ(partial.size(), full.size());

  EXPECT_EQ(0, std::memcmp(partial.data(), full.data(), encrypted));
  size_t plainSectors = 0;
  for (uint64_t at = encrypted; at < partial.size(); at += 512) {
    bool hidden = false;
    for (const Extent& extent : unlocked->layout().hidden()) hidden |= at >= extent.offset && at < extent.end();
    ASSERT_EQ(0, std::memcmp(partial.data() + at, (hidden ? full.data() : raw.data()) + at, 512)) << "sector " << at;
    plainSectors += hidden ? 0 : 1;
  }
  EXPECT_GT(plainSectors, 100000u);
}

}  // namespace
