// Reading devices that only take whole blocks (raw disk devices) and block
// devices (through a loop device, where the machine has them).
#include <gtest/gtest.h>

#include <random>

#include "CBitlockerVolume.h"
#include "CFileSource.h"
#include "LoopDevice.h"
#include "TestImages.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

std::string UnlockedDigest(std::shared_ptr<const IByteSource> source, const std::string& password) {
  std::unique_ptr<CBitlockerVolume> volume;
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string why;
  if (CBitlockerVolume::Open(std::move(source), &volume, &why) != Status::kOk) return why;
  if (volume->Unlock(Credential::Password(password), &unlocked, &why) != Status::kOk) return why;
  std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked, 3 * 1024 * 1024 + 1536);
  return testimages::Sha256Hex(bytes.data(), bytes.size());
}

TEST(CFileSource, ReadsThroughWholeBlocksAgreeWithPlainReads) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-togo-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  auto plain = CFileSource::Open(image->path);
  std::shared_ptr<CFileSource> blocks = CFileSource::Open(image->path, 4096);
  ASSERT_TRUE(plain && blocks);
  ASSERT_EQ(plain->Size(), blocks->Size());

  std::mt19937_64 random(3);
  for (int i = 0; i < 200; ++i) {
    uint64_t offset = random() % (plain->Size() - 3 * 1024 * 1024);
    size_t length = 1 + random() % (i % 2 ? 3 * 1024 * 1024 : 9000);
    std::vector<uint8_t> a(length), b(length, 0xcc);
    ASSERT_TRUE(plain->ReadAt(offset, a.data(), length));
    ASSERT_TRUE(blocks->ReadAt(offset, b.data(), length));
    ASSERT_EQ(a, b) << "offset " << offset << " length " << length;
  }
  EXPECT_EQ(UnlockedDigest(blocks, image->password), image->decryptedSha256);
}

TEST(CFileSource, ReadsAVolumeOnABlockDevice) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-cbc-elephant-128", &why);
  if (!image) GTEST_SKIP() << why;
  why = LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  LoopDevice loop(image->path, 0, true);
  ASSERT_TRUE(loop.valid());

  EXPECT_TRUE(CBitlockerVolume::IsBitlocker(loop.devicePath()));
  std::shared_ptr<const IByteSource> device = CFileSource::Open(loop.devicePath());
  ASSERT_TRUE(device);
  EXPECT_EQ(device->Size(), CFileSource::Open(image->path)->Size());
  EXPECT_EQ(UnlockedDigest(device, image->password), image->decryptedSha256);
}

}  // namespace
