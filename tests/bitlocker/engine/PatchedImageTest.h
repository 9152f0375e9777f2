// A fixture over a real XTS image seen through a CPatchedSource, for tests
// that change some of its bytes: the volume's metadata copies are found
// before any change.
#ifndef ZQ_TESTS_BITLOCKER_ENGINE_PATCHEDIMAGETEST_H_
#define ZQ_TESTS_BITLOCKER_ENGINE_PATCHEDIMAGETEST_H_

#include <gtest/gtest.h>

#include <array>
#include <memory>

#include "CBitlockerVolume.h"
#include "CFileSource.h"
#include "CPatchedSource.h"
#include "TestImages.h"
#include "VolumeReading.h"

class PatchedImageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why;
    image_ = testimages::FindImage("bitlk-aes-xts-128", &why);
    if (!image_) GTEST_SKIP() << why;
    std::shared_ptr<const bitlocker::IByteSource> file = bitlocker::CFileSource::Open(image_->path);
    ASSERT_TRUE(file);
    source_ = std::make_shared<CPatchedSource>(file);
    std::unique_ptr<bitlocker::CBitlockerVolume> volume;
    ASSERT_EQ(bitlocker::CBitlockerVolume::Open(source_, &volume, &why), bitlocker::Status::kOk) << why;
    offsets_ = volume->header().metadataOffsets;
  }

  // Opens the patched image and unlocks it: the first failure, or kOk.
  bitlocker::Status Unlock(const bitlocker::Credential& credential, std::string* why,
                           std::unique_ptr<bitlocker::CUnlockedVolume>* unlocked = nullptr) {
    std::unique_ptr<bitlocker::CBitlockerVolume> volume;
    std::unique_ptr<bitlocker::CUnlockedVolume> ignored;
    const bitlocker::Status status = bitlocker::CBitlockerVolume::Open(source_, &volume, why);
    if (status != bitlocker::Status::kOk) return status;
    return volume->Unlock(credential, unlocked ? unlocked : &ignored, why);
  }

  // Unlocks with `credential` and checks the whole volume's digest.
  void ExpectOpensWith(const bitlocker::Credential& credential) {
    std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
    std::string why;
    ASSERT_EQ(Unlock(credential, &why, &unlocked), bitlocker::Status::kOk) << why;
    const std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
    EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image_->decryptedSha256);
  }

  const testimages::Image* image_ = nullptr;
  std::shared_ptr<CPatchedSource> source_;
  std::array<uint64_t, 3> offsets_{};
};

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_PATCHEDIMAGETEST_H_
