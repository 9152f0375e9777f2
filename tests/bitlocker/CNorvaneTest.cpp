#include "bitlocker/CNorvane.h"

#include <unistd.h>

#include <gtest/gtest.h>

#include "Include/CommandData.h"
#include "bitlocker/CBitlockerExplorer.h"
#include "bitlocker/MounterStatus.h"
#include "system/MainBundle.h"
#include "tests/support/StubBundle.h"

namespace {

// Each case sets a fresh stub bundle's answers with a shell line in its
// answer folder ($B: the bundle), where by default the library calls every
// device BitLocker and diskutil unmounts it; then mounts the device and
// opens it in the explorer (-1: not tried, as the explorer would start).
struct Case {
  const char* setUp;
  OptionalString device;
  int mountStatus;
  int explorerStatus;
  std::vector<std::string> programs;  // every call, in order
};

TEST(CNorvaneTest, MountAndExplorerRunOnlyWhatTheirChecksAllow) {
  const Case cases[] = {
      // First, as a library once found stays loaded; the cases after it show
      // that a missing one is looked for again.
      {"rm \"$B/Contents/MacOS/libBitLockerWapper.dylib\"", "disk2s1", kMounterNoLibrary,
       CBitlockerExplorer::kLibraryMissing, {}},
      {"rm diskutil-unmount.stdout && echo 'disk2s1 was already unmounted' >diskutil-unmount.stderr", "disk2s1", 0, -1,
       {"is_bitlocker_drive", "diskutil", "zq-mounter"}},
      {"echo 'Volume disk2s1 unmounted' >diskutil-unmount.stdout && echo other >diskutil-unmount.stderr", "disk2s1",
      kResultUnmountFailed, kResultUnmountFailed, {"is_bitlocker_drive", "diskutil", "is_bitlocker_drive", "diskutil"}},
      // "diskutil unmount (null)" is no command the shell accepts.
      {"true", std::nullopt, kResultUnmountFailed, kResultUnmountFailed,
       {"is_bitlocker_drive", "is_bitlocker_drive"}},
      {"rm is_bitlocker", "disk2s1", bitlocker::kNotBitlocker, bitlocker::kNotBitlocker,
       {"is_bitlocker_drive", "is_bitlocker_drive"}},
      {"rm \"$B/Contents/MacOS/zq-mounter\"", "disk2s1", 127, -1, {"is_bitlocker_drive", "diskutil"}},
      // A volume handed back with a failure is not the service's to delete.
      {"printf 2 >open_status", "disk2s1", 0, 2, {"is_bitlocker_drive", "diskutil", "zq-mounter", "is_bitlocker_drive",
                                                 "diskutil", "open_bitlocker_device"}},
      // An open that gives no volume starts nothing.
      {"touch open_no_volume", "disk2s1", 0, 0, {"is_bitlocker_drive", "diskutil", "zq-mounter", "is_bitlocker_drive",
                                                "diskutil", "open_bitlocker_device"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.setUp);
    StubBundle bundle;
    bundle.Answer("is_bitlocker", "");
    bundle.Answer("diskutil-unmount.stdout", "Volume disk2s1 on disk2s1 unmounted successfully\n");
    ASSERT_EQ(RunShell("cd '" + bundle.stubDir() + "' && B='" + bundle.bundlePath() + "' && " + c.setUp), 0);
    SetMainBundlePath(bundle.bundlePath());
    CNorvane norvane;
    EXPECT_EQ(norvane.Bitlocker_Mount(c.device, "/media/x", "raw", "pw"), c.mountStatus);
    if (c.explorerStatus != -1) {
      EXPECT_EQ(norvane.Bitlocker_Explorer(c.device, "pw"), c.explorerStatus);
      sleep(c.explorerStatus == 0);  // the explorer would start in the background
    }
    std::vector<std::string> programs;
    for (const StubCall& call : bundle.Calls()) programs.push_back(call.program);
    EXPECT_EQ(programs, c.programs);
  }
}

}  // namespace
