// New volumes as the engine makes them, read back by the engine itself:
// every cipher with each credential, the validation of every copy, the
// startup key protector and file beside Windows' own, and copies whose
// validation was changed afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/Bytes.h"
#include "engine/CBitlockerVolume.h"
#include "engine/CFileSource.h"
#include "engine/KeyDerivation.h"
#include "engine/KeyProtector.h"
#include "engine/StartupKeyFile.h"
#include "engine/Unlock.h"
#include "engine/VolumeCreation.h"
#include "engine/VolumeHeader.h"
#include "tests/support/FileContents.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestImages.h"

using namespace bitlocker;

namespace {

constexpr char kPassword[] = "pässword 1";

// A new volume made in a fresh image file of `size` bytes.
struct MadeVolume {
  TempDir folder;
  std::string path = folder("volume.img");
  CreatedVolume created;
  std::string startupKeyFile;  // with a startup key protector: its .BEK file
};

std::unique_ptr<MadeVolume> Make(uint16_t method, bool startupKey = false) {
  auto made = std::make_unique<MadeVolume>();
  EXPECT_EQ(RunShell("truncate -s 16M " + made->path), 0);
  std::shared_ptr<const IByteSource> target = CFileSource::Open(made->path, Access::kReadWrite);
  NewVolume request;
  request.method = method;
  request.password = kPassword;
  request.description = "test volume";
  request.creationTime = 133000000000000000ull;
  request.wipe = false;
  if (startupKey) {
    request.saveStartupKey = [&made](const Guid& id, const CSecureBuffer& contents, std::string*) {
      made->startupKeyFile = made->folder(StartupKeyFileName(id));
      std::ofstream file(made->startupKeyFile, std::ios::binary);
      return static_cast<bool>(file.write(reinterpret_cast<const char*>(contents.data()), contents.size()));
    };
  }
  std::string why;
  EXPECT_EQ(CreateVolume(target, request, &made->created, &why), Status::kOk) << why;
  return made;
}

Status Unlock(const std::string& path, const Credential& credential, std::string* why) {
  std::unique_ptr<CBitlockerVolume> volume;
  std::unique_ptr<CUnlockedVolume> unlocked;
  Status status = CBitlockerVolume::Open(path, &volume, why);
  if (status != Status::kOk) return status;
  return volume->Unlock(credential, &unlocked, why);
}

class VolumeCreationTest : public ::testing::TestWithParam<uint16_t> {};

TEST_P(VolumeCreationTest, OpensWithEachCredentialAndEveryCopyValidates) {
  auto made = Make(GetParam(), true);
  const std::string& recovery = made->created.recoveryPassword;
  ASSERT_TRUE(HasRecoveryPasswordShape(recovery)) << recovery;

  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  ASSERT_EQ(CBitlockerVolume::Open(made->path, &volume, &why, Access::kReadWrite), Status::kOk) << why;
  EXPECT_EQ(volume->copies().blocks.size(), 3u) << volume->copies().problems;
  EXPECT_EQ(volume->metadata().metadata.encryptionMethod, GetParam());
  EXPECT_EQ(volume->metadata().metadata.volumeId, made->created.volumeId);
  const auto& offsets = volume->header().metadataOffsets;
  EXPECT_EQ(made->created.dataSize, *std::min_element(offsets.begin(), offsets.end()));
  EXPECT_GT(volume->metadata().volumeHeaderOffset, made->created.dataSize);
  for (const Credential& credential : {Credential::Password(kPassword), Credential::RecoveryPassword(recovery),
                                       Credential::StartupKeyFile(made->startupKeyFile)}) {
    auto key = OpenVolumeMasterKey(volume->metadata(), credential);
    ASSERT_TRUE(key) << CredentialKindName(credential.kind());
    for (const FveMetadataBlock& copy : volume->copies().blocks) {
      ASSERT_TRUE(copy.validation);
      EXPECT_TRUE(DigestMatches(*copy.validation, *key));
    }
    std::unique_ptr<CUnlockedVolume> unlocked;
    ASSERT_EQ(volume->Unlock(credential, &unlocked, &why), Status::kOk) << why;
    EXPECT_EQ(unlocked->method(), GetParam());
    EXPECT_EQ(unlocked->ReadOnlyReason(), nullptr);
  }
  EXPECT_EQ(Unlock(made->path, Credential::Password("wrong"), &why), Status::kWrongCredential);
}

INSTANTIATE_TEST_SUITE_P(Ciphers, VolumeCreationTest, ::testing::Values(kAesXts128, kAesXts256, kAesCbc128, kAesCbc256),
                         [](const auto& info) {
                           std::string name = EncryptionMethodName(info.param);
                           for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
                           return name;
                         });

// The shape of a copy's metadata: each entry's type, value type, version
// and size, nested ones indented, with the nonce counter of each AES-CCM
// entry; the sizes of the description and of the volume header entry,
// which hold our own text and no more than readers need, are left out.
std::vector<std::string> Shape(const FveMetadataBlock& block) {
  std::vector<std::string> shape{"state " + std::to_string(block.state) + "/" + std::to_string(block.nextState) +
                                 " header sectors " + std::to_string(block.volumeHeaderSectors) + " next nonce " +
                                 std::to_string(block.metadata.nextNonceCounter)};
  std::function<void(const std::vector<MetadataEntry>&, const std::string&)> add = [&](const auto& entries,
                                                                                       const std::string& indent) {
    for (const MetadataEntry& entry : entries) {
      std::string line = indent + std::to_string(entry.type) + "/" + std::to_string(entry.valueType) + "/" +
                         std::to_string(entry.version);
      if (entry.type != kEntryDescription && entry.type != kEntryVolumeHeaderBlock)
        line += " size " + std::to_string(entry.value.size());
      if (entry.valueType == kValueAesCcmKey && entry.value.size() >= 12)
        line += " nonce " + std::to_string(entry.value.data()[8]);
      shape.push_back(line);
      const size_t nested = entry.valueType == kValueVolumeMasterKey ? 28
                            : entry.valueType == kValueStretchKey    ? 20
                            : entry.valueType == kValueUseKey        ? 4
                                                                     : 0;
      if (nested == 0) continue;
      if (auto inner = ParseNestedEntries(entry, nested)) add(*inner, indent + "  ");
      if (entry.valueType == kValueVolumeMasterKey)
        shape.push_back(indent + "  protection " + std::to_string(LoadLe16(entry.value.data() + 26)));
    }
  };
  add(block.metadata.entries, "");
  return shape;
}

TEST(VolumeCreation, MetadataHasTheShapeWindowsGivesIt) {
  std::string why;
  const testimages::Image* windows = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!windows) GTEST_SKIP() << why;
  auto made = Make(kAesXts128);
  std::unique_ptr<CBitlockerVolume> ours, theirs;
  ASSERT_EQ(CBitlockerVolume::Open(made->path, &ours, &why), Status::kOk) << why;
  ASSERT_EQ(CBitlockerVolume::Open(windows->path, &theirs, &why), Status::kOk) << why;
  const std::vector<std::string> shape = Shape(theirs->metadata());
  ASSERT_EQ(shape.size(), 15u) << "the Windows-made volume is not the one this test knows";
  EXPECT_EQ(Shape(ours->metadata()), shape);
  EXPECT_EQ(ours->metadata().version, theirs->metadata().version);
}

// The startup key protector's lines in a shape, nonce counters left out
// (Windows spent others before it added the protector), and the entries
// it stands between.
std::vector<std::string> StartupKeyProtector(const std::vector<std::string>& shape) {
  const auto last = std::find(shape.begin(), shape.end(), "  protection " + std::to_string(kProtectionStartupKey));
  if (last == shape.end() || last + 1 == shape.end()) return {};
  auto first = last;
  while (first != shape.begin() && first->front() == ' ') --first;
  std::vector<std::string> lines{"after " + *(first - 1), "before " + *(last + 1)};
  for (auto line = first; line <= last; ++line) lines.push_back(line->substr(0, line->find(" nonce")));
  return lines;
}

TEST(VolumeCreation, StartupKeyProtectorAndFileHaveTheShapeWindowsGivesThem) {
  std::string why;
  const testimages::Image* windows = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!windows) GTEST_SKIP() << why;
  auto made = Make(kAesXts128, true);
  std::unique_ptr<CBitlockerVolume> ours, theirs;
  ASSERT_EQ(CBitlockerVolume::Open(made->path, &ours, &why), Status::kOk) << why;
  ASSERT_EQ(CBitlockerVolume::Open(windows->path, &theirs, &why), Status::kOk) << why;
  const std::vector<std::string> protector = StartupKeyProtector(Shape(theirs->metadata()));
  ASSERT_EQ(protector.size(), 8u) << "the Windows-made volume is not the one this test knows";
  EXPECT_EQ(StartupKeyProtector(Shape(ours->metadata())), protector);

  // Windows' file written again from its own key and times: byte for byte
  // the same.
  const std::string file = ReadFile(windows->startupKeyPath);
  bool ioError = false;
  auto keys = ReadStartupKeyFile(windows->startupKeyPath, &ioError);
  ASSERT_TRUE(keys && keys->size() == 1 && file.size() > 80) << file.size();
  const auto* bytes = reinterpret_cast<const uint8_t*>(file.data());
  CSecureBuffer again = FormatStartupKeyFile(keys->front().id, keys->front().key, LoadLe64(bytes + 72));
  StoreLe64(LoadLe64(bytes + 40), again.data() + 40);
  EXPECT_TRUE(std::string(again.data(), again.data() + again.size()) == file);
  EXPECT_EQ(windows->startupKeyPath.substr(windows->startupKeyPath.rfind('/') + 1),
            StartupKeyFileName(keys->front().id));
}

// A startup key that cannot be saved stops creation before the target is
// touched.
TEST(VolumeCreation, WritesNothingWhenTheStartupKeyIsNotSaved) {
  const TempDir folder;
  const std::string path = folder("untouched.img");
  ASSERT_EQ(RunShell("truncate -s 16M " + path), 0);
  NewVolume request;
  request.password = kPassword;
  request.saveStartupKey = [](const Guid&, const CSecureBuffer&, std::string* why) {
    *why = "the folder is full";
    return false;
  };
  CreatedVolume created;
  std::string why;
  EXPECT_EQ(CreateVolume(CFileSource::Open(path, Access::kReadWrite), request, &created, &why), Status::kIoError);
  EXPECT_EQ(why, "the folder is full");
  EXPECT_EQ(ReadFile(path), std::string(16 << 20, '\0'));
}

// A change to every copy's validation after the volume was made: where
// it lies past the copy's covered bytes, and what the reader says.
struct Tamper {
  const char* name;
  size_t offsetAfterCovered;
  bool opens;  // the volume still opens without a credential
  const char* reason;
};

const Tamper kTampers[] = {
    {"crc", 4, false, "its CRC-32 validation is wrong"},
    // A byte of the wrapped SHA-256 itself, past the entry header, nonce and MAC.
    {"sealed_sha256", 8 + 8 + 12 + 16 + 20, true, "the metadata's SHA-256 validation is wrong"},
};

void PrintTo(const Tamper& tamper, std::ostream* out) { *out << tamper.name; }

class TamperedValidationTest : public ::testing::TestWithParam<Tamper> {};

TEST_P(TamperedValidationTest, IsRefusedWithTheReason) {
  auto made = Make(kAesXts128);
  std::shared_ptr<const IByteSource> file = CFileSource::Open(made->path, Access::kReadWrite);
  uint8_t sector[512];
  ASSERT_TRUE(file->ReadAt(0, sector, sizeof sector));
  const std::optional<VolumeHeader> header = ParseVolumeHeader(sector);
  ASSERT_TRUE(header);
  for (uint64_t copy : header->metadataOffsets) {
    uint8_t units[2];
    ASSERT_TRUE(file->ReadAt(copy + 8, units, sizeof units));
    const uint64_t at = copy + (units[0] | units[1] << 8) * 16u + GetParam().offsetAfterCovered;
    uint8_t byte;
    ASSERT_TRUE(file->ReadAt(at, &byte, 1));
    byte ^= 0x01;
    ASSERT_TRUE(file->WriteAt(at, &byte, 1));
  }
  std::unique_ptr<CBitlockerVolume> volume;
  std::string why;
  const Status opened = CBitlockerVolume::Open(made->path, &volume, &why);
  if (!GetParam().opens) {
    EXPECT_NE(opened, Status::kOk);
    EXPECT_NE(why.find(GetParam().reason), std::string::npos) << why;
    return;
  }
  ASSERT_EQ(opened, Status::kOk) << why;
  EXPECT_EQ(Unlock(made->path, Credential::Password(kPassword), &why), Status::kUnsupported);
  EXPECT_NE(why.find(GetParam().reason), std::string::npos) << why;
}

INSTANTIATE_TEST_SUITE_P(Validation, TamperedValidationTest, ::testing::ValuesIn(kTampers),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(VolumeCreation, RefusesWhatItCannotMake) {
  const TempDir folder;
  const std::string path = folder("small.img");
  const struct {
    uint16_t method;
    const char* password;
    uint64_t size;
    const char* reason;
    std::string description = "";
  } cases[] = {
      {kAesCbc128Diffuser, "pw", 16 << 20, "is not a method new volumes are made with"},
      {kAesXts128, "", 16 << 20, "the password is empty"},
      {kAesXts128, "\xff\xfe", 16 << 20, "the password is not UTF-8 text"},
      {kAesXts128, "pw", 4 << 20, "a volume needs at least"},
      {kAesXts128, "pw", 16 << 20, "the description is longer than 256 characters", std::string(257, 'd')},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(RunShell("truncate -s " + std::to_string(c.size) + " " + path), 0);
    std::shared_ptr<const IByteSource> sized = CFileSource::Open(path, Access::kReadWrite);
    NewVolume request;
    request.method = c.method;
    request.password = c.password;
    request.description = c.description;
    CreatedVolume created;
    std::string why;
    EXPECT_EQ(CreateVolume(sized, request, &created, &why), Status::kUnsupported) << c.reason;
    EXPECT_NE(why.find(c.reason), std::string::npos) << why;
    EXPECT_FALSE(CBitlockerVolume::IsBitlocker(path)) << c.reason;
  }
}

TEST(RecoveryPassword, FormatsWhatItParses) {
  const struct {
    uint8_t fill;
    const char* group;  // each of the eight
  } cases[] = {{0x00, "000000"}, {0xff, "720885"}, {0x01, "002827"}};
  for (const auto& c : cases) {
    CSecureBuffer key(16);
    std::memset(key.data(), c.fill, key.size());
    const std::string text = FormatRecoveryPassword(key);
    std::string expected;
    for (int i = 0; i < 8; ++i) expected += std::string(i ? "-" : "") + c.group;
    EXPECT_EQ(text, expected);
    auto parsed = ParseRecoveryPassword(text);
    ASSERT_TRUE(parsed) << text;
    EXPECT_TRUE(*parsed == key) << text;
  }
}

}  // namespace
