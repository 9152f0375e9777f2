// The engine against real volumes made by Windows: every image opens with
// every credential its manifest gives and reads back to the manifest's
// digest, refuses what does not open it, and reads alike in pieces of any
// size and through whole blocks.  Then volumes changed by overlaying bytes
// on the images, each copy sealed again (its CRC-32 and wrapped SHA-256)
// as a writer holding the master key would: a clear key protector added,
// metadata copies damaged, changes made without the key refused by their
// validation, encryption left part way, and the encrypt-on-write volume of
// ../shared/bitlocker-eow.tar.xz, opened and then refused once its fields
// say what the engine must not read.  Last, writes, on sparse copies of the
// images: every byte written back as it reads gives the image again, byte
// for byte, so the engine encrypts as Windows does, for every cipher and
// layout; writes of any size land where reads find them, never on
// BitLocker's own sectors; writers of one sector keep each other's bytes.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <map>
#include <random>
#include <sstream>
#include <thread>

#include "engine/Bytes.h"
#include "engine/CBitlockerVolume.h"
#include "engine/CFileSource.h"
#include "engine/KeyProtector.h"
#include "engine/MetadataValidation.h"
#include "engine/SectorCipher.h"
#include "engine/Unlock.h"
#include "system/TaskWrapper.h"
#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestImages.h"

using namespace bitlocker;

namespace {

using Bytes = std::vector<uint8_t>;

// Opens and unlocks the volume on `source`: kOk, or the first failure with
// the reason in *why.
Status OpenAndUnlock(std::shared_ptr<const IByteSource> source, const Credential& credential, std::string* why,
                     std::unique_ptr<CUnlockedVolume>* unlocked, Access access = Access::kReadOnly) {
  std::unique_ptr<CBitlockerVolume> volume;
  const Status status = CBitlockerVolume::Open(std::move(source), &volume, why, access);
  return status != Status::kOk ? status : volume->Unlock(credential, unlocked, why);
}

// The whole volume in one read, or nothing.
Bytes ReadWholeVolume(IVolume& volume) {
  Bytes bytes(volume.Size());
  return volume.Read(0, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) ? bytes : Bytes();
}

std::string Digest(const Bytes& bytes) { return testimages::Sha256Hex(bytes.data(), bytes.size()); }

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
      {smartCard, Credential::Password("anaconda"), "no password protector"},
      {startupKey, Credential::StartupKeyFile(changedPath), ""},
      {startupKey, Credential::StartupKeyFile(testimages::WriteScratchFile("text.BEK", std::vector<uint8_t>(200, 'x'))),
       "not a startup key file"},
      {startupKey, Credential::StartupKeyFile(testimages::ScratchFolder() + "/none.BEK"), ""},
  };
  for (const auto& refusal : refusals) {
    SCOPED_TRACE(refusal.image->name + ", " + CredentialKindName(refusal.credential.kind()) + ": " + refusal.reason);
    std::unique_ptr<CUnlockedVolume> unlocked;
    EXPECT_EQ(OpenAndUnlock(CFileSource::Open(refusal.image->path), refusal.credential, &why, &unlocked),
              Status::kWrongCredential);
    EXPECT_NE(why.find(refusal.reason), std::string::npos) << why;
  }
}

// Every image opens with every credential its manifest gives and reads
// back to the manifest's digest, through a source that reads only whole
// 4096-byte blocks, as raw disk devices do.  Reads of any size at any
// offset, the boot sectors and metadata included, agree with one read of
// the whole volume, and the block source's own reads with plain ones.
TEST(Images, EveryCredentialReadsBackToTheManifestDigestAndReadsAgreeAtAnyOffset) {
  ZQ_REQUIRE_IMAGES(images);
  std::mt19937_64 random(7);
  for (const testimages::Image& image : *images) {
    SCOPED_TRACE(image.name);
    std::shared_ptr<CFileSource> plain = CFileSource::Open(image.path), blocks = CFileSource::Open(image.path, Access::kReadOnly, 4096);
    std::unique_ptr<CBitlockerVolume> volume;
    ASSERT_EQ(CBitlockerVolume::Open(blocks, &volume, &imagesWhy), Status::kOk) << imagesWhy;
    EXPECT_EQ(volume->metadata().metadata.volumeId.ToString(), image.volumeGuid);
    std::vector<Credential> credentials = {Credential::RecoveryPassword(image.recoveryPassword)};
    if (!image.password.empty()) credentials.push_back(Credential::Password(image.password));
    if (!image.startupKeyPath.empty()) credentials.push_back(Credential::StartupKeyFile(image.startupKeyPath));
    std::unique_ptr<CUnlockedVolume> unlocked;
    Bytes whole, raw(plain->Size()), piece;
    for (const auto& credential : credentials) {
      SCOPED_TRACE(CredentialKindName(credential.kind()));
      ASSERT_EQ(volume->Unlock(credential, &unlocked, &imagesWhy), Status::kOk) << imagesWhy;
      whole = ReadWholeVolume(*unlocked);
      EXPECT_EQ(Digest(whole), image.decryptedSha256);
    }
    ASSERT_EQ(whole.size(), raw.size());
    ASSERT_TRUE(plain->ReadAt(0, raw.data(), raw.size()));
    for (int i = 0; i < 100; ++i) {
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

// An image source with some of its bytes replaced.
class CPatchedSource : public IByteSource {
 public:
  explicit CPatchedSource(std::shared_ptr<const IByteSource> base) : base_(std::move(base)) {}
  void Patch(uint64_t offset, const Bytes& bytes) {
    for (size_t i = 0; i < bytes.size(); ++i) patches_[offset + i] = bytes[i];
  }
  uint64_t Size() const override { return base_->Size(); }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override {
    if (!base_->ReadAt(offset, buffer, length)) return false;
    for (auto it = patches_.lower_bound(offset); it != patches_.end() && it->first < offset + length; ++it) {
      static_cast<uint8_t*>(buffer)[it->first - offset] = it->second;
    }
    return true;
  }

 private:
  std::shared_ptr<const IByteSource> base_;
  std::map<uint64_t, uint8_t> patches_;
};

Bytes Le(uint64_t value, int size) {
  Bytes bytes(size);
  for (int i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(value >> (8 * i));
  return bytes;
}

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes joined;
  for (const auto& part : parts) joined.insert(joined.end(), part.begin(), part.end());
  return joined;
}

// A metadata entry: size, type, value type, version 1, value.
Bytes Entry(uint16_t type, uint16_t valueType, const Bytes& value) {
  return Join({Le(8 + value.size(), 2), Le(type, 2), Le(valueType, 2), Le(1, 2), value});
}

Bytes KeyEntry(const Bytes& key) { return Entry(0, 1, Join({Le(0x2000, 4), key})); }

// A real XTS image seen through a CPatchedSource; its metadata copies are
// found before any change.
class PatchedImageTest : public ::testing::Test {
 protected:
  void SetUp() override { Load(testimages::FindImage("bitlk-aes-xts-128", &why_)); }
  void Load(const testimages::Image* image) {
    if (!(image_ = image)) GTEST_SKIP() << why_;
    file_ = CFileSource::Open(image->path);
    Restore();
    ASSERT_EQ(CBitlockerVolume::Open(source_, &volume_, &why_), Status::kOk) << why_;
    offsets_ = volume_->header().metadataOffsets;
    auto key = OpenVolumeMasterKey(volume_->copies().blocks[0], Credential::RecoveryPassword(image->recoveryPassword));
    ASSERT_TRUE(key.has_value());
    volumeMasterKey_ = std::move(*key);
  }
  void Restore() { source_ = std::make_shared<CPatchedSource>(file_); }
  // Changes a field of every copy as a writer with the master key does.
  void PatchEveryCopy(uint64_t at, const Bytes& bytes) {
    for (uint64_t offset : offsets_) {
      source_->Patch(offset + at, bytes);
      Reseal(offset);
    }
  }
  // Seals the copy at `offset` again: its size in 16-byte units, then its
  // CRC-32 and its SHA-256 under the master key.
  void Reseal(uint64_t offset) {
    const size_t covered = (64 + LeAt(offset + 64, 4) + 15) / 16 * 16;
    source_->Patch(offset + 8, Le(covered / 16, 2));
    Bytes copy(covered + MetadataValidation::kSize);
    ASSERT_TRUE(source_->ReadAt(offset, copy.data(), copy.size()));
    const Bytes nonce(12, 0x17);
    ASSERT_TRUE(SealMetadataCopy(copy.data(), covered, volumeMasterKey_, nonce.data()));
    source_->Patch(offset, copy);
  }
  uint64_t LeAt(uint64_t at, size_t size) {
    uint8_t bytes[8] = {};
    source_->ReadAt(at, bytes, size);
    return LoadLe64(bytes);
  }
  // Opens the patched image afresh and unlocks it into unlocked_.
  Status Unlock(const Credential& credential, Access access = Access::kReadOnly) {
    unlocked_.reset();
    return OpenAndUnlock(source_, credential, &why_, &unlocked_, access);
  }
  // The whole unlocked volume, or nothing.
  Bytes ReadUnlocked(const Credential& credential) {
    EXPECT_EQ(Unlock(credential), Status::kOk) << why_;
    return unlocked_ ? ReadWholeVolume(*unlocked_) : Bytes();
  }

  const testimages::Image* image_ = nullptr;
  std::shared_ptr<const IByteSource> file_;
  std::shared_ptr<CPatchedSource> source_;
  std::unique_ptr<CBitlockerVolume> volume_;  // the image as it was
  std::unique_ptr<CUnlockedVolume> unlocked_;
  std::array<uint64_t, 3> offsets_{};
  CSecureBuffer volumeMasterKey_;
  std::string why_;
};

class StartupKeyImageTest : public PatchedImageTest {
 protected:
  void SetUp() override { Load(testimages::FindImage("bitlk-aes-xts-128-startup-key", &why_)); }
};

// A clear key protector made of the startup key protector's sealed volume
// master key and, in the clear, the key that opens it (the .BEK file's last
// 32 bytes); appended to the first metadata copy, whose size grows by its.
TEST_F(StartupKeyImageTest, AnAddedClearKeyProtectorOpensWithAnEmptyCredential) {
  EXPECT_EQ(Unlock(Credential::ClearKey()), Status::kWrongCredential);
  const std::string file = ReadFile(image_->startupKeyPath);
  Bytes value = Join({Bytes(16, 0x5a), Bytes(10, 0), Le(kProtectionClearKey, 2), KeyEntry(Bytes(file.end() - 32, file.end()))});
  for (const auto& protector : ListKeyProtectors(volume_->metadata().metadata)) {
    for (const MetadataEntry& sealed : protector.properties) {
      if (protector.protection != kProtectionStartupKey || sealed.valueType != 5) continue;
      value = Join({value, Entry(sealed.type, 5, Bytes(sealed.value.data(), sealed.value.data() + sealed.value.size()))});
    }
  }
  const Bytes entry = Entry(2, 8, value);
  const uint64_t size = LeAt(offsets_[0] + 64, 4);
  source_->Patch(offsets_[0] + 64 + size, entry);
  source_->Patch(offsets_[0] + 64, Le(size + entry.size(), 4));
  Reseal(offsets_[0]);
  EXPECT_EQ(Digest(ReadUnlocked(Credential::ClearKey())), image_->decryptedSha256);
  EXPECT_EQ(Digest(ReadUnlocked(Credential::FromText(""))), image_->decryptedSha256);
}

TEST_F(PatchedImageTest, ADamagedMetadataCopyGivesWayToTheNext) {
  source_->Patch(offsets_[0], {'X'});  // the first copy's signature
  std::unique_ptr<CBitlockerVolume> volume;
  ASSERT_EQ(CBitlockerVolume::Open(source_, &volume, &why_), Status::kOk) << why_;
  EXPECT_EQ(volume->copies().blocks.size(), 2u);
  EXPECT_EQ(Digest(ReadUnlocked(Credential::Password(image_->password))), image_->decryptedSha256);

  // The full volume key of the first two copies damaged: the third's is used.
  Restore();
  for (int copy = 0; copy < 2; ++copy) {
    uint64_t entry = offsets_[copy] + 64 + 48;
    const uint64_t end = offsets_[copy] + 64 + LeAt(offsets_[copy] + 64, 4);
    while (LeAt(entry + 2, 2) != 0x0003 && entry < end) entry += LeAt(entry, 2);
    ASSERT_EQ(LeAt(entry + 2, 2), 0x0003u) << "no full volume key in copy " << copy;
    const uint64_t key = entry + 8 + 12 + 16;
    source_->Patch(key, {static_cast<uint8_t>(LeAt(key, 1) ^ 0x40)});
    Reseal(offsets_[copy]);
  }
  EXPECT_EQ(Digest(ReadUnlocked(Credential::RecoveryPassword(image_->recoveryPassword))), image_->decryptedSha256);
}

// A change made without the master key shows in the CRC-32; one that also
// mends the CRC-32 shows in the SHA-256 once a credential opens the key.  A
// copy that fails either gives way to one that holds.
TEST_F(PatchedImageTest, RefusesMetadataWhoseValidationIsWrong) {
  const uint64_t creationTime = 64 + 40;  // a field nothing else reads
  auto tamper = [&](uint64_t offset, bool mendCrc) {
    source_->Patch(offset + creationTime, {static_cast<uint8_t>(LeAt(offset + creationTime, 1) ^ 1)});
    if (!mendCrc) return;
    const size_t covered = LeAt(offset + 8, 2) * 16;
    Bytes copy(covered);
    ASSERT_TRUE(source_->ReadAt(offset, copy.data(), covered));
    source_->Patch(offset + covered + 4, Le(Crc32(copy.data(), covered), 4));
  };
  const Credential password = Credential::Password(image_->password);
  for (uint64_t offset : offsets_) tamper(offset, false);
  EXPECT_EQ(Unlock(password), Status::kUnsupported);
  for (int copy = 1; copy <= 3; ++copy)
    EXPECT_NE(why_.find("metadata copy " + std::to_string(copy) + " at 0x" ), std::string::npos) << why_;
  EXPECT_NE(why_.find("its CRC-32 validation is wrong"), std::string::npos) << why_;

  Restore();
  for (uint64_t offset : offsets_) tamper(offset, true);
  EXPECT_EQ(Unlock(password), Status::kUnsupported);
  EXPECT_NE(why_.find("SHA-256 validation is wrong"), std::string::npos) << why_;
  EXPECT_EQ(Unlock(Credential::RecoveryPassword("111111-111111-111111-111111-111111-111111-111111-111111")),
            Status::kWrongCredential);

  Restore();
  tamper(offsets_[0], true);
  tamper(offsets_[1], false);
  EXPECT_EQ(Digest(ReadUnlocked(password)), image_->decryptedSha256);
}

TEST_F(PatchedImageTest, APartlyEncryptedVolumeShowsItsPlainPartAsItIs) {
  Bytes raw(source_->Size());
  ASSERT_TRUE(source_->ReadAt(0, raw.data(), raw.size()));
  const Bytes full = ReadUnlocked(Credential::Password(image_->password));
  const uint64_t encrypted = 40 * 1024 * 1024 + 512;
  PatchEveryCopy(12, {2, 0});  // converting
  PatchEveryCopy(16, Le(encrypted, 8));
  ASSERT_EQ(Unlock(Credential::Password(image_->password), Access::kReadWrite), Status::kOk) << why_;
  EXPECT_STREQ(unlocked_->ReadOnlyReason(), "partially encrypted volume");
  errno = 0;
  EXPECT_EQ(unlocked_->Write(0, raw.data(), 512), -1);
  EXPECT_EQ(errno, EROFS);
  const Bytes partial = ReadWholeVolume(*unlocked_);
  ASSERT_EQ(partial.size(), full.size());
  EXPECT_EQ(0, std::memcmp(partial.data(), full.data(), encrypted));
  size_t plainSectors = 0;
  for (uint64_t at = encrypted; at < partial.size(); at += 512) {
    bool hidden = false;
    for (const Extent& extent : unlocked_->layout().hidden()) hidden |= at >= extent.offset && at < extent.end();
    ASSERT_EQ(0, std::memcmp(partial.data() + at, (hidden ? full.data() : raw.data()) + at, 512)) << "sector " << at;
    plainSectors += hidden ? 0 : 1;
  }
  EXPECT_GT(plainSectors, 100000u);
}

class EncryptOnWriteTest : public PatchedImageTest {
 protected:
  void SetUp() override { Load(testimages::EncryptOnWriteImage(&why_)); }
};

// It opens with each credential to the same NTFS volume of its size.  A
// volume that began as an ordinary one keeps its stored boot sectors
// encrypted; it reads the same.
TEST_F(EncryptOnWriteTest, OpensWithEachCredentialWithItsStoredBootSectorsInTheClearOrEncrypted) {
  Bytes raw(source_->Size());
  ASSERT_TRUE(source_->ReadAt(0, raw.data(), raw.size()));
  const Credential password = Credential::Password(image_->password);
  const Bytes bytes = ReadUnlocked(password);
  ASSERT_EQ(bytes.size(), raw.size());
  const Extent stored = unlocked_->layout().storedHeader();
  const uint32_t sectorSize = unlocked_->layout().sectorSize();
  EXPECT_TRUE(bytes == ReadUnlocked(Credential::RecoveryPassword(image_->recoveryPassword)));
  // NTFS keeps the volume's last sector for its backup boot sector.
  EXPECT_EQ(std::memcmp(bytes.data() + 3, "NTFS    ", 8), 0);
  EXPECT_EQ(LoadLe64(bytes.data() + 40) + 1, bytes.size() / LoadLe16(bytes.data() + 11));
  // Up to the first metadata copy nothing is hidden: every sector is decrypted.
  for (uint64_t at = stored.length; at < offsets_[0]; at += 512) {
    ASSERT_NE(std::memcmp(bytes.data() + at, raw.data() + at, 512), 0) << "sector " << at << " shown as it lies";
  }
  UnwrappedKey key;
  size_t copy = 0;
  ASSERT_EQ(UnlockFullVolumeKey(volume_->copies().blocks, password, &key, &copy, &why_), Status::kOk) << why_;
  Bytes sectors(bytes.begin(), bytes.begin() + stored.length);
  ASSERT_TRUE(MakeSectorCipher(key.method, key.key, sectorSize)->Encrypt(stored.offset, sectors.data(), stored.length / sectorSize));
  source_->Patch(stored.offset, sectors);
  EXPECT_TRUE(ReadUnlocked(password) == bytes);
  EXPECT_FALSE(unlocked_->layout().storedHeaderInClear());
}

// Complete, it may be written; part way, with no record of where
// encrypt-on-write put sectors (which it would refuse), only read.
TEST_F(EncryptOnWriteTest, MayBeWrittenOnlyOnceComplete) {
  ASSERT_EQ(Unlock(Credential::Password(image_->password), Access::kReadWrite), Status::kOk) << why_;
  EXPECT_EQ(unlocked_->ReadOnlyReason(), nullptr);
  source_->Patch(200, Bytes(16, 0));  // the header's encrypt-on-write information offsets
  PatchEveryCopy(12, {kStatePaused, 0});
  ASSERT_EQ(Unlock(Credential::Password(image_->password), Access::kReadWrite), Status::kOk) << why_;
  EXPECT_STREQ(unlocked_->ReadOnlyReason(), "encrypt-on-write volume not fully written");
}

TEST_F(EncryptOnWriteTest, RefusesWhatItCannotReadWithTheReason) {
  const uint64_t size = source_->Size(), storedCopy = 0x21a5000;  // where the boot sectors are kept
  const struct {
    const char* reason;  // a phrase of the refusal
    uint64_t at;         // a field of every metadata copy, or a device byte
    Bytes bytes;
    bool everyCopy;
  } refusals[] = {
      {"identifier 92a84d3c", 160, {0x3c}, false},
      {"neither in the clear nor decrypted", storedCopy + 511, {0}, false},
      {"metadata copy 3", 10, {9, 0}, true},  // an unknown version in every copy
      {"unknown conversion state 9", 12, {9, 0}, true},
      {"conversion state 3 (encrypt-on-write", 12, {3, 0}, true},
      {"says decrypted", 12, {kStateDecrypted, 0}, true},
      {"part way", 12, {kStatePaused, 0}, true},
      {"unknown next conversion state 0", 14, {0, 0}, true},
      {"beyond the volume", 16, Le(size + 512, 8), true},
      {"whole number", 16, Le(size - 100, 8), true},
      {"says encrypted", 16, Le(0, 8), true},
  };
  for (const auto& refusal : refusals) {
    Restore();
    refusal.everyCopy ? PatchEveryCopy(refusal.at, refusal.bytes) : source_->Patch(refusal.at, refusal.bytes);
    EXPECT_EQ(Unlock(Credential::Password(image_->password)), Status::kUnsupported) << refusal.reason;
    EXPECT_NE(why_.find(refusal.reason), std::string::npos) << why_;
  }
}

// cryptsetup is an independent parser: what it reads of each volume's
// header and metadata must be what the engine reads, in its order.
TEST(Images, CryptsetupReadsEveryVolumesMetadataAsTheEngineDoes) {
  ZQ_REQUIRE_IMAGES(images);
  std::vector<testimages::Image> all = *images;
  if (const testimages::Image* eow = testimages::EncryptOnWriteImage(&imagesWhy)) all.push_back(*eow);
  const std::map<uint16_t, std::string> ciphers = {{0x8000, "cbc-elephant\nCipher key: 256"},
                                                   {0x8002, "cbc-eboiv\nCipher key: 128"},
                                                   {0x8004, "xts-plain64\nCipher key: 256"}};
  const std::map<uint16_t, std::string> protections = {{kProtectionPassword, "passphrase"},
                                                       {kProtectionRecoveryPassword, "recovery passphrase"},
                                                       {kProtectionStartupKey, "startup key"},
                                                       {kProtectionSmartCard, "smart card"}};
  for (const auto& image : all) {
    SCOPED_TRACE(image.name);
    const TaskWrapper run = TaskWrapper::runScript("PATH=$PATH:/usr/sbin:/sbin cryptsetup bitlkDump '" + image.path +
                                                   "' | tr -s ' \t' ' '");
    const std::string dump = run.response().value_or("");
    if (dump.empty()) GTEST_SKIP() << "no cryptsetup (scripts/install-deps.sh installs it)";
    std::unique_ptr<CBitlockerVolume> volume;
    std::unique_ptr<CUnlockedVolume> unlocked;
    std::string why;
    ASSERT_EQ(CBitlockerVolume::Open(image.path, &volume, &why), Status::kOk) << why;
    ASSERT_EQ(volume->Unlock(Credential::RecoveryPassword(image.recoveryPassword), &unlocked, &why), Status::kOk);
    const FveMetadataBlock& block = volume->metadata();
    std::string expected = "Version: " + std::to_string(block.version) + "\nGUID: " +
                           block.metadata.volumeId.ToString() + "\nSector size: " +
                           std::to_string(volume->header().bytesPerSector) + " [bytes]\nVolume size: " +
                           std::to_string(block.encryptedSize) + " [bytes]\nCipher mode: " +
                           ciphers.at(block.metadata.encryptionMethod) + "\n";
    for (const auto& protector : ListKeyProtectors(block.metadata))
      expected += "GUID: " + protector.id.ToString() + "\nProtection: VMK protected with " +
                  protections.at(protector.protection) + "\n";
    for (uint64_t offset : volume->header().metadataOffsets)
      expected += " FVE metadata area\n Offset: " + std::to_string(offset) + " [bytes]\n";
    const Extent& stored = unlocked->layout().storedHeader();
    expected += " Volume header\n Offset: " + std::to_string(stored.offset) + " [bytes]\n Size: " +
                std::to_string(stored.length) + " [bytes]\n";
    std::istringstream lines(expected);
    size_t from = 0;
    for (std::string line; std::getline(lines, line);) {
      from = dump.find(line, from);
      ASSERT_NE(from, std::string::npos) << "cryptsetup does not say \"" << line << "\" there:\n" << dump;
    }
  }
}

std::string CopyImage(const testimages::Image& image, const TempDir& dir) {
  const std::string copy = dir("copy.img");
  EXPECT_EQ(RunShell("cp --sparse=always '" + image.path + "' '" + copy + "'"), 0);
  return copy;
}

std::unique_ptr<CUnlockedVolume> Unlock(const std::string& path, const Credential& credential,
                                        Access access = Access::kReadWrite) {
  std::unique_ptr<CBitlockerVolume> volume;
  std::unique_ptr<CUnlockedVolume> unlocked;
  std::string why;
  EXPECT_EQ(CBitlockerVolume::Open(path, &volume, &why, access), Status::kOk) << why;
  if (volume) {
    EXPECT_EQ(volume->Unlock(credential, &unlocked, &why), Status::kOk) << why;
  }
  return unlocked;
}

// Each writable run's place on the device is emptied (a hole reads as
// zeros), then the run is written back with what the volume read there
// before: the copy must be the image again, ciphertext, stored boot sectors
// and all, while the runs that may not be written are BitLocker's
// metadata and the stored boot sectors at their own place.
TEST(WritesToImages, WritingBackWhatIsReadGivesTheImageByteForByte) {
  ZQ_REQUIRE_IMAGES(images);
  std::vector<testimages::Image> all = *images;
  if (const auto* eow = testimages::EncryptOnWriteImage(&imagesWhy)) all.push_back(*eow);
  for (const auto& image : all) {
    SCOPED_TRACE(image.name);
    const TempDir dir;
    const std::string copy = CopyImage(image, dir);
    auto volume = Unlock(copy, Credential::RecoveryPassword(image.recoveryPassword));
    ASSERT_TRUE(volume);
    ASSERT_EQ(volume->ReadOnlyReason(), nullptr) << volume->ReadOnlyReason();
    const Bytes plain = ReadWholeVolume(*volume);
    const VolumeLayout& layout = volume->layout();
    std::vector<Extent> writable;
    uint64_t refused = 0;
    const int fd = ::open(copy.c_str(), O_RDWR);
    for (uint64_t at = 0; at < layout.size();) {
      const LayoutRun run = layout.RunAt(at, layout.size() - at);
      ASSERT_GT(run.length, 0u);
      if (run.writable()) {
        writable.push_back({at, run.length});
        ASSERT_EQ(::fallocate(fd, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, static_cast<off_t>(run.sourceOffset),
                              static_cast<off_t>(run.length)), 0);
      } else {
        refused += run.length;
      }
      at += run.length;
    }
    ::close(fd);
    for (const Extent& run : writable) {
      ASSERT_EQ(volume->Write(run.offset, plain.data() + run.offset, run.length), static_cast<ssize_t>(run.length));
    }
    EXPECT_EQ(volume->Flush(), 0);
    EXPECT_EQ(RunShell("cmp '" + copy + "' '" + image.path + "'"), 0);
    EXPECT_LE(refused, 3 * 64 * 1024 + layout.storedHeader().length);
  }
}

// A writable copy of the XTS image, unlocked.
class WritableCopyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!(image_ = testimages::FindImage("bitlk-aes-xts-128", &why_))) GTEST_SKIP() << why_;
    copy_ = CopyImage(*image_, dir_);
    ASSERT_TRUE(volume_ = Unlock(copy_, Credential::Password(image_->password)));
  }

  const testimages::Image* image_ = nullptr;
  std::string why_, copy_;
  const TempDir dir_;
  std::unique_ptr<CUnlockedVolume> volume_;
};

// Random writes of any length at any offset, one of them larger than a
// write chunk, read back as their mirror in memory, also once the volume is
// opened again with each credential; writes that touch BitLocker's own
// sectors fail with EIO and leave the device as it was.
TEST_F(WritableCopyTest, WritesOfAnySizeReadBackAndNeverTouchBitlockersOwnSectors) {
  Bytes mirror = ReadWholeVolume(*volume_), data;
  const uint64_t size = mirror.size(), metadata = volume_->layout().hidden()[0].offset;
  std::mt19937_64 random(11);
  for (int i = 0; i < 60; ++i) {
    const uint64_t offset = i == 0 ? 3 * 1024 * 1024 + 77 : 0x100000 + random() % (metadata - 0x200000);
    const size_t length = i == 0 ? 5 * 1024 * 1024 + 300 : 1 + random() % (i % 2 ? 700 : 70000);
    data.resize(length);
    for (auto& byte : data) byte = static_cast<uint8_t>(random());
    ASSERT_EQ(volume_->Write(offset, data.data(), length), static_cast<ssize_t>(length)) << offset;
    std::copy(data.begin(), data.end(), mirror.begin() + offset);
  }
  EXPECT_EQ(volume_->Write(size - 100, data.data(), 1000), 100);
  std::copy(data.begin(), data.begin() + 100, mirror.end() - 100);
  EXPECT_EQ(volume_->Write(size, data.data(), 10), 0);

  const std::string before = ReadFile(copy_);
  const uint64_t stored = volume_->layout().storedHeader().offset;
  for (const auto& [offset, length] : {std::pair<uint64_t, size_t>{metadata, 1}, {metadata - 512, 513},
                                       {metadata - 100, 200000}, {stored + 600, 10}}) {
    errno = 0;
    EXPECT_EQ(volume_->Write(offset, data.data(), length), -1) << offset;
    EXPECT_EQ(errno, EIO);
  }
  EXPECT_TRUE(ReadFile(copy_) == before) << "a refused write changed the device";
  volume_.reset();
  for (const auto& credential : {Credential::Password(image_->password), Credential::RecoveryPassword(image_->recoveryPassword)}) {
    auto reopened = Unlock(copy_, credential, Access::kReadOnly);
    EXPECT_TRUE(reopened && ReadWholeVolume(*reopened) == mirror);
  }
}

// Threads start together and write single bytes of the same sectors, each
// its own bytes, long enough to be preempted part way: every sector is read,
// changed and written whole, so without the lock on it writers would put
// back bytes others had just changed.
TEST_F(WritableCopyTest, ConcurrentWritersOfOneSectorKeepEachOthersBytes) {
  constexpr uint64_t kOffset = 50 * 1024 * 1024 + 256;
  constexpr unsigned kThreads = 4, kBytes = 32768;
  std::atomic<unsigned> ready{0};
  std::vector<std::thread> writers;
  for (unsigned t = 0; t < kThreads; ++t) {
    writers.emplace_back([&, t] {
      const uint8_t value = static_cast<uint8_t>(t + 1);
      for (++ready; ready < kThreads;) std::this_thread::yield();
      for (unsigned i = t; i < kBytes; i += kThreads) EXPECT_EQ(volume_->Write(kOffset + i, &value, 1), 1);
    });
  }
  for (auto& writer : writers) writer.join();
  Bytes back(kBytes);
  ASSERT_EQ(volume_->Read(kOffset, back.data(), kBytes), static_cast<ssize_t>(kBytes));
  for (unsigned i = 0; i < kBytes; ++i) ASSERT_EQ(back[i], i % kThreads + 1) << "byte " << i;
}

TEST_F(WritableCopyTest, AReadOnlyLoopDeviceSaysSoAndRefusesWrites) {
  const std::string unavailable = LoopDevicesUnavailable();
  if (!unavailable.empty()) GTEST_SKIP() << unavailable;
  const LoopDevice device(copy_, 0, true);
  ASSERT_TRUE(device.valid());
  auto volume = Unlock(device.devicePath(), Credential::Password(image_->password));
  ASSERT_TRUE(volume);
  EXPECT_STREQ(volume->ReadOnlyReason(), "the device is read-only");
  errno = 0;
  EXPECT_EQ(volume->Write(1024 * 1024, "x", 1), -1);
  EXPECT_EQ(errno, EROFS);
}

}  // namespace
