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

#include <array>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>

#include "bitlocker/MounterStatus.h"
#include "mounter/MountRequest.h"
#include "platform/Folders.h"
#include "platform/Mounts.h"
#include "tests/support/FileContents.h"
#include "tests/support/MounterHarness.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/ServiceTestEnvironment.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"
#include "util/MountTable.h"
#include "util/ProgramVersion.h"

namespace {

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// An odd size, so that the last read ends inside a page.
constexpr size_t kImageSize = 9 * 1024 * 1024 + 123;

class MounterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string why = FuseUnavailable();
    if (!why.empty()) GTEST_SKIP() << why;
    const std::string macos = root_("Plain Bundle.app/Contents/MacOS");
    mounter_ = macos + "/zq-mounter";
    library_ = macos + "/libBitLockerWapper.dylib";
    ASSERT_EQ(RunShell("mkdir -p " + Quoted(macos) + " " + Quoted(mountPoint_) + " && cp " + Quoted(ZQ_MOUNTER_FILE) +
                       " " + Quoted(mounter_) + " && cp " + Quoted(ZQ_PLAIN_LIBRARY_FILE) + " " + Quoted(library_)),
              0);
    std::mt19937_64 random(kImageSize);
    std::string bytes(kImageSize, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    std::ofstream(image_, std::ios::binary) << bytes;
  }

  void TearDown() override {
    ForceUnmount(mountPoint_);
    for (int pid : LiveProcessesWithWord(mountPoint_)) kill(pid, SIGKILL);
    rmdir(mountPoint_.c_str());
    rmdir(mountFolder_.c_str());
  }

  ProgramRun Mount(const std::string& options) { return RunProgram(mounter_, {image_, mountPoint_, options}, "plain\n"); }

  TempDir root_;
  std::string mounter_, library_, image_ = root_("image");
  // Mount points lie below a volumes folder; a blank in one must reach the
  // mounter as part of the one word.
  std::string mountFolder_ = "/mnt/zq-mounter-test-" + std::to_string(getpid()), mountPoint_ = mountFolder_ + "/mount point";
};

// Every write lands in the file exactly, up to the volume's end and never
// past it, whatever its offset and length against sectors, pages and
// FUSE's requests; the size never changes; the mode that the options ask
// for, with the write bits, until the stop signal takes the mount down.
// Ownership, umount and the user's rights are the service's end-to-end
// tests' part.
TEST_F(MounterTest, RawWritesLandInTheFileExactlyAndNeverGrowIt) {
  const ProgramRun run = Mount("raw,uid=0,gid=0,umask=022");
  ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
  EXPECT_EQ(run.errors, "zq-mounter: mounted read-write\n");
  const std::string file = mountPoint_ + "/volume";
  struct stat info;
  EXPECT_TRUE(stat(file.c_str(), &info) == 0 && (info.st_mode & 07777) == 0644) << std::oct << info.st_mode;
  std::string expected = ReadFile(image_);
  const int fd = open(file.c_str(), O_RDWR);
  ASSERT_GE(fd, 0) << std::strerror(errno);
  const struct {
    size_t offset, length;
    ssize_t written;  // -1: fails with ENOSPC
  } writes[] = {
      {0, 1, 1}, {511, 2, 2}, {4095, 3, 3},                 // the first byte, across a sector, a page
      {3 * 4096 - 100, 8209, 8209},                         // pages at both ends in part
      {1024 * 1024 - 7, 1024 * 1024 + 9, 1024 * 1024 + 9},  // more than one request
      {kImageSize - 1, 1, 1}, {kImageSize - 10, 20, 10},    // the last byte; across the end, what fits
      {kImageSize, 1, -1}, {kImageSize + 4096, 5, -1},      // at the end, past it
  };
  std::mt19937 random(7);
  for (const auto& write : writes) {
    std::string bytes(write.length, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random());
    EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(write.offset)), write.written) << write.offset;
    EXPECT_TRUE(write.written >= 0 || errno == ENOSPC) << std::strerror(errno);
    if (write.written > 0) expected.replace(write.offset, write.written, bytes, 0, write.written);
  }
  EXPECT_EQ(fsync(fd), 0) << std::strerror(errno);
  EXPECT_TRUE(ftruncate(fd, 4096) != 0 && errno == EPERM) << "the size changed";
  EXPECT_EQ(close(fd), 0);
  EXPECT_LT(open(file.c_str(), O_WRONLY | O_TRUNC), 0) << "a truncating open";
  EXPECT_EQ(ReadFile(file), expected) << "read back through the mount";
  const std::vector<int> servers = LiveProcessesWithWord(mountPoint_);
  ASSERT_EQ(servers.size(), 1u);
  kill(servers[0], SIGTERM);
  EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
  EXPECT_FALSE(MountedAt(mountPoint_));
  EXPECT_EQ(ReadFile(image_), expected) << "the file itself";
}

// Read-only mounts, asked for or of a device that can only be read (here
// the image through a read-only bind mount), say why and refuse writes.
TEST_F(MounterTest, ReadOnlyMountsSayWhyAndRefuseWrites) {
  struct BindMount {
    std::string at;
    ~BindMount() { umount2(at.c_str(), MNT_DETACH); }
  } readOnly{root_("read-only image")};
  ASSERT_EQ(RunShell("touch " + Quoted(readOnly.at) + " && mount --bind " + Quoted(image_) + " " + Quoted(readOnly.at) +
                     " && mount -o remount,bind,ro " + Quoted(readOnly.at)),
            0);
  for (const auto& [device, options, reason] : {std::array<std::string, 3>{image_, "raw,ro,umask=027", "asked for with ro"},
                                                {readOnly.at, "raw,umask=027", "the device is read-only"}}) {
    const ProgramRun run = RunProgram(mounter_, {device, mountPoint_, options}, "plain\n");
    ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
    EXPECT_EQ(run.errors, "zq-mounter: mounted read-only: " + reason + "\n");
    struct stat info;
    EXPECT_TRUE(stat((mountPoint_ + "/volume").c_str(), &info) == 0 && (info.st_mode & 07777) == 0440) << reason;
    EXPECT_LT(open((mountPoint_ + "/volume").c_str(), O_WRONLY), 0) << reason;
    EXPECT_TRUE(errno == EROFS || errno == EACCES) << std::strerror(errno);
    ASSERT_EQ(umount(mountPoint_.c_str()), 0) << std::strerror(errno);
    EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
  }
}

// Besides these, the service's end-to-end tests refuse a wrong credential, a
// third user as owner and a mount point outside the volumes folders.
TEST_F(MounterTest, EachFailureHasItsOwnStatusAndMountsNothing) {
  // An NTFS signature over zeros: detected as NTFS, refused by every driver.
  std::string ntfs(1024 * 1024, '\0');
  std::ofstream(root_("ntfs"), std::ios::binary) << ntfs.replace(3, 8, "NTFS    ");
  const struct {
    const char* what;
    std::vector<std::string> words;
    std::string input;
    int status;
  } refusals[] = {
      {"a credential as a word", {image_, mountPoint_, "raw", "plain"}, "plain\n", kMounterUsage},
      {"no credential", {image_, mountPoint_, "raw"}, "", kMounterUsage},
      {"mount point is a file", {image_, image_, "raw"}, "plain\n", kMounterUsage},
      {"not BitLocker", {image_, mountPoint_, "raw"}, "not-bitlocker\n", bitlocker::kNotBitlocker},
      {"unsupported volume", {image_, mountPoint_, "raw"}, "unsupported\n", bitlocker::kUnsupported},
      {"no file system inside", {image_, mountPoint_, ""}, "plain\n", bitlocker::kUnsupported},
      {"a file system no driver takes", {root_("ntfs"), mountPoint_, ""}, "plain\n", kMounterMountFailed},
      {"device missing", {"/dev/zq-no-such-device", mountPoint_, "raw"}, "plain\n", bitlocker::kIoError},
  };
  for (const auto& refusal : refusals) {
    SCOPED_TRACE(refusal.what);
    const ProgramRun run = RunProgram(mounter_, refusal.words, refusal.input);
    EXPECT_EQ(run.status, refusal.status) << run.errors;
    EXPECT_FALSE(run.errors.empty()) << "says nothing";
    EXPECT_FALSE(MountedAt(mountPoint_));
    EXPECT_TRUE(MountPointsOfSource(refusal.words[0]).empty()) << "the staging mount is left";
    EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
  }
  ASSERT_EQ(unlink(library_.c_str()), 0);
  EXPECT_EQ(Mount("raw").status, kMounterNoLibrary);
  EXPECT_FALSE(MountedAt(mountPoint_));
}

// The staging root is root's alone, or it is not used: one that is a
// link, that others may enter or that is the user's is refused, and
// nothing is made or mounted through it.
TEST_F(MounterTest, AStagingRootThatIsNotRootsAloneIsNotUsed) {
  if (RunShell("command -v mkfs.fat >/dev/null") != 0) GTEST_SKIP() << "mkfs.fat is not installed";
  ASSERT_EQ(RunShell("truncate -s 0 " + Quoted(image_) + " && truncate -s 48M " + Quoted(image_) + " && mkfs.fat " +
                     Quoted(image_) + " >/dev/null"),
            0);
  // The machine's own staging root stays out of reach: /run is a fresh one
  // in the tests' mount namespace while this test lasts.
  struct PrivateRun {
    bool made = mount("tmpfs", "/run", "tmpfs", 0, "mode=0755") == 0;
    ~PrivateRun() {
      if (made) umount2("/run", MNT_DETACH);
    }
  } run;
  ASSERT_TRUE(run.made) << std::strerror(errno);
  const std::string staging = platform::kStagingRoot, elsewhere = root_("elsewhere");
  const std::string remove = "rm -f " + staging + " 2>/dev/null; rmdir " + staging + " 2>/dev/null; ";
  const struct {
    const char* what;
    std::string make;
  } cases[] = {
      {"a link", "mkdir -m 700 " + Quoted(elsewhere) + " && ln -s " + Quoted(elsewhere) + " " + staging},
      {"open to others", "mkdir -m 755 " + staging},
      {"the user's", "mkdir -m 700 " + staging + " && chown 4242 " + staging},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    ASSERT_EQ(RunShell(remove + test.make), 0);
    const ProgramRun mounted = Mount("");
    EXPECT_EQ(mounted.status, kMounterMountFailed) << mounted.errors;
    EXPECT_NE(mounted.errors.find("staging root"), std::string::npos) << mounted.errors;
    EXPECT_FALSE(MountedAt(mountPoint_));
    EXPECT_EQ(RunShell("[ -z \"$(ls -A " + staging + "/)\" ]"), 0) << "something was made in it";
  }
}

// An unencrypted file system image holding one known file, made with the
// distribution's tools: a tool that must be installed, and a shell command
// that makes "$IMAGE" and puts "$FILE" in it.
struct FilesystemCase {
  const char *name, *tool, *make;
};

void PrintTo(const FilesystemCase& param, std::ostream* out) { *out << param.name; }

class MounterFilesystemTest : public MounterTest, public ::testing::WithParamInterface<FilesystemCase> {};

// Written read-write, what was written is in the image once unmounted, as
// a read-only mount that refuses writes then shows.
TEST_P(MounterFilesystemTest, InnerFileSystemIsWrittenReadWriteAndReleased) {
  const auto [name, tool, make] = GetParam();
  if (RunShell(std::string("command -v ") + tool + " >/dev/null") != 0) GTEST_SKIP() << tool << " is not installed";
  const std::string text = std::string("hello from ") + name + "\n";
  std::ofstream(root_("hello.txt")) << text;
  ASSERT_EQ(RunShell("IMAGE=" + Quoted(image_) + " FILE=" + Quoted(root_("hello.txt")) +
                     "; truncate -s 0 \"$IMAGE\" && truncate -s 48M \"$IMAGE\" && (" + make + ") >/dev/null 2>&1"),
            0);
  ProgramRun run = Mount("umask=077");
  ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
  EXPECT_EQ(run.errors, "zq-mounter: mounted read-write\n");
  EXPECT_EQ(ReadFile(mountPoint_ + "/hello.txt"), text);
  std::ofstream(mountPoint_ + "/new.txt") << text << text;
  const std::vector<std::string> staging = MountPointsOfSource(image_);
  ASSERT_EQ(staging.size(), 1u) << "one staging mount of the raw volume";
  for (const std::string& at : {mountPoint_, staging[0]}) {
    const std::optional<MountEntry> mount = TopMountAt(platform::ReadMountTable(), at);
    ASSERT_TRUE(mount) << at;
    EXPECT_NE(mount->options.find("rw,nosuid,nodev"), std::string::npos) << at << ": " << mount->options;
  }
  // Unmounted as a user would, the mounter and the driver it started go, with their mounts.
  ASSERT_EQ(umount(mountPoint_.c_str()), 0) << std::strerror(errno);
  EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10)) << "a mounter or driver process is left";
  EXPECT_FALSE(MountedAt(mountPoint_));
  EXPECT_TRUE(MountPointsOfSource(image_).empty()) << "the staging mount is left";
  EXPECT_TRUE(LoopDevicesBackedBy(staging[0]).empty()) << "a loop device is left";
  EXPECT_NE(access(staging[0].c_str(), F_OK), 0) << "the staging folder is left";

  run = Mount("ro");
  ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
  EXPECT_EQ(run.errors, "zq-mounter: mounted read-only: asked for with ro\n");
  EXPECT_EQ(ReadFile(mountPoint_ + "/new.txt"), text + text);
  EXPECT_LT(open((mountPoint_ + "/other.txt").c_str(), O_WRONLY | O_CREAT, 0644), 0) << "the mount is writable";
  EXPECT_EQ(errno, EROFS);
}

INSTANTIATE_TEST_SUITE_P(
    Drivers, MounterFilesystemTest,
    ::testing::Values(
        FilesystemCase{"FAT", "mcopy", "mkfs.fat \"$IMAGE\" && mcopy -i \"$IMAGE\" \"$FILE\" ::hello.txt"},
        FilesystemCase{"NTFS", "ntfscp", "mkntfs -F -f -q \"$IMAGE\" && ntfscp \"$IMAGE\" \"$FILE\" hello.txt"},
        FilesystemCase{"exFAT", "mkfs.exfat",
                       "mkfs.exfat \"$IMAGE\" && d=$(mktemp -d) && mount -t exfat-fuse -o loop \"$IMAGE\" $d && "
                       "cp \"$FILE\" $d/hello.txt && umount $d && rmdir $d"}),
    [](const auto& info) { return std::string(info.param.name); });

// An NTFS left hibernated, which its driver will only read, is still
// mounted, read-only, and the report says so.
TEST_F(MounterTest, AFileSystemItsDriverWillNotWriteIsMountedReadOnly) {
  if (RunShell("command -v ntfscp >/dev/null") != 0) GTEST_SKIP() << "ntfscp is not installed";
  std::ofstream(root_("hiberfil.sys"), std::ios::binary) << "hibr" << std::string(8188, '\0');
  ASSERT_EQ(RunShell("truncate -s 0 " + Quoted(image_) + " && truncate -s 48M " + Quoted(image_) + " && mkntfs -F -f -q " +
                     Quoted(image_) + " && ntfscp " + Quoted(image_) + " " + Quoted(root_("hiberfil.sys")) +
                     " hiberfil.sys >/dev/null 2>&1"),
            0);
  const ProgramRun run = Mount("");
  ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
  EXPECT_EQ(run.errors, "zq-mounter: mounted read-only: the NTFS file system would only mount read-only\n");
  EXPECT_LT(open((mountPoint_ + "/new.txt").c_str(), O_WRONLY | O_CREAT, 0644), 0) << "the mount is writable";
}

// The user at the machine owns the folder that holds the mount point and
// may change it at any moment while the mounter works as root: whatever
// they put there, root's files elsewhere come to no harm.
class MountPointRaceTest : public MounterTest {
 protected:
  static constexpr uid_t kUser = 4242;

  void SetUp() override {
    MounterTest::SetUp();
    if (IsSkipped()) return;
    ASSERT_EQ(rmdir(mountPoint_.c_str()), 0) << "the mount point must not exist yet";
    ASSERT_EQ(chown(mountFolder_.c_str(), kUser, kUser), 0);
    // Empty, because libfuse 2's drivers will not mount over anything else.
    ASSERT_EQ(RunShell("mkdir -m 755 " + Quoted(victimFolder_) + " && echo secret > " + Quoted(victimFile_) + " && chmod 600 " +
                       Quoted(victimFile_)),
              0);
  }

  void TearDown() override {
    ForceUnmount(victimFolder_);
    ForceUnmount(victimFile_);
    unlink(mountPoint_.c_str());
    rmdir(awayFolder_.c_str());
    MounterTest::TearDown();
  }

  // Runs `work` as the user at the machine; its result, or -1.
  static int AsUser(const std::function<int()>& work) { return RunAsUser(kUser, [&] { return work() == 0 ? 0 : 1; }) == 0 ? 0 : -1; }

  ConsoleUserIs console_{kUser};
  std::string victimFolder_ = root_("victim"), victimFile_ = root_("shadow");
  std::string awayFolder_ = mountFolder_ + "/away";
};

// Checked, the mount point does not exist; before the mounter goes on, the
// user puts a link to a folder of root's in its place.  Both ways of
// mounting are tried: FUSE itself, and a file-system driver.
TEST_F(MountPointRaceTest, ALinkPutAtTheMountPointAfterTheCheckGetsNothingMountedOverItsTarget) {
  const bool fat = RunShell("command -v mkfs.fat >/dev/null && truncate -s 0 " + Quoted(image_) + " && truncate -s 48M " +
                            Quoted(image_) + " && mkfs.fat " + Quoted(image_) + " >/dev/null") == 0;
  for (const char* options : {"raw", "umask=077"}) {
    SCOPED_TRACE(options);
    if (!fat && std::string(options) != "raw") GTEST_SKIP() << "mkfs.fat is not installed: no file-system driver was tried";
    StartedProgram mounter(mounter_, {image_, mountPoint_, options});
    ASSERT_TRUE(StartedProgram::WaitUntilReadingAPipe(mounter.pid(), 10)) << "the mounter never waited for its credential";
    ASSERT_EQ(AsUser([&] { return symlink(victimFolder_.c_str(), mountPoint_.c_str()); }), 0);
    mounter.SendAndClose("plain\n");
    const std::string said = mounter.FirstErrorLine(30);
    const int status = mounter.Wait();
    EXPECT_FALSE(MountedAt(victimFolder_)) << said;
    EXPECT_NE(status, bitlocker::kOk) << "there was no folder of the mounter's to mount on: " << said;
    ForceUnmount(victimFolder_);
    unlink(mountPoint_.c_str());
  }
}

// The user renames the folder the mounter has just made away and puts a
// link to a file of root's in its place.  strace holds the mounter for two
// seconds after each folder it makes, so that the user is always in time.
TEST_F(MountPointRaceTest, AFolderSwappedForALinkRightAfterItIsMadeLeavesTheLinksTargetRoots) {
  if (RunShell("command -v strace >/dev/null") != 0) GTEST_SKIP() << "strace is not installed";
  StartedProgram mounter("/usr/bin/env", {"strace", "-f", "-qq", "-o", "/dev/null", "-e", "trace=mkdir,mkdirat", "-e",
                                          "inject=mkdir,mkdirat:delay_exit=2000000", mounter_, image_, mountPoint_, "raw"});
  mounter.SendAndClose("plain\n");
  ASSERT_EQ(AsUser([&] {
              for (int tries = 0; tries < 2000; ++tries) {
                struct stat info;
                if (lstat(mountPoint_.c_str(), &info) == 0 && S_ISDIR(info.st_mode))
                  return rename(mountPoint_.c_str(), awayFolder_.c_str()) | symlink(victimFile_.c_str(), mountPoint_.c_str());
                usleep(10000);
              }
              return -1;
            }),
            0)
      << "the mounter made no folder";
  const std::string said = mounter.FirstErrorLine(30);
  EXPECT_FALSE(MountedAt(victimFile_)) << said;
  ForceUnmount(victimFile_);
  struct stat info;
  ASSERT_EQ(stat(victimFile_.c_str(), &info), 0);
  EXPECT_TRUE(info.st_uid == 0 && info.st_gid == 0) << "now " << info.st_uid << ":" << info.st_gid << "; " << said;
  EXPECT_NE(said.rfind("zq-mounter: mounted", 0), 0u) << said;
}

// At its end the mounter removes the folder it made, and only that one: a
// folder the user put at the same name, after the mount, is theirs to keep.
TEST_F(MountPointRaceTest, TheEndRemovesOnlyTheFolderTheMounterMade) {
  for (const bool swapped : {false, true}) {
    SCOPED_TRACE(swapped ? "swapped" : "left alone");
    const ProgramRun run = Mount("raw");
    ASSERT_EQ(run.status, bitlocker::kOk) << run.errors;
    const std::vector<int> servers = LiveProcessesWithWord(mountPoint_);
    ASSERT_EQ(servers.size(), 1u);
    // Stopped, the server cannot take its end before the user is done.
    kill(servers[0], SIGSTOP);
    ASSERT_EQ(umount(mountPoint_.c_str()), 0) << std::strerror(errno);
    if (swapped) {
      ASSERT_EQ(AsUser([&] { return rename(mountPoint_.c_str(), awayFolder_.c_str()) | mkdir(mountPoint_.c_str(), 0755); }), 0);
    }
    kill(servers[0], SIGCONT);
    EXPECT_TRUE(WaitUntilNoProcessWithWord(mountPoint_, 10));
    struct stat info;
    EXPECT_EQ(lstat(mountPoint_.c_str(), &info) == 0, swapped) << "the user's folder went, or the mounter's stayed";
    EXPECT_TRUE(!swapped || info.st_uid == kUser);
    rmdir(mountPoint_.c_str());
    rmdir(awayFolder_.c_str());
  }
}

TEST(MounterCommandLineTest, AnswersHelpAndVersionAndNamesAnUnknownOption) {
  EXPECT_EQ(RunProgram(ZQ_MOUNTER_FILE, {"--version"}).output, std::string("zq-mounter ") + kProgramVersion + "\n");
  const ProgramRun help = RunProgram(ZQ_MOUNTER_FILE, {"-h"});
  EXPECT_TRUE(help.status == 0 && help.output.rfind("usage: zq-mounter RAW_DEVICE", 0) == 0) << help.output;
  const ProgramRun unknown = RunProgram(ZQ_MOUNTER_FILE, {"-x", "/mnt/a", "raw"});
  EXPECT_EQ(unknown.status, kMounterUsage);
  EXPECT_EQ(unknown.errors.rfind("zq-mounter: unknown option \"-x\"\nusage: ", 0), 0u) << unknown.errors;
}

TEST(MountRequestTest, ReadsTheThreeWordsAndEachOption) {
  MountRequest request;
  std::string error;
  ASSERT_TRUE(ParseMountRequest({"/dev/loop3", "/media/a b", ",raw,,ro,uid=501,gid=20,umask=027,"}, &request, &error))
      << error;
  EXPECT_TRUE(request.rawDevice == "/dev/loop3" && request.mountPoint == "/media/a b" && request.raw &&
              request.readOnly);
  EXPECT_TRUE(request.uid == 501 && request.gid == 20 && request.umask == 027);
  ASSERT_TRUE(ParseMountRequest({"/dev/loop3", "/m", ""}, &request, &error)) << error;
  EXPECT_TRUE(!request.raw && !request.readOnly && request.uid == 0)
      << "by default the raw volume is not served, the mount may write, and root owns what is";
  EXPECT_EQ(request.umask, 077u) << "by default what is served is the owner's alone";
}

TEST(MountRequestTest, RefusesWhatWouldBeMisread) {
  for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
           {"/dev/loop3", "/m", "raw", "a credential is never a word"},
           {"", "/m", "raw"},
           {"/dev/loop3", "", "raw"},
           {"/dev/loop3", "/m", "RAW"},
           {"/dev/loop3", "/m", "raw=1"},
           {"/dev/loop3", "/m", "ro=1"},
           {"/dev/loop3", "/m", "uid="},
           {"/dev/loop3", "/m", "uid=-1"},
           {"/dev/loop3", "/m", "uid=4294967295"},
           {"/dev/loop3", "/m", "gid=12x"},
           {"/dev/loop3", "/m", "umask=1000"},
           {"/dev/loop3", "/m", "umask=8"}}) {
    MountRequest request;
    std::string error;
    EXPECT_FALSE(ParseMountRequest(words, &request, &error)) << words.size() << " words, options " << words[2];
    EXPECT_FALSE(error.empty());
  }
}

// The owner and the group are checked alike: each may be the user at the
// machine's (the default), never a third user's, and root's only when the
// user at the machine is root.
TEST(MountRequestTest, SettlesTheOwnerAndGroupOnlyOnTheUserAtTheMachineOrRootForRoot) {
  constexpr uid_t kUser = 4242;
  constexpr gid_t kGroup = 4200;
  const struct {
    uid_t console;
    const char* options;
    const char* refusal;  // a part of the reason, or nullptr when settled
    uid_t uid;
    gid_t gid;
  } cases[] = {
      {kUser, "", nullptr, kUser, kGroup},
      {kUser, "uid=4242,gid=4200", nullptr, kUser, kGroup},
      {kUser, "uid=4343", "uid=4343 is neither root nor the user", 0, 0},
      {kUser, "gid=4343", "gid=4343 is neither root's group nor that", 0, 0},
      {kUser, "uid=0", "the option uid=0 would make what is served look like root's", 0, 0},
      {kUser, "gid=0", "the option gid=0 would make what is served look like root's", 0, 0},
      {kUser, "uid=4242,gid=0", "the option gid=0", 0, 0},
      {0, "uid=0,gid=0", nullptr, 0, 0},
      {0, "", nullptr, 0, kGroup},
  };
  for (const auto& test : cases) {
    MountRequest request;
    std::string error;
    ASSERT_TRUE(ParseMountRequest({"/dev/loop3", "/m", test.options}, &request, &error)) << error;
    const bool settled = SettleOwner(test.console, kGroup, &request, &error);
    if (test.refusal == nullptr) {
      EXPECT_TRUE(settled) << test.options << ": " << error;
      EXPECT_TRUE(request.uid == test.uid && request.gid == test.gid) << test.options;
    } else {
      EXPECT_FALSE(settled) << test.options;
      EXPECT_NE(error.find(test.refusal), std::string::npos) << test.options << ": " << error;
    }
  }
}

}  // namespace
