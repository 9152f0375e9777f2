// `zq-bitlocker create` as people use it, judged by the field's independent
// readers: cryptsetup's dump and passphrase test, dislocker's decrypted
// file, libbde's bdeinfo, with each credential a new volume has; and the
// targets it refuses.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "engine/CBitlockerVolume.h"
#include "engine/VolumeHeader.h"
#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"

namespace {

constexpr char kPassword[] = "correct horse";
constexpr uint64_t kImageSize = 64 << 20;
constexpr int kUsageError = 64;

std::string Quoted(const std::string& text) { return "'" + text + "'"; }

// A shell command with the system folders, where cryptsetup and mkfs live, on PATH.
ProgramRun Shell(const std::string& command, const std::string& input = "") {
  return RunProgram("/bin/sh", {"-c", "PATH=$PATH:/usr/sbin:/sbin " + command}, input);
}

bool Installed(const std::string& tool) { return Shell("command -v " + tool + " >/dev/null").status == 0; }

ProgramRun Create(const std::vector<std::string>& words, const std::string& input = std::string(kPassword) + "\n") {
  std::vector<std::string> all{"create"};
  all.insert(all.end(), words.begin(), words.end());
  return RunProgram(ZQ_TOOL_FILE, all, input);
}

std::string Digest(const std::string& path) { return Shell("md5sum < " + Quoted(path)).output; }

std::array<uint64_t, 3> MetadataOffsets(const std::string& image) {
  uint8_t sector[512] = {};
  std::ifstream(image, std::ios::binary).read(reinterpret_cast<char*>(sector), sizeof sector);
  auto header = bitlocker::ParseVolumeHeader(sector);
  return header ? header->metadataOffsets : std::array<uint64_t, 3>{};
}

// Writes random data at a few places through the engine, unaligned ones
// too, and returns the whole unlocked volume as the engine then reads it.
std::string WriteRandomAndRead(const std::string& image) {
  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  std::string why;
  if (bitlocker::CBitlockerVolume::Open(image, &volume, &why, bitlocker::Access::kReadWrite) !=
          bitlocker::Status::kOk ||
      volume->Unlock(bitlocker::Credential::Password(kPassword), &unlocked, &why) != bitlocker::Status::kOk) {
    ADD_FAILURE() << why;
    return "";
  }
  std::mt19937 random(7);
  std::vector<uint8_t> data(1 << 20);
  for (uint8_t& byte : data) byte = static_cast<uint8_t>(random());
  for (uint64_t at : {uint64_t{0}, uint64_t{5 << 20} + 123, uint64_t{40 << 20} + 4096})
    EXPECT_EQ(unlocked->Write(at, data.data(), data.size()), static_cast<ssize_t>(data.size()));
  EXPECT_EQ(unlocked->Flush(), 0);
  std::string whole(unlocked->Size(), '\0');
  EXPECT_EQ(unlocked->Read(0, whole.data(), whole.size()), static_cast<ssize_t>(whole.size()));
  return whole;
}

struct CipherCase {
  const char* cipher;
  const char* bitlkMode;
  const char* keyBits;
  // bdeinfo 20190102 cannot open any AES-XTS 256 volume, Windows-made ones
  // included (libyal/libbde#31).
  bool bdeinfoReads;
};

const CipherCase kCiphers[] = {
    {"xts-aes-128", "xts-plain64", "256 bits", true},
    {"xts-aes-256", "xts-plain64", "512 bits", false},
    {"aes-cbc-128", "cbc-eboiv", "128 bits", true},
    {"aes-cbc-256", "cbc-eboiv", "256 bits", true},
};

void PrintTo(const CipherCase& c, std::ostream* out) { *out << c.cipher; }

class CreateTest : public ::testing::TestWithParam<CipherCase> {
 protected:
  void SetUp() override {
    for (const char* tool : {"cryptsetup", "dislocker-file", "bdeinfo"})
      if (!Installed(tool)) GTEST_SKIP() << tool << " is missing (scripts/install-deps.sh installs it)";
  }
};

TEST_P(CreateTest, IndependentReadersOpenTheNewVolume) {
  const TempDir folder;
  const std::string image = folder("new.img"), recoveryFile = folder("recovery.txt"), keys = folder("keys");
  ASSERT_EQ(mkdir(keys.c_str(), 0700), 0);
  const ProgramRun run = Create({"--size", "64M", "--quick", "--cipher", GetParam().cipher, "--recovery-file",
                                 recoveryFile, "--startup-key-dir", keys, "--description", "made by a test", image});
  ASSERT_EQ(run.status, 0) << run.errors;
  // One file, named by an upper-case identifier.
  const std::string keyName = Shell("ls " + Quoted(keys)).output;
  ASSERT_EQ(keyName.size(), 41u) << keyName;
  ASSERT_EQ(Shell("ls " + Quoted(keys) + " | grep -qxE '[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\\.BEK'").status, 0)
      << keyName;
  const std::string startupKey = keys + "/" + keyName.substr(0, keyName.size() - 1);
  EXPECT_NE(run.errors.find("the startup key is in " + startupKey), std::string::npos) << run.errors;
  EXPECT_NE(run.errors.find("were not overwritten"), std::string::npos) << run.errors;
  ASSERT_EQ(run.output.size(), 56u) << run.output;
  const std::string recovery = run.output.substr(0, 55);
  EXPECT_EQ(ReadFile(recoveryFile), run.output);
  struct stat info;
  for (const std::string& secretFile : {recoveryFile, startupKey}) {
    ASSERT_EQ(stat(secretFile.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u) << secretFile;
  }
  ASSERT_EQ(stat(image.c_str(), &info), 0);
  EXPECT_EQ(static_cast<uint64_t>(info.st_size), kImageSize);

  const std::string dump = Shell("cryptsetup bitlkDump " + Quoted(image)).output;
  for (const std::string& expected :
       {std::string("Cipher mode:  \t") + GetParam().bitlkMode, std::string("Cipher key:   \t") + GetParam().keyBits,
        std::string("VMK protected with passphrase"), std::string("VMK protected with recovery passphrase"),
        std::string("VMK protected with startup key"),
        std::string("Description:  \tmade by a test")})
    EXPECT_NE(dump.find(expected), std::string::npos) << expected << " in\n" << dump;
  for (uint64_t offset : MetadataOffsets(image))
    EXPECT_NE(dump.find("Offset: \t" + std::to_string(offset) + " [bytes]"), std::string::npos) << offset << "\n"
                                                                                                << dump;

  const struct {
    std::string secret;
    bool opens;
  } secrets[] = {{kPassword, true}, {recovery, true}, {"not the password", false}};
  for (const auto& s : secrets) {
    const ProgramRun test =
        Shell("cryptsetup open --type bitlk --test-passphrase --key-file=- " + Quoted(image), s.secret);
    EXPECT_EQ(test.status == 0, s.opens) << s.secret << ": " << test.errors;
  }

  EXPECT_EQ(RunProgram(ZQ_TOOL_FILE, {"verify", "--kind", "startup-key", image}, startupKey + "\n").status, 0);
  const std::string ours = WriteRandomAndRead(image);
  // dislocker reads a user password from standard input, but a recovery
  // password only from its argument or a terminal.
  const struct {
    std::string option, input;
  } unlocks[] = {{"-u", std::string(kPassword) + "\n"}, {"-p" + recovery, ""}, {"-f" + Quoted(startupKey), ""}};
  for (const auto& unlock : unlocks) {
    const std::string out = folder("dislocker.img");
    const ProgramRun read =
        Shell("dislocker-file -V " + Quoted(image) + " " + unlock.option + " -- " + Quoted(out), unlock.input);
    EXPECT_EQ(read.status, 0) << read.output << read.errors;
    EXPECT_TRUE(ReadFile(out) == ours) << "dislocker " << unlock.option.substr(0, 2) << " reads the volume otherwise";
    std::remove(out.c_str());
  }

  if (!GetParam().bdeinfoReads) {
    std::cout << "[ NOTE     ] bdeinfo is not asked: version 20190102 opens no AES-XTS 256 volume\n";
    return;
  }
  for (const std::string& option : {"-p " + Quoted(kPassword), "-r " + recovery, "-s " + Quoted(startupKey)}) {
    const ProgramRun info = Shell("bdeinfo " + option + " " + Quoted(image));
    EXPECT_EQ(info.status, 0) << option << ": " << info.output << info.errors;
    EXPECT_EQ(info.errors.find("Unable to unlock"), std::string::npos) << option;
    EXPECT_NE(info.output.find("Description\t\t\t: made by a test"), std::string::npos) << info.output;
  }
  EXPECT_NE(Shell("bdeinfo -p wrong " + Quoted(image)).errors.find("Unable to unlock"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Ciphers, CreateTest, ::testing::ValuesIn(kCiphers), [](const auto& info) {
  std::string name = info.param.cipher;
  for (char& c : name) c = c == '-' ? '_' : c;
  return name;
});

TEST(CreateWipe, LeavesNoOldByteBehind) {
  const TempDir folder;
  const std::string image = folder("old.img");
  constexpr char kMarker[] = "zq-old-contents";
  ASSERT_EQ(RunShell("yes " + std::string(kMarker) + " | head -c " + std::to_string(kImageSize) + " > " + image), 0);
  ASSERT_NE(ReadFile(image).find(kMarker), std::string::npos);

  const ProgramRun run = Create({image});
  ASSERT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.errors.find("not overwritten"), std::string::npos) << run.errors;
  EXPECT_EQ(ReadFile(image).find(kMarker), std::string::npos) << "old contents survive on the device";

  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  std::string why;
  ASSERT_EQ(bitlocker::CBitlockerVolume::Open(image, &volume, &why), bitlocker::Status::kOk) << why;
  ASSERT_EQ(volume->Unlock(bitlocker::Credential::Password(kPassword), &unlocked, &why), bitlocker::Status::kOk) << why;
  std::string whole(unlocked->Size(), '\1');
  ASSERT_EQ(unlocked->Read(0, whole.data(), whole.size()), static_cast<ssize_t>(whole.size()));
  EXPECT_EQ(whole.find_first_not_of('\0'), std::string::npos) << "the new volume does not read as zeros";
}

// The JSON lines of a wipe count from nothing to the whole unlocked volume.
TEST(CreateWipe, TellsItsProgressAsJsonLines) {
  const TempDir folder;
  const std::string image = folder("new.img");
  const ProgramRun run = Create({"--size", "16M", "--progress-json", image});
  ASSERT_EQ(run.status, 0) << run.errors;
  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  std::unique_ptr<bitlocker::CUnlockedVolume> unlocked;
  std::string why;
  ASSERT_EQ(bitlocker::CBitlockerVolume::Open(image, &volume, &why), bitlocker::Status::kOk) << why;
  ASSERT_EQ(volume->Unlock(bitlocker::Credential::Password(kPassword), &unlocked, &why), bitlocker::Status::kOk) << why;
  const ProgramRun lines = Shell(
      "grep '^{' | python3 -c 'import json, sys\n"
      "l = [json.loads(line) for line in sys.stdin]\n"
      "print({x[\"phase\"] for x in l}, {x[\"total\"] for x in l}, l[0][\"done\"], l[-1][\"done\"],"
      " l[-1][\"finished\"])'",
      run.errors);
  const std::string size = std::to_string(unlocked->Size());
  EXPECT_EQ(lines.output, "{'wipe'} {" + size + "} 0 " + size + " True\n") << run.errors << lines.errors;
}

// Ctrl-C at the wipe's first progress line: exit 130, and the target, which
// held a volume before, holds none, not even the old one.
TEST(CreateWipe, InterruptedLeavesNoVolume) {
  const TempDir folder;
  const std::string image = folder("old.img");
  ASSERT_EQ(Create({"--size", "512M", "--quick", image}).status, 0);
  std::unique_ptr<bitlocker::CBitlockerVolume> volume;
  std::string why;
  ASSERT_EQ(bitlocker::CBitlockerVolume::Open(image, &volume, &why), bitlocker::Status::kOk) << why;
  const ProgramRun run = RunProgram(
      "/usr/bin/python3",
      {"-c",
       "import signal, subprocess, sys\n"
       "p = subprocess.Popen(sys.argv[1:], stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE,"
       " text=True)\n"
       "p.stdin.write('" + std::string(kPassword) + "\\n'); p.stdin.close()\n"
       "for line in iter(p.stderr.readline, ''):\n"
       "  if line.startswith('{'): break\n"
       "p.send_signal(signal.SIGINT)\n"
       "rest = p.stderr.read(); print(p.wait(), rest, end='')\n",
       ZQ_TOOL_FILE, "create", "--force", "--progress-json", image});
  EXPECT_EQ(run.output.rfind("130 ", 0), 0u) << run.output << run.errors;
  EXPECT_NE(run.output.find("\"finished\":false"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("zq-bitlocker: interrupted after "), std::string::npos) << run.output;
  EXPECT_EQ(bitlocker::CBitlockerVolume::Open(image, &volume, &why), bitlocker::Status::kNotBitlocker) << why;
}

// At a terminal the password is asked twice without echo; two that differ
// make nothing.
TEST(CreatePassword, IsAskedTwiceAtATerminal) {
  const struct {
    const char* first;
    const char* second;
    int status;
    const char* says;
  } cases[] = {{"same pw", "same pw", 0, "recovery password"},
               {"one pw", "other pw", kUsageError, "the two passwords differ"}};
  for (const auto& c : cases) {
    const TempDir folder;
    const std::string image = folder("typed.img");
    const ProgramRun run = RunProgram(
        "/usr/bin/python3",
        {"-c",
         "import os, pty, sys\n"
         "pid, fd = pty.fork()\n"
         "if pid == 0: os.execv(sys.argv[1], sys.argv[1:2] + ['create', '--size', '16M', '--quick', sys.argv[2]])\n"
         "seen, answers = b'', [sys.argv[3], sys.argv[4]]\n"
         "while True:\n"
         "  try: chunk = os.read(fd, 4096)\n"
         "  except OSError: break\n"
         "  if not chunk: break\n"
         "  seen += chunk\n"
         "  if answers and seen.endswith(b': '): os.write(fd, answers.pop(0).encode() + b'\\n')\n"
         "print(os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]), seen.decode(errors='replace'))\n",
         ZQ_TOOL_FILE, image, c.first, c.second});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output.rfind(std::to_string(c.status) + " ", 0), 0u) << run.output;
    EXPECT_NE(run.output.find(c.says), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find(c.first), std::string::npos) << "the password was echoed: " << run.output;
    if (c.status != 0) {
      EXPECT_NE(access(image.c_str(), F_OK), 0) << "a refused creation left its image behind";
      continue;
    }
    EXPECT_EQ(RunProgram(ZQ_TOOL_FILE, {"verify", "--kind", "password", image}, std::string(c.first) + "\n").status, 0);
  }
}

// A target made by `setup` (IMG, REC, DIR: the image, recovery file and
// startup key folder paths)
// that create must refuse without touching it, and whether --force then
// makes the volume anyway.
struct Refusal {
  const char* name;
  const char* setup;
  std::vector<std::string> words;
  const char* reason;
  bool forceMakes;
};

const Refusal kRefusals[] = {
    {"ext", "truncate -s 64M IMG && mkfs.ext4 -q -F IMG", {}, "holds a file system (ext): give --force", true},
    {"fat", "truncate -s 64M IMG && mkfs.fat IMG >/dev/null", {}, "holds a file system (FAT): give --force", true},
    {"ntfs", "truncate -s 64M IMG && mkfs.ntfs -Q -q -F IMG >/dev/null", {}, "holds a file system (NTFS)", true},
    {"partitions",
     "truncate -s 64M IMG && printf 'label: dos\\nstart=2048, type=83\\n' | sfdisk -q IMG",
     {},
     "holds a partition table",
     true},
    {"bitlocker",
     "truncate -s 64M IMG && printf 'pw\\n' | ZQ create --quick IMG >/dev/null 2>&1",
     {},
     "holds a BitLocker volume",
     true},
    {"size_on_existing",
     "truncate -s 64M IMG",
     {"--size", "64M"},
     "exists: --size is only for a new image file",
     false},
    {"missing_without_size", "true", {}, "does not exist: give --size", false},
    {"recovery_file_exists",
     "truncate -s 64M IMG && echo keep > REC",
     {"--recovery-file", "REC"},
     "exists: the recovery password is never written over a file",
     false},
    {"startup_key_dir_missing",
     "truncate -s 64M IMG",
     {"--startup-key-dir", "DIR"},
     "is no folder: --startup-key-dir names an existing one",
     false},
    {"startup_key_dir_is_a_file",
     "truncate -s 64M IMG && echo keep > DIR",
     {"--startup-key-dir", "DIR"},
     "is no folder: --startup-key-dir names an existing one",
     false},
};

void PrintTo(const Refusal& refusal, std::ostream* out) { *out << refusal.name; }

class CreateRefusalTest : public ::testing::TestWithParam<Refusal> {};

TEST_P(CreateRefusalTest, LeavesTheTargetAlone) {
  const TempDir folder;
  const std::string image = folder("target.img"), recoveryFile = folder("recovery.txt"), keys = folder("keys");
  auto fill = [&](std::string text) {
    for (const auto& [from, to] : {std::pair<std::string, std::string>{"IMG", image},
                                   {"REC", recoveryFile},
                                   {"DIR", keys},
                                   {"ZQ", ZQ_TOOL_FILE}})
      for (size_t at; (at = text.find(from)) != std::string::npos;) text.replace(at, from.size(), to);
    return text;
  };
  const ProgramRun setup = Shell(fill(GetParam().setup));
  ASSERT_EQ(setup.status, 0) << setup.errors;
  std::vector<std::string> words;
  for (const std::string& word : GetParam().words) words.push_back(fill(word));
  words.push_back(image);
  auto keysState = [&] { return std::to_string(access(keys.c_str(), F_OK)) + ReadFile(keys); };
  const std::string before = Digest(image), recoveryBefore = ReadFile(recoveryFile), keysBefore = keysState();

  const ProgramRun run = Create(words);
  EXPECT_EQ(run.status, kUsageError) << run.errors;
  EXPECT_NE(run.errors.find(GetParam().reason), std::string::npos) << run.errors;
  EXPECT_EQ(run.output, "");
  EXPECT_EQ(Digest(image), before);
  EXPECT_EQ(ReadFile(recoveryFile), recoveryBefore);
  EXPECT_EQ(keysState(), keysBefore);

  if (!GetParam().forceMakes) return;
  words.insert(words.begin(), {"--force", "--quick"});
  const ProgramRun forced = Create(words);
  EXPECT_EQ(forced.status, 0) << forced.errors;
  EXPECT_TRUE(bitlocker::CBitlockerVolume::IsBitlocker(image));
}

INSTANTIATE_TEST_SUITE_P(Targets, CreateRefusalTest, ::testing::ValuesIn(kRefusals),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(CreateRefusal, MountedTargetUnderAnyName) {
  const std::string why = LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  if (!Installed("mkfs.ext4")) GTEST_SKIP() << "mkfs.ext4 is missing";
  const TempDir folder;
  const std::string image = folder("mounted.img"), mountPoint = folder("mnt");
  ASSERT_EQ(Shell("truncate -s 64M " + image + " && mkfs.ext4 -q -F " + image + " && mkdir " + mountPoint).status, 0);
  LoopDevice loop(image);
  ASSERT_TRUE(loop.valid());
  ASSERT_TRUE(loop.Mount(mountPoint, "ext4"));
  const std::string before = Digest(image);
  for (const std::string& target : {image, loop.devicePath()}) {
    const ProgramRun run = Create({"--force", "--quick", target});
    EXPECT_EQ(run.status, kUsageError) << target << ": " << run.errors;
    EXPECT_NE(run.errors.find("is mounted at " + mountPoint), std::string::npos) << run.errors;
  }
  EXPECT_EQ(Digest(image), before);
}

TEST(CreateRefusal, DeviceOfOtherSectorSize) {
  const std::string why = LoopDevicesUnavailable();
  if (!why.empty()) GTEST_SKIP() << why;
  const TempDir folder;
  const std::string image = folder("4k.img");
  ASSERT_EQ(RunShell("truncate -s 64M " + image), 0);
  LoopDevice loop(image, 4096);
  ASSERT_TRUE(loop.valid());
  const ProgramRun run = Create({"--quick", loop.devicePath()});
  EXPECT_EQ(run.status, kUsageError) << run.errors;
  EXPECT_NE(run.errors.find("has 4096-byte sectors"), std::string::npos) << run.errors;
  EXPECT_FALSE(bitlocker::CBitlockerVolume::IsBitlocker(image));
}

}  // namespace
