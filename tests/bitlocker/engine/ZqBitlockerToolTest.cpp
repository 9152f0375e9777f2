// The zq-bitlocker tool as people and scripts use it: the credential on
// standard input, the result in the exit status.
#include <gtest/gtest.h>

#include "FileContents.h"
#include "ProgramRun.h"
#include "TestImages.h"

namespace {

ProgramRun Tool(const std::vector<std::string>& words, const std::string& input = "") {
  return RunProgram(ZQ_TOOL_FILE, words, input);
}

TEST(ZqBitlockerTool, VerifiesCredentialsFromStandardInput) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!image) GTEST_SKIP() << why;
  const std::string zeros = testimages::WriteScratchFile("plain.img", std::vector<uint8_t>(65536, 0));
  struct Case {
    std::vector<std::string> words;
    std::string input;
    int status;
  };
  const Case cases[] = {
      {{"verify", image->path}, image->startupKeyPath + "\n", 0},
      {{"verify", image->path}, image->recoveryPassword + "\n", 0},
      {{"verify", "--kind", "recovery", image->path}, image->recoveryPassword, 0},
      {{"verify", "--kind", "clear-key", image->path}, "", 2},
      {{"verify", zeros}, "x\n", 1},
      {{"verify"}, "", 64},
      {{"verify", "--kind", "guess", image->path}, "", 64},
  };
  for (const Case& c : cases) EXPECT_EQ(Tool(c.words, c.input).status, c.status) << c.words.size() << " words";

  const ProgramRun wrong = Tool({"verify", image->path}, "not the password\n");
  EXPECT_EQ(wrong.status, 2);
  EXPECT_NE((wrong.output + wrong.errors).find("wrong credential"), std::string::npos) << wrong.errors;
}

TEST(ZqBitlockerTool, InfoListsTheProtectorsAndDumpWritesTheUnlockedVolume) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  const ProgramRun info = Tool({"info", image->path});
  EXPECT_EQ(info.status, 0);
  for (const std::string& expected : {image->volumeGuid, std::string("AES-XTS 128"), std::string("password"),
                                      std::string("recovery password")}) {
    EXPECT_NE(info.output.find(expected), std::string::npos) << expected << " in\n" << info.output;
  }

  const std::string out = testimages::ScratchFolder() + "/dump.img";
  EXPECT_EQ(Tool({"dump", "--output", out, image->path}, image->password + "\n").status, 0);
  const std::string dump = ReadFile(out);
  EXPECT_EQ(testimages::Sha256Hex(reinterpret_cast<const uint8_t*>(dump.data()), dump.size()), image->decryptedSha256);
}

}  // namespace
