#include "CBitlockerExplorer.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "FileContents.h"
#include "Platform.h"
#include "StubBundle.h"

namespace {

class CBitlockerExplorerTest : public testing::Test {
 protected:

  // The explorer is started in the background; wait for its record.
  std::vector<StubCall> WaitForExplorer() {
    for (int i = 0; i < 50; ++i) {
      std::vector<StubCall> calls = bundle.CallsOf("Zq Norvane Explorer");
      if (!calls.empty()) return calls;
      usleep(100 * 1000);
    }
    return {};
  }

  StubBundle bundle;
  // The operations take the bundle path when they are made.
  bool bundleSet = (platform::SetMainBundlePath(bundle.bundlePath()), true);
  CBitlockerExplorer explorer;
};

TEST_F(CBitlockerExplorerTest, OpenedVolumeStartsTheExplorerWithTheCredentialUnchanged) {
  const std::string credential = "it's \"my\" $secret `x` \\";
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), credential), 0);
  const std::vector<StubCall> started = WaitForExplorer();
  ASSERT_EQ(started.size(), 1u);
  EXPECT_EQ(started[0].arguments, (std::vector<std::string>{""}));
  for (int i = 0; i < 50 && ReadFile(bundle.stubDir() + "/Zq Norvane Explorer.input").empty(); ++i) usleep(100 * 1000);
  EXPECT_EQ(ReadFile(bundle.stubDir() + "/Zq Norvane Explorer.input"), credential + "\n");
  const std::vector<StubCall> library = {{"open_bitlocker_device", {"", credential}}, {"volume-deleted", {}}};
  const std::vector<StubCall> calls = bundle.Calls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_EQ(std::vector<StubCall>(calls.begin(), calls.begin() + 2), library);
}

TEST_F(CBitlockerExplorerTest, LibraryStatusIsReturnedAndNothingStartsOnFailure) {
  bundle.Answer("open_status", "2");
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), std::string("wrong")), 2);
  bundle.Answer("open_status", "0");
  bundle.Answer("open_no_volume", "");
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), std::string("pw")), 0);
  sleep(1);
  EXPECT_TRUE(bundle.CallsOf("Zq Norvane Explorer").empty());
  // A volume handed back with a failure is not the service's to delete.
  EXPECT_TRUE(bundle.CallsOf("volume-deleted").empty());
}

TEST_F(CBitlockerExplorerTest, MissingLibraryGives255AndIsLookedForAgain) {
  const std::string library = bundle.bundlePath() + "/Contents/MacOS/libBitLockerWapper.dylib";
  RunShell("mv '" + library + "' '" + library + ".away'");
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), std::string("pw")), 255);
  int status = -7;
  IVolume* volume = nullptr;
  EXPECT_FALSE(explorer.openBitlockerDevice("", "pw", &volume, &status));
  EXPECT_EQ(status, -7);
  RunShell("mv '" + library + ".away' '" + library + "'");
  bundle.Answer("open_status", "3");
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), std::string("pw")), 3);
}

}  // namespace
