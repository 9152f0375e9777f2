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
    ASSERT_EQ(bitlocker::CBitlockerVolume::Open(source_, &volume, &why), bitlocker::Status::kOk)
        << why;
    offsets_ = volume->header().metadataOffsets;
  }

  const testimages::Image* image_ = nullptr;
  std::shared_ptr<CPatchedSource> source_;
  std::array<uint64_t, 3> offsets_{};
};

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_PATCHEDIMAGETEST_H_
