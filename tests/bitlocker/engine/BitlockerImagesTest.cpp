// The engine against real volumes made by Windows: every image opens with
// every credential its manifest gives and reads back to the manifest's
// digest, refuses what does not open it, and reads alike in pieces of any
// size, through whole blocks and from a block device.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "CFileSource.h"
#include "FileContents.h"
#include "LoopDevice.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

TEST(Images, EveryCredentialOpensTheVolumeAndReadsBackToTheManifestDigest) {
  ZQ_REQUIRE_IMAGES(images);
  for (const testimages::Image& image : *images) {
    SCOPED_TRACE(image.name);
    std::unique_ptr<CBitlockerVolume> volume;
    std::string why;
    ASSERT_EQ(CBitlockerVolume::Open(image.path, &volume, &why), Status::kOk) << why;
    EXPECT_EQ(volume->metadata().metadata.volumeId.ToString(), image.volumeGuid);
    std::vector<Credential> credentials = {Credential::RecoveryPassword(image.recoveryPassword)};
    if (!image.password.empty()) credentials.push_back(Credential::Password(image.password));
    if (!image.startupKeyPath.empty()) credentials.push_back(Credential::StartupKeyFile(image.startupKeyPath));
    for (const auto& credential : credentials) {
      SCOPED_TRACE(CredentialKindName(credential.kind()));
      std::unique_ptr<CUnlockedVolume> unlocked;
      ASSERT_EQ(volume->Unlock(credential, &unlocked, &why), Status::kOk) << why;
      EXPECT_EQ(Digest(ReadWholeVolume(*unlocked)), image.decryptedSha256);
    }
  }
}

TEST(Images, CredentialsThatDoNotFitAreRefusedWithTheReason) {
  std::string why;
  const testimages::Image* xts = testimages::FindImage("bitlk-aes-xts-128", &why);
  const testimages::Image* smartCard = testimages::FindImage("bitlk-aes-xts-128-smart-card", &why);
  const testimages::Image* startupKey = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!xts || !smartCard || !startupKey) GTEST_SKIP() << why;
  // The last digit of the first group broken: no longer a multiple of 11.
  std::string badCheck = xts->recoveryPassword;
  badCheck[5] = badCheck[5] == '9' ? '0' : static_cast<char>(badCheck[5] + 1);
  std::string changedKey = ReadFile(startupKey->startupKeyPath);
  changedKey.back() ^= 0x01;  // the last byte of the 256-bit key
  const std::string changedPath = testimages::WriteScratchFile("changed.BEK", {changedKey.begin(), changedKey.end()});
  const struct {
    const testimages::Image* image;
    Credential credential;
    const char* reason;
  } refusals[] = {
      {xts, Credential::Password("not the password"), ""},
      {xts, Credential::ClearKey(), "no clear key protector"},
      {xts, Credential::RecoveryPassword(badCheck), "not a valid recovery password"},
      {xts, Credential::RecoveryPassword("000011-000022-000033-000044-000055-000066-000077-000088"), ""},
      {xts, Credential::StartupKeyFile(startupKey->startupKeyPath), ""},
      {smartCard, Credential::Password("anaconda"), "no password protector"},
      {startupKey, Credential::StartupKeyFile(changedPath), ""},
      {startupKey, Credential::StartupKeyFile(testimages::WriteScratchFile("text.BEK", std::vector<uint8_t>(200, 'x'))),
       "not a startup key file"},
      {startupKey, Credential::StartupKeyFile(testimages::ScratchFolder() + "/none.BEK"), ""},
  };
  for (const auto& refusal : refusals) {
    SCOPED_TRACE(refusal.image->name + ", " + CredentialKindName(refusal.credential.kind()) + ": " + refusal.reason);
    std::unique_ptr<CUnlockedVolume> unlocked;
    EXPECT_EQ(Unlock(CFileSource::Open(refusal.image->path), refusal.credential, &why, &unlocked),
              Status::kWrongCredential);
    EXPECT_FALSE(unlocked);
    EXPECT_NE(why.find(refusal.reason), std::string::npos) << why;
  }
}

// Reads of any size at any offset, the boot sectors and metadata included,
// agree with one read of the whole volume, for a CBC and an XTS volume read
// through a source that reads only whole 4096-byte blocks, as raw disk
// devices do; and that source's own reads agree with plain ones.
TEST(Images, ReadsAtAnyOffsetThroughWholeBlocksAgreeWithOneWholeRead) {
  ZQ_REQUIRE_IMAGES(images);
  for (const char* name : {"bitlk-aes-cbc-elephant-128", "bitlk-togo-aes-xts-128"}) {
    SCOPED_TRACE(name);
    const testimages::Image* image = testimages::FindImage(name, &imagesWhy);
    ASSERT_TRUE(image) << imagesWhy;
    std::shared_ptr<CFileSource> plain = CFileSource::Open(image->path), blocks = CFileSource::Open(image->path, 4096);
    std::unique_ptr<CUnlockedVolume> unlocked;
    ASSERT_EQ(Unlock(blocks, Credential::Password(image->password), &imagesWhy, &unlocked), Status::kOk) << imagesWhy;
    std::vector<uint8_t> whole(unlocked->Size()), raw(plain->Size()), piece;
    ASSERT_EQ(unlocked->Read(0, whole.data(), whole.size()), static_cast<ssize_t>(whole.size()));
    ASSERT_TRUE(plain->ReadAt(0, raw.data(), raw.size()));
    EXPECT_EQ(Digest(whole), image->decryptedSha256);

    std::mt19937_64 random(7);
    for (int i = 0; i < 300; ++i) {
      const uint64_t offset = i < 20 ? static_cast<uint64_t>(i) * 509 : random() % whole.size();
      const size_t length = 1 + random() % (i % 3 == 0 ? 3 * 1024 * 1024 : 5000);
      const size_t expected = std::min<uint64_t>(length, whole.size() - offset);
      piece.assign(length, 0xee);
      ASSERT_EQ(unlocked->Read(offset, piece.data(), length), static_cast<ssize_t>(expected));
      ASSERT_EQ(0, std::memcmp(piece.data(), whole.data() + offset, expected)) << "at " << offset << ", " << length;
      ASSERT_EQ(blocks->ReadAt(offset, piece.data(), length), expected == length);
      ASSERT_TRUE(expected < length || std::memcmp(piece.data(), raw.data() + offset, length) == 0) << "raw " << offset;
    }
    EXPECT_EQ(unlocked->Read(whole.size(), piece.data(), 1), 0);
    EXPECT_EQ(unlocked->Read(whole.size() + 4096, piece.data(), 1), 0);
  }
}

TEST(Images, AVolumeOnABlockDeviceReadsAsItsImage) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-cbc-elephant-128", &why);
  if (!image) GTEST_SKIP() << why;
  why = LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  LoopDevice loop(image->path, 0, true);
  ASSERT_TRUE(loop.valid());
  EXPECT_TRUE(CBitlockerVolume::IsBitlocker(loop.devicePath()));
  std::unique_ptr<CUnlockedVolume> unlocked;
  ASSERT_EQ(Unlock(CFileSource::Open(loop.devicePath()), Credential::Password(image->password), &why, &unlocked),
            Status::kOk) << why;
  EXPECT_EQ(Digest(ReadWholeVolume(*unlocked, 3 * 1024 * 1024 + 1536)), image->decryptedSha256);
}

}  // namespace
