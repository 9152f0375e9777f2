// The zq-bitlocker tool as people and scripts use it: the credential on
// standard input, the result in the exit status.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <fstream>
#include <iterator>

#include "TestImages.h"

namespace {

struct ToolRun {
  int status = -1;
  std::string output;
};

// Runs the tool with `arguments`, feeding `input` on standard input.
ToolRun RunTool(const std::string& input, const std::string& arguments) {
  std::string inputFile = testimages::WriteScratchFile("tool-input", {input.begin(), input.end()});
  std::string command =
      std::string(ZQ_TOOL_FILE) + " " + arguments + " < '" + inputFile + "' 2>&1";
  ToolRun run;
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return run;
  char buffer[4096];
  size_t got;
  while ((got = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0) run.output.append(buffer, got);
  int status = ::pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

TEST(ZqBitlockerTool, VerifiesCredentialsFromStandardInput) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128-startup-key", &why);
  if (!image) GTEST_SKIP() << why;
  EXPECT_EQ(RunTool(image->startupKeyPath + "\n", "verify " + image->path).status, 0);
  EXPECT_EQ(RunTool(image->recoveryPassword + "\n", "verify " + image->path).status, 0);
  EXPECT_EQ(RunTool(image->recoveryPassword, "verify --kind recovery " + image->path).status, 0);

  ToolRun wrong = RunTool("not the password\n", "verify " + image->path);
  EXPECT_EQ(wrong.status, 2);
  EXPECT_NE(wrong.output.find("wrong credential"), std::string::npos) << wrong.output;
  EXPECT_EQ(RunTool("", "verify --kind clear-key " + image->path).status, 2);

  std::string zeros = testimages::WriteScratchFile("plain.img", std::vector<uint8_t>(65536, 0));
  EXPECT_EQ(RunTool("x\n", "verify " + zeros).status, 1);
  EXPECT_EQ(RunTool("", "verify").status, 64);
  EXPECT_EQ(RunTool("", "verify --kind guess " + image->path).status, 64);
}

TEST(ZqBitlockerTool, InfoListsTheProtectorsAndDumpWritesTheUnlockedVolume) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  ToolRun info = RunTool("", "info " + image->path);
  EXPECT_EQ(info.status, 0);
  for (const std::string& expected : {image->volumeGuid, std::string("AES-XTS 128"),
                                      std::string("password"), std::string("recovery password")}) {
    EXPECT_NE(info.output.find(expected), std::string::npos) << expected << " in\n" << info.output;
  }

  std::string out = testimages::ScratchFolder() + "/dump.img";
  EXPECT_EQ(RunTool(image->password + "\n", "dump --output " + out + " " + image->path).status, 0);
  std::ifstream in(out, std::ios::binary);
  std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  EXPECT_EQ(testimages::Sha256Hex(bytes.data(), bytes.size()), image->decryptedSha256);
}

}  // namespace
