// Volumes whose metadata is damaged or whose encryption is incomplete,
// made from a real image by overlaying changed bytes on it.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>

#include "Bytes.h"
#include "CBitlockerVolume.h"
#include "PatchedImageTest.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

std::vector<uint8_t> Le64(uint64_t value) {
  std::vector<uint8_t> bytes(8);
  for (int i = 0; i < 8; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  return bytes;
}

// Copies the image into the scratch folder, leaving its holes as holes.
std::string SparseCopy(const IByteSource& image, const std::string& name) {
  std::string path = testimages::ScratchFolder() + "/" + name;
  int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  if (fd < 0) return "";
  bool ok = ::ftruncate(fd, static_cast<off_t>(image.Size())) == 0;
  std::vector<uint8_t> chunk(65536), zeros(chunk.size(), 0);
  for (uint64_t at = 0; ok && at < image.Size(); at += chunk.size()) {
    size_t size = static_cast<size_t>(std::min<uint64_t>(chunk.size(), image.Size() - at));
    ok = image.ReadAt(at, chunk.data(), size);
    if (ok && std::memcmp(chunk.data(), zeros.data(), size) != 0) {
      ok = ::pwrite(fd, chunk.data(), size, static_cast<off_t>(at)) == static_cast<ssize_t>(size);
    }
  }
  ::close(fd);
  return ok ? path : "";
}

class DamagedMetadataTest : public PatchedImageTest {
 protected:
  Status OpenPatched(std::unique_ptr<CBitlockerVolume>* volume, std::string* why) {
    return CBitlockerVolume::Open(source_, volume, why);
  }

  // Where the entry of this type starts in the metadata copy at `block`.
  uint64_t EntryOffset(uint64_t block, uint16_t type) {
    uint8_t header[4];
    source_->ReadAt(block + 64, header, 4);
    uint64_t end = block + 64 + LoadLe32(header);
    for (uint64_t at = block + 64 + 48; at < end;) {
      uint8_t entry[4];
      source_->ReadAt(at, entry, 4);
      if (LoadLe16(entry + 2) == type) return at;
      at += LoadLe16(entry);
    }
    ADD_FAILURE() << "no entry of type " << type;
    return 0;
  }
};

TEST_F(DamagedMetadataTest, ABrokenFirstCopyGivesWayToTheNext) {
  source_->Patch(offsets_[0], {'X'});  // its signature
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  ASSERT_EQ(OpenPatched(&volume, &why), Status::kOk) << why;
  EXPECT_EQ(volume->copies().blocks.size(), 2u);
  EXPECT_NE(volume->copies().problems.find("metadata copy 1"), std::string::npos);

  std::unique_ptr<CUnlockedVolume> unlocked;
  ASSERT_EQ(volume->Unlock(Credential::Password(image_->password), &unlocked, &why), Status::kOk);
  std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
  EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image_->decryptedSha256);
}

TEST_F(DamagedMetadataTest, AnImageWhoseFirstCopyIsOverwrittenOnDiskStillOpens) {
  std::string path = SparseCopy(*source_, "first-copy-overwritten.img");
  ASSERT_FALSE(path.empty());
  {
    int fd = ::open(path.c_str(), O_WRONLY);
    ASSERT_GE(fd, 0);
    std::vector<uint8_t> garbage(16384, 0xa5);
    ASSERT_EQ(::pwrite(fd, garbage.data(), garbage.size(), static_cast<off_t>(offsets_[0])),
              static_cast<ssize_t>(garbage.size()));
    ::close(fd);
  }
  EXPECT_TRUE(CBitlockerVolume::IsBitlocker(path));
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  ASSERT_EQ(CBitlockerVolume::Open(path, &volume, &why), Status::kOk) << why;
  EXPECT_EQ(volume->copies().blocks.size(), 2u);
  std::unique_ptr<CUnlockedVolume> unlocked;
  ASSERT_EQ(volume->Unlock(Credential::Password(image_->password), &unlocked, &why), Status::kOk)
      << why;
  std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
  EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image_->decryptedSha256);
  ::unlink(path.c_str());
}

TEST_F(DamagedMetadataTest, ADamagedKeyInOneCopyIsTakenFromAnother) {
  // Flip a byte of the encrypted full volume key in the first two copies.
  for (int copy = 0; copy < 2; ++copy) {
    uint64_t key = EntryOffset(offsets_[copy], 0x0003) + 8 + 12 + 16;
    source_->Patch(key, {static_cast<uint8_t>(source_->ByteAt(key) ^ 0x40)});
  }
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  ASSERT_EQ(OpenPatched(&volume, &why), Status::kOk) << why;
  EXPECT_EQ(volume->copies().blocks.size(), 3u);
  std::unique_ptr<CUnlockedVolume> unlocked;
  ASSERT_EQ(volume->Unlock(Credential::RecoveryPassword(image_->recoveryPassword), &unlocked, &why),
            Status::kOk)
      << why;
  std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
  EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image_->decryptedSha256);
}

TEST_F(DamagedMetadataTest, NoUsableCopyMeansUnsupported) {
  for (uint64_t offset : offsets_) source_->Patch(offset + 10, {9, 0});  // an unknown version
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  EXPECT_EQ(OpenPatched(&volume, &why), Status::kUnsupported);
  EXPECT_NE(why.find("metadata copy 3"), std::string::npos) << why;
}

TEST_F(DamagedMetadataTest, APartlyEncryptedVolumeShowsItsPlainPartAsItIs) {
  std::vector<uint8_t> raw(source_->Size());
  ASSERT_TRUE(source_->ReadAt(0, raw.data(), raw.size()));
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  std::unique_ptr<CUnlockedVolume> unlocked;
  ASSERT_EQ(OpenPatched(&volume, &why), Status::kOk);
  ASSERT_EQ(volume->Unlock(Credential::Password(image_->password), &unlocked, &why), Status::kOk);
  std::vector<uint8_t> full = ReadWholeVolume(*unlocked);

  const uint64_t encrypted = 40 * 1024 * 1024 + 512;
  for (uint64_t offset : offsets_) {
    source_->Patch(offset + 12, {2, 0});  // converting
    source_->Patch(offset + 16, Le64(encrypted));
  }
  ASSERT_EQ(OpenPatched(&volume, &why), Status::kOk);
  ASSERT_EQ(volume->Unlock(Credential::Password(image_->password), &unlocked, &why), Status::kOk);
  std::vector<uint8_t> partial = ReadWholeVolume(*unlocked);
  ASSERT_EQ(partial.size(), full.size());

  EXPECT_EQ(0, std::memcmp(partial.data(), full.data(), encrypted));
  size_t plainSectors = 0;
  for (uint64_t at = encrypted; at < partial.size(); at += 512) {
    bool hidden = false;
    for (const Extent& extent : unlocked->layout().hidden()) {
      hidden = hidden || (at >= extent.offset && at < extent.end());
    }
    const uint8_t* expected = hidden ? full.data() + at : raw.data() + at;
    ASSERT_EQ(0, std::memcmp(partial.data() + at, expected, 512)) << "sector at " << at;
    plainSectors += hidden ? 0 : 1;
  }
  EXPECT_GT(plainSectors, 100000u);
}

TEST_F(DamagedMetadataTest, AnUnknownConversionStateIsRefusedWithTheReason) {
  for (uint64_t offset : offsets_) source_->Patch(offset + 12, {7, 0});
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  ASSERT_EQ(OpenPatched(&volume, &why), Status::kOk);
  std::unique_ptr<CUnlockedVolume> unlocked;
  EXPECT_EQ(volume->Unlock(Credential::Password(image_->password), &unlocked, &why),
            Status::kUnsupported);
  EXPECT_NE(why.find("conversion state 7"), std::string::npos) << why;
  EXPECT_FALSE(unlocked);
}

}  // namespace
