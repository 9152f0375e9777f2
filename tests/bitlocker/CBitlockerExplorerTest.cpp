#include "CBitlockerExplorer.h"

#include <gtest/gtest.h>

#include "Platform.h"
#include "StubBundle.h"

namespace {

// A library that was missing is looked for again on the next open.
TEST(CBitlockerExplorerTest, MissingLibraryGives255AndIsLookedForAgain) {
  StubBundle bundle;
  platform::SetMainBundlePath(bundle.bundlePath());
  CBitlockerExplorer explorer;
  const std::string library = bundle.bundlePath() + "/Contents/MacOS/libBitLockerWapper.dylib";
  ASSERT_EQ(RunShell("mv '" + library + "' '" + library + ".away'"), 0);
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), std::string("pw")), CBitlockerExplorer::kLibraryMissing);
  ASSERT_EQ(RunShell("mv '" + library + ".away' '" + library + "'"), 0);
  bundle.Answer("open_status", "3");
  EXPECT_EQ(explorer.OpenExplorer(std::string("disk4"), std::string("pw")), 3);
}

}  // namespace
