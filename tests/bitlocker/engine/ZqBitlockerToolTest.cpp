// The zq-bitlocker tool as people and scripts use it: the credential on
// standard input, the result in the exit status.
#include <gtest/gtest.h>

#include "FileContents.h"
#include "ProgramRun.h"
#include "TestImages.h"

namespace {

TEST(ZqBitlockerTool, VerifiesCredentialsFromStandardInput) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!image) GTEST_SKIP() << why;
  const std::string zeros = testimages::WriteScratchFile("plain.img", std::vector<uint8_t>(65536, 0));
  const struct {
    std::vector<std::string> words;
    std::string input;
    int status;
    std::string says;
  } cases[] = {
      {{"verify", image->path}, image->startupKeyPath + "\n", 0, ""},
      {{"verify", image->path}, image->recoveryPassword + "\n", 0, ""},
      {{"verify", "--kind", "recovery", image->path}, image->recoveryPassword, 0, ""},
      {{"verify", image->path}, "not the password\n", 2, "wrong credential"},
      {{"verify", "--kind", "clear-key", image->path}, "", 2, ""},
      {{"verify", zeros}, "x\n", 1, ""},
      {{"verify"}, "", 64, ""},
      {{"verify", "--kind", "guess", image->path}, "", 64, ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.words.back() + " <<< " + c.input);
    const ProgramRun run = RunProgram(ZQ_TOOL_FILE, c.words, c.input);
    EXPECT_EQ(run.status, c.status) << run.errors;
    EXPECT_NE((run.output + run.errors).find(c.says), std::string::npos) << run.errors;
  }
}

TEST(ZqBitlockerTool, InfoListsTheProtectorsAndDumpWritesTheUnlockedVolume) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  const ProgramRun info = RunProgram(ZQ_TOOL_FILE, {"info", image->path});
  EXPECT_EQ(info.status, 0);
  for (const std::string& expected : {image->volumeGuid, std::string("AES-XTS 128"), std::string("recovery password")}) {
    EXPECT_NE(info.output.find(expected), std::string::npos) << expected << " in\n" << info.output;
  }
  const std::string out = testimages::ScratchFolder() + "/dump.img";
  EXPECT_EQ(RunProgram(ZQ_TOOL_FILE, {"dump", "--output", out, image->path}, image->password + "\n").status, 0);
  const std::string dump = ReadFile(out);
  EXPECT_EQ(testimages::Sha256Hex(reinterpret_cast<const uint8_t*>(dump.data()), dump.size()), image->decryptedSha256);
}

}  // namespace
