// The encrypt-on-write volume of ../shared/bitlocker-eow.tar.xz: detected,
// opened with each credential, and refused once its conversion fields say
// what the engine must not read; and every shared volume's metadata held
// against cryptsetup's, an independent parser.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <sstream>

#include "Bytes.h"
#include "CBitlockerVolume.h"
#include "CFileSource.h"
#include "CPatchedSource.h"
#include "KeyProtector.h"
#include "TestImages.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

constexpr uint64_t kSector = 512;
// Where the shared volume keeps its metadata copies and its boot sectors.
constexpr uint64_t kCopies[] = {0x2195000, 0x2c1d000, 0x373a000};
constexpr uint64_t kStoredCopy = 0x21a5000;

std::vector<uint8_t> Le64(uint64_t value) {
  std::vector<uint8_t> bytes(8);
  StoreLe64(value, bytes.data());
  return bytes;
}

TEST(EncryptOnWrite, OpensWithEachCredentialToAnNtfsVolumeOfItsSize) {
  std::string why;
  const testimages::Image* image = testimages::EncryptOnWriteImage(&why);
  if (!image) GTEST_SKIP() << why;
  EXPECT_TRUE(CBitlockerVolume::IsBitlocker(image->path));
  std::unique_ptr<CBitlockerVolume> volume;
  std::string firstDigest;
  ASSERT_EQ(CBitlockerVolume::Open(image->path, &volume, &why), Status::kOk) << why;
  EXPECT_EQ(volume->header().identifier, HeaderIdentifier::kEncryptOnWrite);
  std::vector<uint8_t> raw(volume->deviceSize());
  ASSERT_TRUE(CFileSource::Open(image->path)->ReadAt(0, raw.data(), raw.size()));

  for (const Credential& credential : {Credential::Password(image->password),
                                       Credential::RecoveryPassword(image->recoveryPassword)}) {
    std::unique_ptr<CUnlockedVolume> unlocked;
    ASSERT_EQ(volume->Unlock(credential, &unlocked, &why), Status::kOk) << why;
    std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
    ASSERT_EQ(bytes.size(), raw.size());
    // NTFS keeps the volume's last sector for its backup boot sector.
    EXPECT_EQ(std::memcmp(bytes.data() + 3, "NTFS    ", 8), 0);
    EXPECT_EQ(LoadLe64(bytes.data() + 40) + 1, bytes.size() / LoadLe16(bytes.data() + 11));
    EXPECT_EQ(LoadLe16(bytes.data() + 510), 0xaa55);
    // Up to the first metadata copy nothing is hidden: every sector is decrypted.
    size_t passedThrough = 0;
    for (uint64_t at = unlocked->layout().storedHeader().length; at < kCopies[0]; at += kSector) {
      passedThrough += std::memcmp(bytes.data() + at, raw.data() + at, kSector) == 0;
    }
    EXPECT_EQ(passedThrough, 0u) << "sectors shown as they lie instead of decrypted";
    std::string digest = testimages::Sha256Hex(bytes.data(), bytes.size());
    if (firstDigest.empty()) firstDigest = digest;
    EXPECT_EQ(digest, firstDigest);
  }
}

struct Refusal {
  const char* reason;  // a phrase of the refusal
  uint64_t at;         // a device byte to change, or 0
  uint8_t byte;
  uint64_t field;  // a block header field of every metadata copy to change, or 0
  std::vector<uint8_t> value;
};

TEST(EncryptOnWrite, RefusesWhatItCannotReadWithTheReason) {
  std::string why;
  const testimages::Image* image = testimages::EncryptOnWriteImage(&why);
  if (!image) GTEST_SKIP() << why;
  std::shared_ptr<const IByteSource> file = CFileSource::Open(image->path);
  const uint64_t size = file->Size();
  const Refusal refusals[] = {
      {"identifier 92a84d3c", 160, 0x3c, 0, {}},
      {"beyond the volume", 0, 0, 16, Le64(size + kSector)},
      {"whole number", 0, 0, 16, Le64(size - 100)},
      {"unknown conversion state 9", 0, 0, 12, {9, 0}},
      {"unknown next conversion state 0", 0, 0, 14, {0, 0}},
      {"conversion state 3 (encrypt-on-write", 0, 0, 12, {3, 0}},
      {"says decrypted", 0, 0, 12, {kStateDecrypted, 0}},
      {"says encrypted", 0, 0, 16, Le64(0)},
      {"part way", 0, 0, 12, {kStatePaused, 0}},
      {"not in the clear", kStoredCopy + 511, 0, 0, {}},
  };
  for (const Refusal& refusal : refusals) {
    auto source = std::make_shared<CPatchedSource>(file);
    if (refusal.at != 0) source->Patch(refusal.at, {refusal.byte});
    for (uint64_t copy : kCopies) source->Patch(copy + refusal.field, refusal.value);
    std::unique_ptr<CBitlockerVolume> volume;
    std::unique_ptr<CUnlockedVolume> unlocked;
    std::string why;
    Status status = CBitlockerVolume::Open(source, &volume, &why);
    if (status == Status::kOk) {
      status = volume->Unlock(Credential::Password(image->password), &unlocked, &why);
    }
    EXPECT_EQ(status, Status::kUnsupported) << refusal.reason;
    EXPECT_NE(why.find(refusal.reason), std::string::npos) << why;
  }
}

// cryptsetup's names for the methods (key bits count the diffuser's key)
// and for the protectors.
const std::map<uint16_t, std::string> kCryptsetupCiphers = {
    {0x8000, "cbc-elephant\nCipher key: 256 bits"},
    {0x8002, "cbc-eboiv\nCipher key: 128 bits"},
    {0x8004, "xts-plain64\nCipher key: 256 bits"}};
const std::map<uint16_t, std::string> kCryptsetupProtections = {
    {kProtectionPassword, "passphrase"},
    {kProtectionRecoveryPassword, "recovery passphrase"},
    {kProtectionStartupKey, "startup key"},
    {kProtectionSmartCard, "smart card"}};

TEST(EncryptOnWrite, CryptsetupReadsEverySharedVolumesMetadataAsTheEngineDoes) {
  ZQ_REQUIRE_IMAGES(images);
  if (std::system("PATH=$PATH:/usr/sbin:/sbin command -v cryptsetup >/dev/null") != 0) {
    GTEST_SKIP() << "no cryptsetup (scripts/install-deps.sh installs it)";
  }
  std::vector<testimages::Image> all = *images;
  if (const testimages::Image* eow = testimages::EncryptOnWriteImage(&imagesWhy)) all.push_back(*eow);
  for (const auto& image : all) {
    SCOPED_TRACE(image.name);
    std::string dump, why;
    FILE* pipe = ::popen(
        ("PATH=$PATH:/usr/sbin:/sbin cryptsetup bitlkDump '" + image.path + "'").c_str(), "r");
    ASSERT_TRUE(pipe);
    for (int c; (c = std::fgetc(pipe)) != EOF;) {  // with each run of blanks as one space
      if (c == '\t') c = ' ';
      if (c != ' ' || dump.empty() || dump.back() != ' ') dump += static_cast<char>(c);
    }
    ASSERT_EQ(::pclose(pipe), 0);

    std::unique_ptr<CBitlockerVolume> volume;
    std::unique_ptr<CUnlockedVolume> unlocked;
    ASSERT_EQ(CBitlockerVolume::Open(image.path, &volume, &why), Status::kOk) << why;
    ASSERT_EQ(volume->Unlock(Credential::RecoveryPassword(image.recoveryPassword), &unlocked, &why),
              Status::kOk);
    const FveMetadataBlock& block = volume->metadata();
    std::string expected =
        "Version: " + std::to_string(block.version) +
        "\nGUID: " + block.metadata.volumeId.ToString() +
        "\nSector size: " + std::to_string(volume->header().bytesPerSector) +
        " [bytes]\nVolume size: " + std::to_string(block.encryptedSize) +
        " [bytes]\nCipher mode: " + kCryptsetupCiphers.at(block.metadata.encryptionMethod) + "\n";
    for (const auto& protector : ListKeyProtectors(block.metadata)) {
      expected += "GUID: " + protector.id.ToString() + "\nProtection: VMK protected with " +
                  kCryptsetupProtections.at(protector.protection) + "\n";
    }
    for (uint64_t offset : volume->header().metadataOffsets) {
      expected += " FVE metadata area\n Offset: " + std::to_string(offset) + " [bytes]\n";
    }
    const Extent& stored = unlocked->layout().storedHeader();
    expected += " Volume header\n Offset: " + std::to_string(stored.offset) +
                " [bytes]\n Size: " + std::to_string(stored.length) + " [bytes]\n";
    // In cryptsetup's order, each line after the one before.
    std::istringstream lines(expected);
    size_t from = 0;
    for (std::string line; std::getline(lines, line);) {
      from = dump.find(line, from);
      ASSERT_NE(from, std::string::npos) << "cryptsetup does not say \"" << line << "\" there:\n"
                                         << dump;
    }
  }
}

}  // namespace
