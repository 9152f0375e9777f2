// The mounter writing real BitLocker volumes made by Windows, judged by
// readers that share nothing with its write path: the engine opened afresh
// with every credential, dislocker and bdemount.  Each test writes a sparse
// copy of an image, attached to a loop device as a disk would be.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <sstream>
#include <thread>

#include "engine/CBitlockerVolume.h"
#include "engine/CFileSource.h"
#include "engine/VolumeCreation.h"
#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/MounterHarness.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestImages.h"

using bitlocker::Credential;
using testimages::Image;

namespace {

constexpr uint64_t kMiB = 1024 * 1024;

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

bool Installed(const std::string& tool) {
  return RunShell("PATH=$PATH:/usr/sbin:/sbin command -v " + tool + " >/dev/null") == 0;
}

// `length` bytes at `offset` (from the volume's end when negative), whose
// values depend on their offset and on `seed`: a misplaced or stale write
// reads back different.
struct Write {
  int64_t offset;
  uint64_t length;
  uint64_t seed;
};

uint64_t Start(const Write& write, uint64_t size) { return write.offset < 0 ? size + write.offset : write.offset; }

uint8_t PatternByte(uint64_t offset, uint64_t seed) {
  uint64_t mixed = (offset + 1) * 0x9e3779b97f4a7c15ULL ^ (seed + 1) * 0xbf58476d1ce4e5b9ULL;
  mixed ^= mixed >> 31;
  return static_cast<uint8_t>((mixed * 0x94d049bb133111ebULL) >> 56);
}

// Lays `writes`, later over earlier, on bytes [at, at + length) of a volume
// of `size` bytes.
void Apply(const std::vector<Write>& writes, uint64_t size, uint64_t at, uint8_t* bytes, size_t length) {
  for (const Write& write : writes) {
    const uint64_t from = std::max(Start(write, size), at);
    const uint64_t to = std::min(Start(write, size) + write.length, at + length);
    for (uint64_t offset = from; offset < to; ++offset) bytes[offset - at] = PatternByte(offset, write.seed);
  }
}

// The SHA-256 of each MiB of a volume, so that a difference says where it
// lies without the volume held in memory.
using Digests = std::vector<std::string>;
using ReadFunction = std::function<ssize_t(uint64_t offset, void* buffer, size_t length)>;

// The digests of `size` bytes read through `read`, with `writes` laid over
// them; empty when a read fails.
Digests DigestsOf(const ReadFunction& read, uint64_t size, const std::vector<Write>& writes = {}) {
  Digests digests;
  std::vector<uint8_t> chunk(kMiB);
  for (uint64_t at = 0; at < size; at += kMiB) {
    const size_t length = std::min(kMiB, size - at);
    for (size_t done = 0; done < length;) {
      const ssize_t got = read(at + done, chunk.data() + done, length - done);
      if (got <= 0) return {};
      done += static_cast<size_t>(got);
    }
    Apply(writes, size, at, chunk.data(), length);
    digests.push_back(testimages::Sha256Hex(chunk.data(), length));
  }
  return digests;
}

Digests FileDigests(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY);
  struct stat info;
  Digests digests;
  if (fd >= 0 && fstat(fd, &info) == 0)
    digests = DigestsOf([fd](uint64_t at, void* buffer, size_t length) { return pread(fd, buffer, length, at); },
                        static_cast<uint64_t>(info.st_size));
  if (fd >= 0) close(fd);
  return digests;
}

std::vector<Credential> CredentialsOf(const Image& image) {
  std::vector<Credential> credentials = {Credential::RecoveryPassword(image.recoveryPassword)};
  if (!image.password.empty()) credentials.push_back(Credential::Password(image.password));
  if (!image.startupKeyPath.empty()) credentials.push_back(Credential::StartupKeyFile(image.startupKeyPath));
  return credentials;
}

// The unlocked volume in the file at `path`, as the engine reads it with
// `credential`, with `writes` laid over it.
Digests EngineDigests(const std::string& path, const Credential& credential, const std::vector<Write>& writes = {}) {
  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  std::string why;
  if (bitlocker::CBitlockerVolume::Open(path, &volume, &why) != bitlocker::Status::kOk ||
      volume->Unlock(credential, &unlocked, &why) != bitlocker::Status::kOk) {
    ADD_FAILURE() << "the engine cannot open " << path << " with a " << CredentialKindName(credential.kind()) << ": "
                  << why;
    return {};
  }
  return DigestsOf([&](uint64_t at, void* buffer, size_t length) { return unlocked->Read(at, buffer, length); },
                   unlocked->Size(), writes);
}

// Mounts a reference reader's read-only FUSE view of the unlocked volume
// in `path`, hands its file to `use` (empty when mounting failed), and
// unmounts it.
void WithReferenceMount(const std::string& reader, const Image& image, const std::string& path,
                        const std::function<void(const std::string& file)>& use) {
  const TempDir folder;
  const std::string at = Quoted(folder.path());
  const bool dislocker = reader == "dislocker";
  const bool mounted =
      RunShell((dislocker ? "dislocker -r -V " + Quoted(path) + " -p" + image.recoveryPassword + " -- " + at
                          : "bdemount -r " + image.recoveryPassword + " " + Quoted(path) + " " + at) +
               " >/dev/null") == 0;
  use(mounted ? folder(dislocker ? "dislocker-file" : "bde1") : "");
  if (mounted) RunShell("umount " + at + " || umount -l " + at);
}

// Every reader sees `expected` in the unlocked volume in `path`, but for
// MiB `unknown`, which a write cut short may have left either way.
void ExpectEveryReaderSees(const Image& image, const std::string& path, const Digests& expected,
                           size_t unknown = SIZE_MAX) {
  std::vector<std::pair<std::string, Digests>> seen;
  for (const Credential& credential : CredentialsOf(image))
    seen.emplace_back(std::string("the engine with a ") + CredentialKindName(credential.kind()),
                      EngineDigests(path, credential));
  for (const char* reader : {"dislocker", "bdemount"})
    WithReferenceMount(reader, image, path,
                       [&](const std::string& file) { seen.emplace_back(reader, FileDigests(file)); });
  for (const auto& [reader, digests] : seen) {
    EXPECT_EQ(digests.size(), expected.size()) << reader << " cannot read the whole volume";
    for (size_t mebibyte = 0; mebibyte < std::min(digests.size(), expected.size()); ++mebibyte) {
      if (mebibyte != unknown && digests[mebibyte] != expected[mebibyte]) {
        ADD_FAILURE() << reader << " reads MiB " << mebibyte << " otherwise";
        break;
      }
    }
  }
}

// The image as Windows left it, with `writes` laid over it.
Digests Original(const Image& image, const std::vector<Write>& writes = {}) {
  return EngineDigests(image.path, Credential::RecoveryPassword(image.recoveryPassword), writes);
}

class ReadWriteTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string why = FuseUnavailable();
    if (why.empty()) why = LoopDevicesUnavailable();
    for (const char* tool : {"dislocker", "bdemount", "cryptsetup"})
      if (why.empty() && !Installed(tool))
        why = std::string(tool) + " is missing (scripts/install-deps.sh installs it)";
    if (why.empty()) images_ = testimages::Images(&why);
    if (!why.empty()) GTEST_SKIP() << why;
    mkdir(mountFolder_.c_str(), 0755);
  }

  void TearDown() override {
    ForceUnmount(mountPoint_);
    for (int pid : LiveProcessesWithWord(mountPoint_)) kill(pid, SIGKILL);
    rmdir(mountPoint_.c_str());
    rmdir(mountFolder_.c_str());
  }

  // zq-mounter serving `device` read-write at mountPoint_ with `options`.
  bool Mount(const LoopDevice& device, const Image& image, const std::string& options) {
    const ProgramRun run =
        RunProgram(ZQ_MOUNTER_FILE, {device.devicePath(), mountPoint_, options}, image.recoveryPassword + "\n");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.errors.find("mounted read-write"), std::string::npos) << run.errors;
    return run.status == 0 && MountedAt(mountPoint_);
  }

  // A writable sparse copy of `image`.
  std::string Copy(const Image& image) {
    const std::string copy = root_(image.name + ".img");
    EXPECT_EQ(RunShell("cp --sparse=always " + Quoted(image.path) + " " + Quoted(copy)), 0);
    return copy;
  }

  // Serves a copy of `image` through the raw file, hands the file open for
  // writing to `use`, unmounts, and hands the copy to `check`.  The loop
  // device is held open meanwhile, so that the kernel does not write its
  // cache back when the mounter, its last user, closes it: the copy holds
  // only what the mounter itself made durable.
  void WithRawFile(const Image& image, const std::function<void(int fd, uint64_t size)>& use,
                   const std::function<void(const std::string& copy)>& check) {
    const std::string copy = Copy(image);
    LoopDevice loop(copy);
    ASSERT_TRUE(loop.valid() && Mount(loop, image, "raw"));
    const int holder = open(loop.devicePath().c_str(), O_RDONLY);
    const int fd = open(volume_.c_str(), O_RDWR);
    struct stat info;
    EXPECT_TRUE(holder >= 0 && fd >= 0 && fstat(fd, &info) == 0) << std::strerror(errno);
    if (fd >= 0) use(fd, static_cast<uint64_t>(info.st_size));
    if (fd >= 0) close(fd);
    EXPECT_TRUE(Unmount()) << "the mounter did not end";
    check(copy);
    if (holder >= 0) close(holder);
  }

  // Unmounts as a user would, and waits for the mounter to have ended.
  bool Unmount() {
    EXPECT_EQ(umount(mountPoint_.c_str()), 0) << std::strerror(errno);
    return WaitUntilNoProcessWithWord(mountPoint_, 30);
  }

  const std::vector<Image>* images_ = nullptr;
  TempDir root_;
  std::string mountFolder_ = "/mnt/zq-read-write-test-" + std::to_string(getpid());
  std::string mountPoint_ = mountFolder_ + "/volume point", volume_ = mountPoint_ + "/volume";
};

// The first sector (its boot code: bdemount reads the volume's size in the
// rest), across sector and 4 KiB boundaries, across the end of the boot
// sectors that BitLocker keeps elsewhere, one write over another, the last
// sectors.
const std::vector<Write> kAwkwardWrites = {{100, 300, 1},     {1023, 2, 2},     {4095, 4099, 3},
                                           {8190, 5, 4},      {1048699, 300001, 5}, {1248576, 777, 6},
                                           {-1052673, 3, 7}, {-1000, 600, 8},  {-512, 512, 9}};

// A volume made by the engine takes the file system its documentation
// says how to make: FAT on the raw file, ending before the metadata; the
// mounter then mounts it with its file system, and what is written there
// stays.
TEST_F(ReadWriteTest, ANewVolumeTakesAFileSystemMadeOnItsRawFile) {
  if (!Installed("mkfs.fat")) GTEST_SKIP() << "mkfs.fat is missing";
  const std::string path = root_("new.img");
  ASSERT_EQ(RunShell("truncate -s 64M " + Quoted(path)), 0);
  bitlocker::NewVolume request;
  request.password = "new volume";
  request.wipe = false;
  bitlocker::CreatedVolume created;
  std::string why;
  ASSERT_EQ(bitlocker::CreateVolume(bitlocker::CFileSource::Open(path, bitlocker::Access::kReadWrite), request,
                                    &created, &why),
            bitlocker::Status::kOk)
      << why;
  Image made;
  made.recoveryPassword = created.recoveryPassword;
  LoopDevice loop(path);
  ASSERT_TRUE(loop.valid() && Mount(loop, made, "raw"));
  EXPECT_EQ(RunShell("PATH=$PATH:/usr/sbin:/sbin mkfs.fat " + Quoted(volume_) + " " +
                     std::to_string(created.dataSize / 1024) + " >/dev/null 2>&1"),
            0);
  ASSERT_TRUE(Unmount());
  ASSERT_TRUE(Mount(loop, made, ""));
  EXPECT_EQ(RunShell("echo kept > " + Quoted(mountPoint_ + "/note.txt")), 0);
  ASSERT_TRUE(Unmount());
  ASSERT_TRUE(Mount(loop, made, ""));
  EXPECT_EQ(ReadFile(mountPoint_ + "/note.txt"), "kept\n");
  EXPECT_TRUE(Unmount());
}

// The tests that go over every image, a minute or more each.
class EveryImageTest : public ReadWriteTest {};

TEST_F(EveryImageTest, RawWritesAtAwkwardPlacesReadBackThroughEveryReader) {
  for (const Image& image : *images_) {
    SCOPED_TRACE(image.name);
    WithRawFile(
        image,
        [](int fd, uint64_t size) {
          for (const Write& write : kAwkwardWrites) {
            std::vector<uint8_t> bytes(write.length);
            Apply({write}, size, Start(write, size), bytes.data(), bytes.size());
            EXPECT_EQ(pwrite(fd, bytes.data(), bytes.size(), Start(write, size)), static_cast<ssize_t>(bytes.size()))
                << "at " << Start(write, size) << ": " << std::strerror(errno);
          }
        },
        [&](const std::string& copy) { ExpectEveryReaderSees(image, copy, Original(image, kAwkwardWrites)); });
  }
}

// BitLocker's own areas as cryptsetup finds them on the device: the
// metadata copies and the kept boot sectors.  The unlocked volume has them
// at the same offsets, as zeros.
std::vector<std::pair<uint64_t, uint64_t>> BitlockerAreas(const std::string& path) {
  std::istringstream words(
      RunProgram("/bin/sh", {"-c", "PATH=$PATH:/usr/sbin:/sbin cryptsetup bitlkDump " + Quoted(path)}).output);
  std::vector<std::pair<uint64_t, uint64_t>> areas;
  std::string word;
  while (words >> word && word != "segments:") continue;
  for (uint64_t offset = 0; words >> word;) {
    if (word == "Offset:") words >> offset;
    if (word == "Size:" && words >> word) areas.emplace_back(offset, std::stoull(word));
  }
  return areas;
}

TEST_F(EveryImageTest, WritesTouchingBitlockerAreasFailWithEioAndChangeNothing) {
  for (const Image& image : *images_) {
    SCOPED_TRACE(image.name);
    const auto areas = BitlockerAreas(image.path);
    ASSERT_EQ(areas.size(), 4u) << "three metadata copies and the kept boot sectors";
    WithRawFile(image, [&areas](int fd, uint64_t) {
      const std::vector<uint8_t> zeros(512), bytes(512, 0x5a);
      for (const auto& [offset, length] : areas) {
        std::vector<uint8_t> seen(512, 0xee);
        EXPECT_EQ(pread(fd, seen.data(), seen.size(), offset), 512);
        EXPECT_EQ(seen, zeros) << "at " << offset;
        for (const uint64_t at : {offset, offset - 100, offset + length - 100}) {
          errno = 0;
          EXPECT_EQ(pwrite(fd, bytes.data(), 200, at), -1) << "at " << at;
          EXPECT_EQ(errno, EIO) << "at " << at;
        }
      }
    }, [&](const std::string& copy) {
      EXPECT_EQ(BitlockerAreas(copy), areas) << "cryptsetup no longer reads the metadata";
      ExpectEveryReaderSees(image, copy, Original(image));
    });
  }
}

// The nth write of a long run over a few 1 MiB slots, from 1 MiB on.
constexpr uint64_t kSlots = 24;
Write SlotWrite(uint64_t n) { return {static_cast<int64_t>((1 + n % kSlots) * kMiB), kMiB, n}; }

// The mounter killed during the run, each write made durable with fsync:
// every write it confirmed is on the device; only the slot being written
// when it died may hold either.
TEST_F(ReadWriteTest, FsyncedWritesSurviveTheMounterBeingKilled) {
  std::string why;
  const Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (image == nullptr) GTEST_SKIP() << why;
  std::atomic<uint64_t> confirmed{0};
  WithRawFile(*image, [&](int fd, uint64_t) {
    std::atomic<bool> ended{false};
    std::thread writer([&] {
      std::vector<uint8_t> bytes(kMiB);
      for (uint64_t n = 0;; confirmed = ++n) {
        const Write write = SlotWrite(n);
        Apply({write}, 0, write.offset, bytes.data(), kMiB);
        if (pwrite(fd, bytes.data(), kMiB, write.offset) != static_cast<ssize_t>(kMiB) || fsync(fd) != 0) break;
      }
      ended = true;
    });
    while (!ended && confirmed < 3 * kSlots) usleep(1000);
    const std::vector<int> servers = LiveProcessesWithWord(mountPoint_);
    EXPECT_EQ(servers.size(), 1u);
    for (int pid : servers) kill(pid, SIGKILL);
    writer.join();
    EXPECT_GE(confirmed, 3 * kSlots) << "the writes failed before the kill";
  }, [&](const std::string& copy) {
    std::vector<Write> durable;
    for (uint64_t n = confirmed > kSlots ? confirmed - kSlots : 0; n < confirmed; ++n) durable.push_back(SlotWrite(n));
    ExpectEveryReaderSees(*image, copy, Original(*image, durable), SlotWrite(confirmed).offset / kMiB);
  });
}

// A file system made through the raw file, on an XTS and a CBC-Elephant
// volume: a tool that must be installed, a command that formats "$VOLUME",
// and whether its driver makes names beyond ASCII (fusefat does not).
// The formatting tools know nothing of BitLocker's own areas, which Windows
// keeps as reserved files: a file system that spreads over the volume, as
// NTFS does, is made only over the $SECTORS before the first area.
struct FilesystemCase {
  const char *name, *image, *tool, *format;
  bool utf8Names;
};

void PrintTo(const FilesystemCase& param, std::ostream* out) { *out << param.name; }

// Names with blanks and beyond ASCII, an empty file, a deep folder and a
// file of several MB.
void MakeTree(const std::string& tree, bool utf8Names) {
  std::string make = "cd " + Quoted(tree) +
                     " && mkdir -p 'with blanks/and more' a/b/c/d && : > empty && echo text > 'with blanks/and more/a "
                     "file.txt' && head -c 6291463 /dev/urandom > 'big file.bin' && head -c 65537 /dev/urandom > "
                     "a/b/c/d/deep.bin";
  if (utf8Names)
    make += " && mkdir -p 'Ünïcødé ✓/日本語' && echo é > 'naïve café' && "
            "head -c 4097 /dev/urandom > 'Ünïcødé ✓/日本語/ファイル.txt'";
  ASSERT_EQ(RunShell(make), 0);
}

class ReadWriteFilesystemTest : public ReadWriteTest, public ::testing::WithParamInterface<FilesystemCase> {};

// Formatted through the raw file, filled through the file system mount,
// and read back after mounting again; an NTFS volume also through
// bdemount and ntfs-3g.
TEST_P(ReadWriteFilesystemTest, FilesCopiedInReadBackAfterMountingAgain) {
  const auto [name, imageName, tool, format, utf8Names] = GetParam();
  if (!Installed(tool)) GTEST_SKIP() << tool << " is missing (scripts/install-deps.sh installs it)";
  std::string why;
  const Image* image = testimages::FindImage(imageName, &why);
  if (image == nullptr) GTEST_SKIP() << why;
  const TempDir tree;
  MakeTree(tree.path(), utf8Names);
  const std::string copy = Copy(*image), compare = "diff -r " + Quoted(tree.path()) + " ";
  {
    LoopDevice loop(copy);
    ASSERT_TRUE(loop.valid() && Mount(loop, *image, "raw"));
    const auto areas = BitlockerAreas(image->path);
    const std::string sectors = std::to_string(std::min_element(areas.begin(), areas.end())->first / 512);
    ASSERT_EQ(RunShell("PATH=$PATH:/usr/sbin:/sbin VOLUME=" + Quoted(volume_) + " SECTORS=" + sectors + "; " + format +
                       " >/dev/null"),
              0);
    ASSERT_TRUE(Unmount());
    ASSERT_TRUE(Mount(loop, *image, ""));
    EXPECT_EQ(RunShell("cp -R " + Quoted(tree.path()) + "/. " + Quoted(mountPoint_)), 0);
    ASSERT_TRUE(Unmount());
    ASSERT_TRUE(Mount(loop, *image, ""));
    EXPECT_EQ(RunShell(compare + Quoted(mountPoint_)), 0);
    ASSERT_TRUE(Unmount());
  }
  if (std::string(tool) != "mkntfs") return;
  WithReferenceMount("bdemount", *image, copy, [&](const std::string& file) {
    const TempDir files;
    ASSERT_EQ(RunShell("ntfs-3g -o ro " + Quoted(file) + " " + Quoted(files.path())), 0) << "bdemount: " << file;
    EXPECT_EQ(RunShell(compare + Quoted(files.path())), 0);
    RunShell("umount " + Quoted(files.path()));
  });
}

INSTANTIATE_TEST_SUITE_P(
    Formats, ReadWriteFilesystemTest,
    ::testing::Values(
        FilesystemCase{"NTFS", "bitlk-aes-xts-128", "mkntfs", "mkntfs -F -Q -q \"$VOLUME\" $SECTORS", true},
        FilesystemCase{"exFAT", "bitlk-aes-xts-128", "mkfs.exfat", "mkfs.exfat \"$VOLUME\"", true},
        FilesystemCase{"FAT", "bitlk-aes-cbc-elephant-128", "mkfs.vfat", "mkfs.vfat \"$VOLUME\"", false},
        FilesystemCase{"NTFS_Elephant", "bitlk-aes-cbc-elephant-128", "mkntfs", "mkntfs -F -Q -q \"$VOLUME\" $SECTORS",
                       true}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
