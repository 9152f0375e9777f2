// The encrypt-on-write volume of ../shared/bitlocker-eow.tar.xz, kept apart
// from the other shared images: unpacked once per test process into the
// scratch folder, with its credentials from the archive's manifest.
#ifndef ZQ_TESTS_BITLOCKER_ENGINE_ENCRYPTONWRITEIMAGE_H_
#define ZQ_TESTS_BITLOCKER_ENGINE_ENCRYPTONWRITEIMAGE_H_

#include <string>

#include "TestImages.h"

namespace testimages {

// The volume, or null when the archive is missing or cannot be unpacked
// (the reason is in *why).  Its digest is empty: no reader produced one.
const Image* EncryptOnWriteImage(std::string* why);

}  // namespace testimages

// Skips the running test, with the reason, when the volume is missing.
#define ZQ_REQUIRE_EOW_IMAGE(image)                                 \
  std::string image##Why;                                           \
  const auto* image = testimages::EncryptOnWriteImage(&image##Why); \
  if (image == nullptr) GTEST_SKIP() << image##Why

#endif  // ZQ_TESTS_BITLOCKER_ENGINE_ENCRYPTONWRITEIMAGE_H_
