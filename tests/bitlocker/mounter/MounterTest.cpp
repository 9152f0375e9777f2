// The mounter end to end over plain files: a bundle whose BitLocker library
// opens any file as an unlocked volume (PlainFileLibrary.cpp), so that the
// FUSE stage, the file system stage, the exit statuses and the teardown
// can be checked without encrypted images.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <random>

#include "FileContents.h"
#include "MounterHarness.h"
#include "MounterStatus.h"
#include "ProgramRun.h"
#include "StubBundle.h"

namespace {

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

void WriteRandomFile(const std::string& path, size_t size) {
  std::mt19937_64 random(size);
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  std::ofstream(path, std::ios::binary) << bytes;
}

class MounterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = FuseUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    root_ = MakeTempDir("zq-mounter-test-");
    const std::string macos = root_ + "/Plain Bundle.app/Contents/MacOS";
    mounter_ = macos + "/zq-mounter";
    // A blank in the mount point: it must reach the mounter as one word.
    mountPoint_ = root_ + "/mount point";
    ASSERT_EQ(RunShell("mkdir -p " + Quoted(macos) + " " + Quoted(mountPoint_) + " && cp " + Quoted(ZQ_MOUNTER_FILE) +
                       " " + Quoted(mounter_) + " && cp " + Quoted(ZQ_PLAIN_LIBRARY_FILE) + " " +
                       Quoted(macos + "/libBitLockerWapper.dylib")),
              0);
  }

  void TearDown() override {
    if (root_.empty()) return;
    ForceUnmount(mountPoint_);
    for (int pid : LiveProcessesWithWord(mountPoint_)) kill(pid, SIGKILL);
    RunShell("rm -rf " + Quoted(root_));
  }

  ProgramRun Mount(const std::string& device, const std::string& options, const std::string& credential = "plain") {
    return RunProgram(mounter_, {device, mountPoint_, options, credential});
  }

  // Unmounts the mount point as a user would and checks that the mounter
  // and any driver it started are gone, with their mounts.
  void ExpectUmountReleasesEverything(const std::string& device) {
    ASSERT_EQ(umount(mountPoint_.c_str()), 0) << std::strerror(errno);
    EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10)) << "a mounter or driver process is left";
    EXPECT_FALSE(MountedAt(mountPoint_));
    EXPECT_TRUE(MountPointsOfSource(device).empty()) << "the staging mount is left";
  }

  std::string root_;
  std::string mounter_;
  std::string mountPoint_;
};

TEST_F(MounterTest, RawServesTheWholeFileReadOnlyWithTheOwnershipAskedFor) {
  struct Ownership {
    const char* options;
    uid_t uid;
    gid_t gid;
    mode_t mode;
  };
  // An odd size, so that the last read ends inside a page.
  const std::string image = root_ + "/image";
  WriteRandomFile(image, 9 * 1024 * 1024 + 123);
  for (const Ownership& expected : {Ownership{"raw", 0, 0, 0444}, Ownership{"raw,uid=1234,gid=99,umask=027", 1234, 99, 0440}}) {
    SCOPED_TRACE(expected.options);
    const ProgramRun run = Mount(image, expected.options);
    ASSERT_EQ(run.status, kMounterMounted) << run.errors;
    struct stat info;
    ASSERT_EQ(stat((mountPoint_ + "/volume").c_str(), &info), 0);
    EXPECT_EQ(info.st_size, 9 * 1024 * 1024 + 123);
    EXPECT_EQ(info.st_uid, expected.uid);
    EXPECT_EQ(info.st_gid, expected.gid);
    EXPECT_EQ(info.st_mode & 07777, expected.mode);
    EXPECT_EQ(FileSha256(mountPoint_ + "/volume"), FileSha256(image));
    EXPECT_LT(open((mountPoint_ + "/volume").c_str(), O_WRONLY), 0);
    EXPECT_LT(open((mountPoint_ + "/other").c_str(), O_RDONLY), 0);
    ExpectUmountReleasesEverything(image);
  }
}

TEST_F(MounterTest, StopSignalTakesTheMountDown) {
  const std::string image = root_ + "/image";
  WriteRandomFile(image, 4096);
  ASSERT_EQ(Mount(image, "raw").status, kMounterMounted);
  const std::vector<int> servers = LiveProcessesWithWord(mountPoint_);
  ASSERT_EQ(servers.size(), 1u);
  kill(servers[0], SIGTERM);
  EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
  EXPECT_FALSE(MountedAt(mountPoint_));
}

struct Refusal {
  const char* what;
  std::vector<std::string> words;  // "IMAGE" and "MOUNT" stand for the test's paths
  int status;
};

TEST_F(MounterTest, EachFailureHasItsOwnStatusAndMountsNothing) {
  const std::string image = root_ + "/image";
  WriteRandomFile(image, 64 * 1024);
  const std::vector<Refusal> refusals = {
      {"three words", {"IMAGE", "MOUNT", "raw"}, kMounterUsage},
      {"mount point is a file", {"IMAGE", "IMAGE", "raw", "plain"}, kMounterUsage},
      {"not BitLocker", {"IMAGE", "MOUNT", "raw", "not-bitlocker"}, kMounterNotBitlocker},
      {"wrong credential", {"IMAGE", "MOUNT", "raw", "guess"}, kMounterWrongCredential},
      {"unsupported volume", {"IMAGE", "MOUNT", "raw", "unsupported"}, kMounterUnsupported},
      {"no file system inside", {"IMAGE", "MOUNT", "", "plain"}, kMounterUnsupported},
      {"device missing", {"/dev/zq-no-such-device", "MOUNT", "raw", "plain"}, kMounterUnreadable},
  };
  for (const Refusal& refusal : refusals) {
    std::vector<std::string> words = refusal.words;
    for (std::string& word : words) {
      if (word == "IMAGE") word = image;
      if (word == "MOUNT") word = mountPoint_;
    }
    const ProgramRun run = RunProgram(mounter_, words);
    EXPECT_EQ(run.status, refusal.status) << refusal.what << ": " << run.errors;
    EXPECT_FALSE(run.errors.empty()) << refusal.what << " says nothing";
    EXPECT_FALSE(MountedAt(mountPoint_)) << refusal.what;
    EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10)) << refusal.what;
  }

  ASSERT_EQ(unlink((root_ + "/Plain Bundle.app/Contents/MacOS/libBitLockerWapper.dylib").c_str()), 0);
  EXPECT_EQ(Mount(image, "raw").status, kMounterNoLibrary);
  EXPECT_FALSE(MountedAt(mountPoint_));
}

TEST_F(MounterTest, FileSystemThatNoDriverTakesMountsNothing) {
  // An NTFS signature over zeros: detected as NTFS, refused by every driver.
  const std::string image = root_ + "/image";
  std::string bytes(1024 * 1024, '\0');
  bytes.replace(3, 8, "NTFS    ");
  std::ofstream(image, std::ios::binary) << bytes;

  const ProgramRun run = Mount(image, "");
  EXPECT_EQ(run.status, kMounterMountFailed) << run.errors;
  EXPECT_NE(run.errors.find("NTFS"), std::string::npos) << run.errors;
  EXPECT_FALSE(MountedAt(mountPoint_));
  EXPECT_TRUE(MountPointsOfSource(image).empty()) << "the staging mount is left";
  EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
}

// An unencrypted file system image holding one known file, made with the
// distribution's tools.
struct FilesystemCase {
  const char* name;
  const char* tool;    // must be installed
  const char* make;    // shell command; IMAGE and FILE are replaced
};

void PrintTo(const FilesystemCase& param, std::ostream* out) { *out << param.name; }

std::string Substituted(std::string command, const std::string& image, const std::string& file) {
  for (size_t at; (at = command.find("IMAGE")) != std::string::npos;) command.replace(at, 5, Quoted(image));
  for (size_t at; (at = command.find("FILE")) != std::string::npos;) command.replace(at, 4, Quoted(file));
  return command;
}

class MounterFilesystemTest : public MounterTest, public ::testing::WithParamInterface<FilesystemCase> {};

TEST_P(MounterFilesystemTest, InnerFileSystemIsMountedReadOnlyAndReleased) {
  const FilesystemCase& param = GetParam();
  if (RunShell(std::string("command -v ") + param.tool + " >/dev/null") != 0)
    GTEST_SKIP() << param.tool << " is not installed";
  const std::string image = root_ + "/image";
  const std::string file = root_ + "/hello.txt";
  const std::string text = std::string("hello from ") + param.name + "\n";
  std::ofstream(file) << text;
  ASSERT_EQ(RunShell("truncate -s 48M " + Quoted(image) + " && (" + Substituted(param.make, image, file) +
                     ") >/dev/null 2>&1"),
            0);

  const ProgramRun run = Mount(image, "uid=1000,umask=077");
  ASSERT_EQ(run.status, kMounterMounted) << run.errors;
  EXPECT_EQ(ReadFile(mountPoint_ + "/hello.txt"), text);
  EXPECT_LT(open((mountPoint_ + "/new.txt").c_str(), O_WRONLY | O_CREAT, 0644), 0) << "the mount is writable";
  const std::vector<std::string> staging = MountPointsOfSource(image);
  ASSERT_EQ(staging.size(), 1u) << "one staging mount of the raw volume";
  const std::string stagingFolder = staging[0];

  ExpectUmountReleasesEverything(image);
  EXPECT_TRUE(LoopDevicesBackedBy(stagingFolder).empty()) << "a loop device is left";
  EXPECT_NE(access(stagingFolder.c_str(), F_OK), 0) << "the staging folder is left";
}

INSTANTIATE_TEST_SUITE_P(
    Drivers, MounterFilesystemTest,
    ::testing::Values(
        FilesystemCase{"FAT", "mcopy", "mkfs.fat IMAGE && mcopy -i IMAGE FILE ::hello.txt"},
        FilesystemCase{"NTFS", "ntfscp", "mkntfs -F -f -q IMAGE && ntfscp IMAGE FILE hello.txt"},
        FilesystemCase{"exFAT", "mkfs.exfat",
                       "mkfs.exfat IMAGE && d=$(mktemp -d) && mount -t exfat-fuse -o loop IMAGE $d && "
                       "cp FILE $d/hello.txt && umount $d && rmdir $d"}),
    [](const ::testing::TestParamInfo<FilesystemCase>& info) { return std::string(info.param.name); });

}  // namespace
