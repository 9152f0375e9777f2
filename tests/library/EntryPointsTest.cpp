// The library's entry points, as the service and the mounter call them, and the
// zq-bitlocker tool as people and scripts use it: the credential on
// standard input, the result in the exit status.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "bitlocker/IVolume.h"
#include "tests/support/FileContents.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TestImages.h"

namespace {

int Open(const std::string& device, const std::string& credential) {
  IVolume* volume = reinterpret_cast<IVolume*>(0x1);
  const int status = open_bitlocker_device(device.c_str(), credential.c_str(), &volume);
  std::unique_ptr<IVolume> owned(volume);
  EXPECT_EQ(status == bitlocker::kOk, volume != nullptr) << "status " << status;
  return status;
}

// Each image, on a block device and with each kind of credential, goes
// through the library in the service's end-to-end tests; here are the texts
// and the devices those leave out.
TEST(BitlockerLibrary, TellsTheCredentialFromItsTextAndReportsEachFailure) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  std::string undashed = image->recoveryPassword;
  undashed.erase(std::remove(undashed.begin(), undashed.end(), '-'), undashed.end());
  EXPECT_EQ(Open(image->path, undashed), bitlocker::kOk);
  EXPECT_EQ(Open(image->path, ""), bitlocker::kWrongCredential) << "the clear key, which it has not";
  EXPECT_EQ(Open(testimages::WriteScratchFile("zeros.img", std::vector<uint8_t>(65536, 0)), "x"), bitlocker::kNotBitlocker);
  EXPECT_EQ(Open(testimages::WriteScratchFile("tiny.img", {1, 2, 3}), "x"), bitlocker::kNotBitlocker);
  EXPECT_EQ(Open(testimages::ScratchFolder() + "/missing.img", "x"), bitlocker::kIoError);
  IVolume* volume = nullptr;
  ASSERT_EQ(open_bitlocker_device(image->path.c_str(), image->password.c_str(), &volume), bitlocker::kOk);
  EXPECT_EQ(std::unique_ptr<IVolume>(volume)->ReadOnlyReason(), nullptr) << "not opened for writing";
  EXPECT_NE(open_bitlocker_device(nullptr, "x", &volume), bitlocker::kOk);
  EXPECT_NE(open_bitlocker_device(image->path.c_str(), "x", nullptr), bitlocker::kOk);

  // A FAT32 boot sector's marks, without BitLocker's.
  std::vector<uint8_t> fat(65536, 0);
  std::memcpy(fat.data(), "\xeb\x58\x90MSWIN4.1\x00\x02\x08", 14);
  std::memcpy(fat.data() + 82, "FAT32   ", 8);
  std::memcpy(fat.data() + 510, "\x55\xaa", 2);
  EXPECT_FALSE(is_bitlocker_drive(testimages::WriteScratchFile("fat.img", fat).c_str()));
  EXPECT_FALSE(is_bitlocker_drive((testimages::ScratchFolder() + "/missing").c_str()));
  EXPECT_FALSE(is_bitlocker_drive(""));
  EXPECT_FALSE(is_bitlocker_drive(nullptr));
}

// Why a credential failed reaches the library's caller in the words
// zq-bitlocker uses for it, never naming a startup key file; an open that
// works leaves no reason behind.
TEST(BitlockerLibrary, TellsWhyAnOpenFailed) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  for (const std::string credential : {"not it", "111112-111111-111111-111111-111111-111111-111111-111111", ""}) {
    SCOPED_TRACE(credential);
    EXPECT_EQ(Open(image->path, credential), bitlocker::kWrongCredential);
    const std::string reason = bitlocker_open_failure();
    EXPECT_FALSE(reason.empty());
    EXPECT_EQ(RunProgram(ZQ_TOOL_FILE, {"verify", image->path}, credential + "\n").errors,
              "zq-bitlocker: " + image->path + ": wrong credential: " + reason + "\n");
  }
  const std::string key = testimages::WriteScratchFile("not-a-key.BEK", {1, 2, 3});
  EXPECT_EQ(Open(image->path, key), bitlocker::kWrongCredential);
  EXPECT_EQ(std::string(bitlocker_open_failure()).find(key), std::string::npos) << "logs would name the credential";
  EXPECT_EQ(Open(image->path, image->password), bitlocker::kOk);
  EXPECT_STREQ(bitlocker_open_failure(), "");
}

TEST(ZqBitlockerTool, VerifiesInformsAndDumpsWithTheCredentialOnStandardInput) {
  std::string why;
  const testimages::Image* xts = testimages::FindImage("bitlk-aes-xts-128", &why);
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!xts || !image) GTEST_SKIP() << why;
  const std::string zeros = testimages::WriteScratchFile("plain.img", std::vector<uint8_t>(65536, 0));
  const std::string out = testimages::ScratchFolder() + "/dump.img";
  const size_t imageSize = ReadFile(xts->path).size();
  const struct {
    std::vector<std::string> words;
    std::string input;
    int status;
    std::string says;
  } cases[] = {
      {{"verify", image->path}, image->startupKeyPath + "\n", 0, "startup key"},
      {{"verify", image->path}, image->recoveryPassword + "\n", 0, "recovery password"},
      {{"verify", "--kind", "recovery", image->path}, image->recoveryPassword, 0, ""},
      {{"verify", image->path}, "not the password\n", 2, "wrong credential"},
      {{"verify", zeros}, "x\n", 1, ""},
      {{"verify"}, "", 64, ""},
      {{"verify", "--kind", "guess", image->path}, "", 64, ""},
      {{"info", xts->path}, "", 0, xts->volumeGuid},
      {{"info", xts->path}, "", 0, "AES-XTS 128"},
      {{"info", xts->path}, "", 0, "recovery password"},
      {{"dump", "--output", out, xts->path}, xts->password + "\n", 0, ""},
      // A dump never destroys its own volume, another file unasked, or a terminal.
      {{"dump", "--output", out, xts->path}, xts->password + "\n", 64, "exists: give --force"},
      {{"dump", "--output", out, "--force", xts->path}, xts->password + "\n", 0, ""},
      {{"dump", "--output", xts->path, "--force", xts->path}, xts->password + "\n", 64, "is where the volume itself is stored"},
      {{"-qec", std::string(ZQ_TOOL_FILE) + " dump --kind clear-key " + xts->path, "/dev/null"}, "", 64,
       "standard output is a terminal"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.words.front() + " " + c.words.back() + " <<< " + c.input);
    // script(1) gives the tool a terminal for its standard output.
    const ProgramRun run = RunProgram(c.words[0] == "-qec" ? "/usr/bin/script" : ZQ_TOOL_FILE, c.words, c.input);
    EXPECT_EQ(run.status, c.status) << run.errors;
    EXPECT_NE((run.output + run.errors).find(c.says), std::string::npos) << run.output << run.errors;
  }
  const std::string dump = ReadFile(out);
  EXPECT_EQ(testimages::Sha256Hex(reinterpret_cast<const uint8_t*>(dump.data()), dump.size()), xts->decryptedSha256);
  EXPECT_EQ(ReadFile(xts->path).size(), imageSize) << "the volume was written over";
}

TEST(BitlockerLibrary, ExportsOnlyItsEntryPoints) {
  void* library = ::dlopen(ZQ_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
  ASSERT_TRUE(library) << ::dlerror();
  EXPECT_TRUE(::dlsym(library, "is_bitlocker_drive") && ::dlsym(library, "open_bitlocker_device") &&
              ::dlsym(library, "bitlocker_open_failure"));
  // bitlocker::CBitlockerVolume::IsBitlocker(const std::string&), an engine function inside.
  EXPECT_FALSE(::dlsym(library, "_ZN9bitlocker16CBitlockerVolume11IsBitlockerERKNSt7__cxx1112basic_stringIcSt11char_"
                                "traitsIcESaIcEEE"));
  ::dlclose(library);
}

}  // namespace
