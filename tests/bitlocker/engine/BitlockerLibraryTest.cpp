// The library's two entry points, as the service calls them.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "IVolume.h"
#include "TestImages.h"
#include "VolumeReading.h"

namespace {

using VolumePtr = std::unique_ptr<IVolume>;

int Open(const std::string& device, const std::string& credential, VolumePtr* volume) {
  IVolume* raw = reinterpret_cast<IVolume*>(0x1);
  const int status = open_bitlocker_device(device.c_str(), credential.c_str(), &raw);
  volume->reset(raw);
  EXPECT_TRUE(status == bitlocker::kOk || raw == nullptr) << "a volume came with status " << status;
  return status;
}

// A FAT32 boot sector's marks, without BitLocker's.
std::vector<uint8_t> PlainFatImage() {
  std::vector<uint8_t> image(1024 * 1024, 0);
  std::memcpy(image.data(), "\xeb\x58\x90MSWIN4.1\x00\x02\x08", 14);
  std::memcpy(image.data() + 82, "FAT32   ", 8);
  image[510] = 0x55;
  image[511] = 0xaa;
  return image;
}

TEST(BitlockerLibrary, TellsBitlockerVolumesFromPlainDevices) {
  ZQ_REQUIRE_IMAGES(images);
  for (const auto& image : *images) EXPECT_TRUE(is_bitlocker_drive(image.path.c_str())) << image.name;

  EXPECT_FALSE(is_bitlocker_drive(
      testimages::WriteScratchFile("zero.img", std::vector<uint8_t>(1024 * 1024, 0)).c_str()));
  EXPECT_FALSE(is_bitlocker_drive(testimages::WriteScratchFile("fat.img", PlainFatImage()).c_str()));
  EXPECT_FALSE(is_bitlocker_drive((testimages::ScratchFolder() + "/missing").c_str()));
  EXPECT_FALSE(is_bitlocker_drive(""));
  EXPECT_FALSE(is_bitlocker_drive(nullptr));
}

TEST(BitlockerLibrary, OpensEveryImageWithEachKindOfCredentialText) {
  ZQ_REQUIRE_IMAGES(images);
  for (const auto& image : *images) {
    SCOPED_TRACE(image.name);
    // A password where there is one, else a startup key file's path, else
    // the recovery password; all three are told apart from the text alone.
    std::string credential = !image.password.empty()       ? image.password
                             : !image.startupKeyPath.empty() ? image.startupKeyPath
                                                             : image.recoveryPassword;
    VolumePtr volume;
    ASSERT_EQ(Open(image.path, credential, &volume), bitlocker::kOk);
    ASSERT_TRUE(volume);
    std::vector<uint8_t> bytes = ReadWholeVolume(*volume, 1024 * 1024 + 512);
    ASSERT_EQ(bytes.size(), volume->Size());
    EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image.decryptedSha256);

    std::string undashed = image.recoveryPassword;
    undashed.erase(std::remove(undashed.begin(), undashed.end(), '-'), undashed.end());
    EXPECT_EQ(Open(image.path, undashed, &volume), bitlocker::kOk);
  }
}

TEST(BitlockerLibrary, ReportsEachFailureWithItsStatus) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-smart-card", &why);
  if (!image) GTEST_SKIP() << why;
  VolumePtr volume;
  EXPECT_EQ(Open(image->path, "anaconda", &volume), bitlocker::kWrongCredential);
  EXPECT_EQ(Open(image->path, "", &volume), bitlocker::kWrongCredential);
  EXPECT_EQ(Open(image->path, "538329-080597-399190-348700-323345-161062-279807-230979", &volume),
            bitlocker::kWrongCredential);
  EXPECT_EQ(Open(testimages::WriteScratchFile("zeros.img", std::vector<uint8_t>(65536, 0)), "x", &volume),
            bitlocker::kNotBitlocker);
  EXPECT_EQ(Open(testimages::WriteScratchFile("tiny.img", {1, 2, 3}), "x", &volume), bitlocker::kNotBitlocker);
  EXPECT_EQ(Open(testimages::ScratchFolder() + "/missing.img", "x", &volume), bitlocker::kIoError);

  IVolume* raw = nullptr;
  EXPECT_NE(open_bitlocker_device(nullptr, "x", &raw), bitlocker::kOk);
  EXPECT_NE(open_bitlocker_device(image->path.c_str(), "x", nullptr), bitlocker::kOk);
}

TEST(BitlockerLibrary, ExportsOnlyItsEntryPoints) {
  void* library = ::dlopen(ZQ_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_TRUE(library) << ::dlerror();
  EXPECT_TRUE(::dlsym(library, "is_bitlocker_drive"));
  EXPECT_TRUE(::dlsym(library, "open_bitlocker_device"));
  // bitlocker::CBitlockerVolume::IsBitlocker(const std::string&), an engine function inside.
  EXPECT_FALSE(::dlsym(library, "_ZN9bitlocker16CBitlockerVolume11IsBitlockerERKNSt7__cxx1112basic_stringIcSt11char_"
                                "traitsIcESaIcEEE"));
  ::dlclose(library);
}

}  // namespace
