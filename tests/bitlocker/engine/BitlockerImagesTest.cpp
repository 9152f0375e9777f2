// The engine against real volumes made by Windows: every image opens with
// every credential its manifest gives, reads back to the manifest's digest,
// and refuses what does not open it.
#include <gtest/gtest.h>

#include <cctype>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <set>

#include "CBitlockerVolume.h"
#include "SectorCipher.h"
#include "TestImages.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

const char* const kImageNames[] = {
    "bitlk-aes-cbc-128",          "bitlk-aes-cbc-elephant-128",   "bitlk-aes-xts-128",
    "bitlk-togo-aes-xts-128",     "bitlk-aes-xts-128-smart-card", "bitlk-aes-xts-128-startup-key",
};

std::unique_ptr<CBitlockerVolume> OpenOrFail(const std::string& path) {
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  Status status = CBitlockerVolume::Open(path, &volume, &why);
  EXPECT_EQ(status, Status::kOk) << why;
  return volume;
}

Status TryUnlock(const CBitlockerVolume& volume, const Credential& credential,
                 std::string* why = nullptr) {
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string ignored;
  Status status = volume.Unlock(credential, &unlocked, why ? why : &ignored);
  EXPECT_EQ(status == Status::kOk, unlocked != nullptr);
  return status;
}

std::vector<uint8_t> ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), {});
}

bool MethodMatchesCipher(uint16_t method, const std::string& cipher) {
  if (cipher == "aes-xts-plain64") return method == kAesXts128 || method == kAesXts256;
  if (cipher == "aes-cbc-elephant") return method == kAesCbc128Diffuser || method == kAesCbc256Diffuser;
  if (cipher == "aes-cbc-eboiv") return method == kAesCbc128 || method == kAesCbc256;
  return false;
}

class ImageTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ImageTest, EveryCredentialOpensTheVolumeAndReadsBackToTheManifestDigest) {
  std::string why;
  const testimages::Image* image = testimages::FindImage(GetParam(), &why);
  if (!image) GTEST_SKIP() << why;
  auto volume = OpenOrFail(image->path);
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->metadata().metadata.volumeId.ToString(), image->volumeGuid);
  EXPECT_TRUE(CBitlockerVolume::IsBitlocker(image->path));

  std::vector<Credential> credentials = {Credential::RecoveryPassword(image->recoveryPassword)};
  if (!image->password.empty()) credentials.push_back(Credential::Password(image->password));
  if (!image->startupKeyPath.empty()) {
    credentials.push_back(Credential::StartupKeyFile(image->startupKeyPath));
  }
  for (const auto& credential : credentials) {
    SCOPED_TRACE(CredentialKindName(credential.kind()));
    std::unique_ptr<CUnlockedVolume> unlocked;
    ASSERT_EQ(volume->Unlock(credential, &unlocked, &why), Status::kOk) << why;
    EXPECT_TRUE(MethodMatchesCipher(unlocked->method(), image->cipher))
        << EncryptionMethodName(unlocked->method()) << " for " << image->cipher;
    EXPECT_EQ(unlocked->Size(), volume->deviceSize());
    std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
    ASSERT_EQ(bytes.size(), unlocked->Size());
    EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image->decryptedSha256);
  }
}

TEST_P(ImageTest, CredentialsThatDoNotFitAreRefusedAsWrong) {
  std::string why;
  const testimages::Image* image = testimages::FindImage(GetParam(), &why);
  if (!image) GTEST_SKIP() << why;
  auto volume = OpenOrFail(image->path);
  ASSERT_TRUE(volume);

  EXPECT_EQ(TryUnlock(*volume, Credential::Password("not the password")), Status::kWrongCredential);
  EXPECT_EQ(TryUnlock(*volume, Credential::ClearKey(), &why), Status::kWrongCredential);
  EXPECT_NE(why.find("no clear key protector"), std::string::npos) << why;

  // The last digit of the first group broken: no longer a multiple of 11.
  std::string badCheck = image->recoveryPassword;
  badCheck[5] = badCheck[5] == '9' ? '0' : static_cast<char>(badCheck[5] + 1);
  EXPECT_EQ(TryUnlock(*volume, Credential::RecoveryPassword(badCheck), &why),
            Status::kWrongCredential);
  EXPECT_NE(why.find("not a valid recovery password"), std::string::npos) << why;

  // Valid digits, but not this volume's.
  EXPECT_EQ(TryUnlock(*volume, Credential::RecoveryPassword(
                                   "000011-000022-000033-000044-000055-000066-000077-000088")),
            Status::kWrongCredential);
}

INSTANTIATE_TEST_SUITE_P(AllImages, ImageTest, ::testing::ValuesIn(kImageNames),
                         [](const auto& info) {
                           std::string name = info.param;
                           for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

TEST(Images, TheManifestListsExactlyTheImagesTestedHere) {
  ZQ_REQUIRE_IMAGES(images);
  std::set<std::string> listed, tested(std::begin(kImageNames), std::end(kImageNames));
  for (const auto& image : *images) listed.insert(image.name);
  EXPECT_EQ(listed, tested);
}

TEST(Images, APasswordForAVolumeWithoutPasswordProtectorIsRefusedWithTheReason) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-smart-card", &why);
  if (!image) GTEST_SKIP() << why;
  auto volume = OpenOrFail(image->path);
  ASSERT_TRUE(volume);
  EXPECT_EQ(TryUnlock(*volume, Credential::Password("anaconda"), &why), Status::kWrongCredential);
  EXPECT_NE(why.find("no password protector"), std::string::npos) << why;
}

TEST(Images, AStartupKeyFileThatIsChangedOrForeignIsRefused) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!image) GTEST_SKIP() << why;
  auto volume = OpenOrFail(image->path);
  ASSERT_TRUE(volume);
  std::vector<uint8_t> key = ReadFile(image->startupKeyPath);
  ASSERT_GT(key.size(), 32u);

  std::vector<uint8_t> changed = key;
  changed[changed.size() - 1] ^= 0x01;  // the last byte of the 256-bit key
  EXPECT_EQ(TryUnlock(*volume, Credential::StartupKeyFile(
                                   testimages::WriteScratchFile("changed.BEK", changed))),
            Status::kWrongCredential);

  EXPECT_EQ(TryUnlock(*volume, Credential::StartupKeyFile(testimages::WriteScratchFile(
                                   "text.BEK", std::vector<uint8_t>(200, 'x'))),
                      &why),
            Status::kWrongCredential);
  EXPECT_NE(why.find("not a startup key file"), std::string::npos) << why;

  EXPECT_EQ(TryUnlock(*volume, Credential::StartupKeyFile(testimages::ScratchFolder() + "/none.BEK")),
            Status::kWrongCredential);

  // A startup key file given to a volume that has no startup key protector.
  const testimages::Image* other = testimages::FindImage("bitlk-aes-xts-128", &why);
  ASSERT_TRUE(other) << why;
  auto otherVolume = OpenOrFail(other->path);
  ASSERT_TRUE(otherVolume);
  EXPECT_EQ(TryUnlock(*otherVolume, Credential::StartupKeyFile(image->startupKeyPath)),
            Status::kWrongCredential);
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
      uint64_t offset = i < 20 ? static_cast<uint64_t>(i) * 509 : random() % whole.size();
      size_t length = 1 + random() % (i % 3 == 0 ? 3 * 1024 * 1024 : 5000);
      size_t expected = static_cast<size_t>(std::min<uint64_t>(length, whole.size() - offset));
      piece.assign(length, 0xee);
      ASSERT_EQ(unlocked->Read(offset, piece.data(), length), static_cast<ssize_t>(expected));
      ASSERT_EQ(0, std::memcmp(piece.data(), whole.data() + offset, expected))
          << "offset " << offset << " length " << length;
    }
    EXPECT_EQ(unlocked->Read(whole.size(), piece.data(), 1), 0);
    EXPECT_EQ(unlocked->Read(whole.size() + 4096, piece.data(), 1), 0);
  }
}

TEST(Images, PlainFilesAreNotBitlocker) {
  std::vector<uint8_t> zeros(1024 * 1024, 0);
  std::string zeroPath = testimages::WriteScratchFile("zeros.img", zeros);
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  EXPECT_EQ(CBitlockerVolume::Open(zeroPath, &volume, &why), Status::kNotBitlocker);
  EXPECT_FALSE(CBitlockerVolume::IsBitlocker(zeroPath));
  EXPECT_EQ(CBitlockerVolume::Open(testimages::WriteScratchFile("tiny.img", {1, 2, 3}), &volume, &why),
            Status::kNotBitlocker);
  EXPECT_EQ(CBitlockerVolume::Open(testimages::ScratchFolder() + "/missing.img", &volume, &why),
            Status::kIoError);
}

}  // namespace
