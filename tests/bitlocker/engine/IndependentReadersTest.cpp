// The engine's reading of every shared volume held against independent
// readers: cryptsetup's parse of the metadata, and blkid's recognition of
// the file system in the unlocked volume.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <map>
#include <sstream>

#include "Bytes.h"
#include "CBitlockerVolume.h"
#include "EncryptOnWriteImage.h"
#include "KeyProtector.h"
#include "VolumeReading.h"

using namespace bitlocker;

namespace {

const char kSbinPath[] = "PATH=\"$PATH:/usr/sbin:/sbin\" ";

// Runs a shell command; the exit status, or -1, with its standard output.
int RunShell(const std::string& command, std::string* output) {
  FILE* pipe = ::popen((kSbinPath + command).c_str(), "r");
  if (!pipe) return -1;
  char buffer[4096];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0) output->append(buffer, got);
  int status = ::pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool HasTool(const std::string& name) {
  std::string ignored;
  return RunShell("command -v " + name, &ignored) == 0;
}

std::string Trim(const std::string& text) {
  size_t first = text.find_first_not_of(" \t");
  size_t last = text.find_last_not_of(" \t");
  return first == std::string::npos ? "" : text.substr(first, last - first + 1);
}

// What `cryptsetup bitlkDump` says about a volume.
struct Dump {
  std::map<std::string, std::string> fields;
  std::vector<std::pair<std::string, std::string>> vmks;  // GUID, protection
  std::vector<uint64_t> metadataOffsets;
  uint64_t headerOffset = 0;
  uint64_t headerSize = 0;
};

Dump ParseDump(const std::string& text) {
  Dump dump;
  std::istringstream in(text);
  std::string line, item;
  while (std::getline(in, line)) {
    size_t colon = line.find(':');
    if (colon == std::string::npos || line.empty()) continue;
    std::string key = Trim(line.substr(0, colon)), value = Trim(line.substr(colon + 1));
    if (line[0] == ' ') {  // " 0: VMK" opens an item
      item = value;
      if (item == "VMK") dump.vmks.emplace_back();
    } else if (line[0] != '\t') {
      dump.fields[key] = value;
    } else if (item == "VMK" && (key == "GUID" || key == "Protection")) {
      (key == "GUID" ? dump.vmks.back().first : dump.vmks.back().second) = value;
    } else if (item == "FVE metadata area" && key == "Offset") {
      dump.metadataOffsets.push_back(std::stoull(value));
    } else if (item == "Volume header") {
      if (key == "Offset") dump.headerOffset = std::stoull(value);
      if (key == "Size") dump.headerSize = std::stoull(value);
    }
  }
  return dump;
}

// cryptsetup's names for the engine's methods: mode and key bits, the
// diffuser's key counted in.
std::pair<std::string, std::string> CryptsetupCipher(uint16_t method) {
  static const std::map<uint16_t, std::pair<std::string, std::string>> names = {
      {0x8000, {"cbc-elephant", "256 bits"}}, {0x8001, {"cbc-elephant", "512 bits"}},
      {0x8002, {"cbc-eboiv", "128 bits"}},    {0x8003, {"cbc-eboiv", "256 bits"}},
      {0x8004, {"xts-plain64", "256 bits"}},  {0x8005, {"xts-plain64", "512 bits"}},
  };
  auto found = names.find(method);
  return found == names.end() ? std::make_pair(std::string("?"), std::string("?")) : found->second;
}

std::string CryptsetupProtection(uint16_t protection) {
  static const std::map<uint16_t, std::string> names = {
      {kProtectionClearKey, "clear key"},          {kProtectionTpm, "TPM"},
      {kProtectionStartupKey, "startup key"},      {kProtectionTpmAndPin, "TPM and PIN"},
      {kProtectionRecoveryPassword, "recovery passphrase"}, {kProtectionSmartCard, "smart card"},
      {kProtectionPassword, "passphrase"},
  };
  auto found = names.find(protection);
  return "VMK protected with " + (found == names.end() ? std::string("?") : found->second);
}

// The shared volumes, the encrypt-on-write one included where present.
std::vector<testimages::Image> AllImages(std::string* why) {
  std::vector<testimages::Image> all;
  if (const auto* images = testimages::Images(why)) all = *images;
  if (const auto* eow = testimages::EncryptOnWriteImage(why)) all.push_back(*eow);
  return all;
}

std::unique_ptr<CUnlockedVolume> Unlock(const testimages::Image& image,
                                        std::unique_ptr<CBitlockerVolume>* volume) {
  std::string why;
  std::unique_ptr<CUnlockedVolume> unlocked;
  EXPECT_EQ(CBitlockerVolume::Open(image.path, volume, &why), Status::kOk) << why;
  if (*volume) {
    EXPECT_EQ((*volume)->Unlock(Credential::RecoveryPassword(image.recoveryPassword), &unlocked, &why),
              Status::kOk)
        << why;
  }
  return unlocked;
}

TEST(IndependentReaders, CryptsetupReadsTheMetadataAsTheEngineDoes) {
  if (!HasTool("cryptsetup")) GTEST_SKIP() << "cryptsetup is not installed (scripts/install-deps.sh)";
  std::string why;
  auto images = AllImages(&why);
  if (images.empty()) GTEST_SKIP() << why;
  for (const auto& image : images) {
    SCOPED_TRACE(image.name);
    std::string text;
    ASSERT_EQ(RunShell("cryptsetup bitlkDump '" + image.path + "' 2>&1", &text), 0) << text;
    Dump dump = ParseDump(text);
    std::unique_ptr<CBitlockerVolume> volume;
    auto unlocked = Unlock(image, &volume);
    ASSERT_TRUE(unlocked);
    const FveMetadataBlock& block = volume->metadata();

    EXPECT_EQ(dump.fields["Version"], std::to_string(block.version));
    EXPECT_EQ(dump.fields["GUID"], block.metadata.volumeId.ToString());
    EXPECT_EQ(dump.fields["Sector size"], std::to_string(volume->header().bytesPerSector) + " [bytes]");
    EXPECT_EQ(dump.fields["Volume size"], std::to_string(block.encryptedSize) + " [bytes]");
    EXPECT_EQ(dump.fields["Cipher name"], "aes");
    auto cipher = CryptsetupCipher(block.metadata.encryptionMethod);
    EXPECT_EQ(dump.fields["Cipher mode"], cipher.first);
    EXPECT_EQ(dump.fields["Cipher key"], cipher.second);

    std::vector<std::pair<std::string, std::string>> vmks;
    for (const auto& protector : ListKeyProtectors(block.metadata)) {
      vmks.emplace_back(protector.id.ToString(), CryptsetupProtection(protector.protection));
    }
    EXPECT_EQ(dump.vmks, vmks);
    EXPECT_EQ(dump.metadataOffsets, std::vector<uint64_t>(volume->header().metadataOffsets.begin(),
                                                          volume->header().metadataOffsets.end()));
    EXPECT_EQ(dump.headerOffset, unlocked->layout().storedHeader().offset);
    EXPECT_EQ(dump.headerSize, unlocked->layout().storedHeader().length);
  }
}

TEST(IndependentReaders, BlkidRecognisesTheUnlockedFileSystem) {
  if (!HasTool("blkid")) GTEST_SKIP() << "blkid is not installed (util-linux)";
  std::string why;
  auto images = AllImages(&why);
  if (images.empty()) GTEST_SKIP() << why;
  size_t recognised = 0;
  for (const auto& image : images) {
    SCOPED_TRACE(image.name);
    std::unique_ptr<CBitlockerVolume> volume;
    auto unlocked = Unlock(image, &volume);
    ASSERT_TRUE(unlocked);
    std::vector<uint8_t> bytes = ReadWholeVolume(*unlocked);
    ASSERT_EQ(bytes.size(), unlocked->Size());
    bool ntfs = std::equal(bytes.begin() + 3, bytes.begin() + 11, "NTFS    ");
    if (ntfs) {
      // The shared images keep only some sectors; blkid needs NTFS's first
      // file record, which some of them left out on the device.
      uint64_t mft = LoadLe64(bytes.data() + 48) * LoadLe16(bytes.data() + 11) * bytes[13];
      std::vector<uint8_t> record(1024);
      std::ifstream device(image.path, std::ios::binary);
      device.seekg(static_cast<std::streamoff>(mft));
      ASSERT_TRUE(device.read(reinterpret_cast<char*>(record.data()), 1024));
      if (std::all_of(record.begin(), record.end(), [](uint8_t b) { return b == 0; })) continue;
    }
    std::string path = testimages::WriteScratchFile("unlocked.img", bytes);
    std::string type;
    EXPECT_EQ(RunShell("blkid -p -o value -s TYPE '" + path + "'", &type), 0);
    EXPECT_EQ(type, ntfs ? "ntfs\n" : "vfat\n");
    ++recognised;
  }
  EXPECT_GT(recognised, 0u);
}

}  // namespace
