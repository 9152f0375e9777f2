// The engine against real volumes made by Windows: every image opens with
// every credential its manifest gives, reads back to the manifest's digest,
// and refuses what does not open it.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "CBitlockerVolume.h"
#include "FileContents.h"
#include "SectorCipher.h"
#include "TestImages.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

std::unique_ptr<CBitlockerVolume> OpenOrFail(const std::string& path) {
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  EXPECT_EQ(CBitlockerVolume::Open(path, &volume, &why), Status::kOk) << why;
  return volume;
}

bool MethodMatchesCipher(uint16_t method, const std::string& cipher) {
  if (cipher == "aes-xts-plain64") return method == kAesXts128 || method == kAesXts256;
  if (cipher == "aes-cbc-elephant") return method == kAesCbc128Diffuser || method == kAesCbc256Diffuser;
  if (cipher == "aes-cbc-eboiv") return method == kAesCbc128 || method == kAesCbc256;
  return false;
}

TEST(Images, EveryCredentialOpensTheVolumeAndReadsBackToTheManifestDigest) {
  ZQ_REQUIRE_IMAGES(images);
  for (const testimages::Image& image : *images) {
    SCOPED_TRACE(image.name);
    auto volume = OpenOrFail(image.path);
    ASSERT_TRUE(volume);
    EXPECT_EQ(volume->metadata().metadata.volumeId.ToString(), image.volumeGuid);
    EXPECT_TRUE(CBitlockerVolume::IsBitlocker(image.path));

    std::vector<Credential> credentials = {Credential::RecoveryPassword(image.recoveryPassword)};
    if (!image.password.empty()) credentials.push_back(Credential::Password(image.password));
    if (!image.startupKeyPath.empty()) credentials.push_back(Credential::StartupKeyFile(image.startupKeyPath));
    for (const auto& credential : credentials) {
      SCOPED_TRACE(CredentialKindName(credential.kind()));
      std::unique_ptr<CUnlockedVolume> unlocked;
      std::string why;
      ASSERT_EQ(volume->Unlock(credential, &unlocked, &why), Status::kOk) << why;
      EXPECT_TRUE(MethodMatchesCipher(unlocked->method(), image.cipher))
          << EncryptionMethodName(unlocked->method()) << " for " << image.cipher;
      EXPECT_EQ(unlocked->Size(), volume->deviceSize());
      const std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
      ASSERT_EQ(bytes.size(), unlocked->Size());
      EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image.decryptedSha256);
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
  ASSERT_GT(changedKey.size(), 32u);
  changedKey.back() ^= 0x01;  // the last byte of the 256-bit key
  const auto scratch = [](const char* name, const std::string& bytes) {
    return testimages::WriteScratchFile(name, {bytes.begin(), bytes.end()});
  };
  struct Refusal {
    const testimages::Image* image;
    Credential credential;
    Status status;
    const char* reason;
  };
  const Refusal refusals[] = {
      {xts, Credential::Password("not the password"), Status::kWrongCredential, ""},
      {xts, Credential::ClearKey(), Status::kWrongCredential, "no clear key protector"},
      {xts, Credential::RecoveryPassword(badCheck), Status::kWrongCredential, "not a valid recovery password"},
      {xts, Credential::RecoveryPassword("000011-000022-000033-000044-000055-000066-000077-000088"),
       Status::kWrongCredential, ""},
      {xts, Credential::StartupKeyFile(startupKey->startupKeyPath), Status::kWrongCredential, ""},
      {smartCard, Credential::Password("anaconda"), Status::kWrongCredential, "no password protector"},
      {startupKey, Credential::StartupKeyFile(scratch("changed.BEK", changedKey)), Status::kWrongCredential, ""},
      {startupKey, Credential::StartupKeyFile(scratch("text.BEK", std::string(200, 'x'))), Status::kWrongCredential,
       "not a startup key file"},
      {startupKey, Credential::StartupKeyFile(testimages::ScratchFolder() + "/none.BEK"), Status::kWrongCredential, ""},
  };
  for (const Refusal& refusal : refusals) {
    SCOPED_TRACE(refusal.image->name + ", " + CredentialKindName(refusal.credential.kind()) + ": " + refusal.reason);
    auto volume = OpenOrFail(refusal.image->path);
    ASSERT_TRUE(volume);
    std::unique_ptr<CUnlockedVolume> unlocked;
    EXPECT_EQ(volume->Unlock(refusal.credential, &unlocked, &why), refusal.status);
    EXPECT_FALSE(unlocked);
    EXPECT_NE(why.find(refusal.reason), std::string::npos) << why;
  }
}

// Reads of any size at any offset agree with one read of the whole volume,
// for a CBC and an XTS volume, including the boot sectors and metadata.
TEST(Images, ReadsAtAnyOffsetAgreeWithTheWholeVolume) {
  ZQ_REQUIRE_IMAGES(images);
  for (const char* name : {"bitlk-aes-cbc-elephant-128", "bitlk-togo-aes-xts-128"}) {
    SCOPED_TRACE(name);
    std::string why;
    const testimages::Image* image = testimages::FindImage(name, &why);
    ASSERT_TRUE(image) << why;
    auto volume = OpenOrFail(image->path);
    ASSERT_TRUE(volume);
    std::unique_ptr<CUnlockedVolume> unlocked;
    ASSERT_EQ(volume->Unlock(Credential::Password(image->password), &unlocked, &why), Status::kOk);
    std::vector<uint8_t> whole(unlocked->Size());
    ASSERT_EQ(unlocked->Read(0, whole.data(), whole.size()), static_cast<ssize_t>(whole.size()));

    std::mt19937_64 random(7);
    std::vector<uint8_t> piece;
    for (int i = 0; i < 300; ++i) {
      const uint64_t offset = i < 20 ? static_cast<uint64_t>(i) * 509 : random() % whole.size();
      const size_t length = 1 + random() % (i % 3 == 0 ? 3 * 1024 * 1024 : 5000);
      const size_t expected = static_cast<size_t>(std::min<uint64_t>(length, whole.size() - offset));
      piece.assign(length, 0xee);
      ASSERT_EQ(unlocked->Read(offset, piece.data(), length), static_cast<ssize_t>(expected));
      ASSERT_EQ(0, std::memcmp(piece.data(), whole.data() + offset, expected))
          << "offset " << offset << " length " << length;
    }
    EXPECT_EQ(unlocked->Read(whole.size(), piece.data(), 1), 0);
    EXPECT_EQ(unlocked->Read(whole.size() + 4096, piece.data(), 1), 0);
  }
}

}  // namespace
