// The library's entry points on encrypt-on-write volumes and on a BitLocker
// header of an unknown kind, as the service calls them.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <memory>

#include "EncryptOnWriteImage.h"
#include "IVolume.h"

namespace {

int OpenAndClose(const std::string& device, const std::string& credential, uint64_t* size) {
  IVolume* volume = nullptr;
  int status = open_bitlocker_device(device.c_str(), credential.c_str(), &volume);
  std::unique_ptr<IVolume> owned(volume);
  *size = owned ? owned->Size() : 0;
  return status;
}

TEST(EncryptOnWriteLibrary, DetectsAndOpensTheVolumeWithEitherCredential) {
  ZQ_REQUIRE_EOW_IMAGE(image);
  EXPECT_TRUE(is_bitlocker_drive(image->path.c_str()));
  for (const std::string& credential : {image->password, image->recoveryPassword}) {
    uint64_t size = 0;
    EXPECT_EQ(OpenAndClose(image->path, credential, &size), kBitlockerOpened) << credential;
    EXPECT_EQ(size, 100u * 1024 * 1024);
  }
}

TEST(EncryptOnWriteLibrary, AnUnknownIdentifierIsBitlockerYetUnsupported) {
  ZQ_REQUIRE_EOW_IMAGE(image);
  std::ifstream in(image->path, std::ios::binary);
  std::vector<uint8_t> start(1024 * 1024);
  ASSERT_TRUE(in.read(reinterpret_cast<char*>(start.data()), static_cast<std::streamsize>(start.size())));
  start[160] ^= 0xff;
  std::string path = testimages::WriteScratchFile("unknown-identifier.img", start);
  EXPECT_TRUE(is_bitlocker_drive(path.c_str()));
  uint64_t size = 0;
  EXPECT_EQ(OpenAndClose(path, image->password, &size), kBitlockerUnsupported);
}

}  // namespace
