// What a dump may never do, whatever the user types: write over the
// storage of the volume it reads, leave a partial file under the name
// asked for, or leave the terminal without echo.
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestImages.h"

namespace {

// The kernel keeps a loop device's partitions after it is detached; they
// are removed first.
struct PartitionsRemoved {
  std::string device;
  ~PartitionsRemoved() { RunShell("partx -d " + device + " 2>/dev/null"); }
};

// A device node in `folder` for the device whose number sysfs gives in
// `sysfsDev` ("/sys/block/loop3/loop3p2/dev"): another name of that device.
std::string NodeFor(const TempDir& folder, const std::string& name, const std::string& sysfsDev) {
  const std::string node = folder(name);
  EXPECT_EQ(RunShell("mknod '" + node + "' b $(tr : ' ' <" + sysfsDev + ")"), 0) << sysfsDev;
  return node;
}

// Each output that is the volume's own storage under another name, given
// with --force: refused before anything is read or written.
TEST(ZqBitlockerDump, RefusesEveryNameOfTheVolumesOwnStorage) {
  ZQ_REQUIRE_IMAGES(images);
  const std::string unavailable = LoopDevicesUnavailable();
  if (!unavailable.empty()) GTEST_SKIP() << unavailable;
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  ASSERT_TRUE(image) << why;
  TempDir folder;
  // A disk whose second partition holds the volume, with the kernel's
  // partitions of it.
  const std::string disk = folder("disk.img");
  ASSERT_EQ(RunShell("truncate -s 300M " + disk +
                     " && printf 'label: dos\\nstart=2048, size=40960\\nstart=43008, size=204800, type=7\\n' | "
                     "sfdisk -q " + disk + " && dd if='" + image->path + "' of=" + disk +
                     " bs=512 seek=43008 conv=sparse,notrunc status=none"),
            0);
  const std::string copy = folder("volume.img");
  ASSERT_EQ(RunShell("cp --sparse=always '" + image->path + "' " + copy + " && ln -s volume.img " + folder("link")), 0);
  LoopDevice loop(copy), partitioned(disk);
  ASSERT_TRUE(loop.valid() && partitioned.valid());
  // The kernel may have read the table already.
  const std::string sysfs = "/sys/block/" + partitioned.bsdName() + "/" + partitioned.bsdName();
  const PartitionsRemoved removed{partitioned.devicePath()};
  ASSERT_EQ(RunShell("partx -a " + partitioned.devicePath() + " 2>/dev/null; test -e " + sysfs + "p2/dev"), 0);
  const std::string part1 = NodeFor(folder, "part1", sysfs + "p1/dev");
  const std::string part2 = NodeFor(folder, "part2", sysfs + "p2/dev");
  const std::string sameLoop = NodeFor(folder, "same-loop", "/sys/block/" + loop.bsdName() + "/dev");
  const std::string volumeOffset = std::to_string(43008 * 512);

  const struct {
    const char* what;
    std::vector<std::string> words;
  } cases[] = {
      {"the same file", {"--output", copy, copy}},
      {"the same file through a link", {"--output", folder("link"), copy}},
      {"the loop device over the image", {"--output", loop.devicePath(), copy}},
      {"the image behind the loop device", {"--output", copy, loop.devicePath()}},
      {"another node of the same device", {"--output", sameLoop, loop.devicePath()}},
      {"the disk of the partition", {"--output", partitioned.devicePath(), part2}},
      {"the image behind the partition's disk", {"--output", disk, part2}},
      {"a partition of the disk", {"--offset", volumeOffset, "--output", part1, partitioned.devicePath()}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    std::vector<std::string> words{"dump", "--force"};
    words.insert(words.end(), c.words.begin(), c.words.end());
    const ProgramRun run = RunProgram(ZQ_TOOL_FILE, words, image->password + "\n");
    EXPECT_EQ(run.status, 64) << run.errors;
    EXPECT_NE(run.errors.find(" is where the volume itself is stored"), std::string::npos) << run.errors;
  }
  for (const std::string& source : {copy, part2}) {
    const ProgramRun info = RunProgram(ZQ_TOOL_FILE, {"verify", source}, image->password + "\n");
    EXPECT_EQ(info.status, 0) << source << ": " << info.errors;
  }
  // Not the same storage: a different loop device of a copy is dumped to.
  const std::string other = folder("other.img");
  ASSERT_EQ(RunShell("truncate -s 100M " + other), 0);
  LoopDevice otherLoop(other);
  ASSERT_TRUE(otherLoop.valid());
  EXPECT_EQ(RunProgram(ZQ_TOOL_FILE, {"dump", "--force", "--output", otherLoop.devicePath(), copy},
                       image->password + "\n").status,
            0);
}

// What python3 prints running `script` with the words after it.
ProgramRun Python(const std::string& script, const std::vector<std::string>& words) {
  std::vector<std::string> all{"-c", script};
  all.insert(all.end(), words.begin(), words.end());
  return RunProgram("/usr/bin/python3", all);
}

// Interrupted at its first progress line, a dump says how far it came and
// leaves the file it replaces as it was, with nothing beside it.
TEST(ZqBitlockerDump, InterruptedLeavesNoPartialFile) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  TempDir folder;
  for (const bool existing : {false, true}) {
    SCOPED_TRACE(existing ? "replacing a file" : "a new file");
    const std::string out = folder("plain.img");
    if (existing) std::ofstream(out) << "earlier";
    const ProgramRun run = Python(
        "import signal, subprocess, sys\n"
        "p = subprocess.Popen(sys.argv[2:], stdin=subprocess.PIPE, stderr=subprocess.PIPE, text=True)\n"
        "p.stdin.write(sys.argv[1] + '\\n'); p.stdin.close()\n"
        "p.stderr.readline(); p.send_signal(signal.SIGINT)\n"
        "rest = p.stderr.read(); print(p.wait()); print(rest, end='')\n",
        {image->password, ZQ_TOOL_FILE, "dump", "--progress-json", "--force", "--output", out, image->path});
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output.rfind("130\n", 0), 0u) << run.output;
    EXPECT_NE(run.output.find("zq-bitlocker: interrupted after "), std::string::npos) << run.output;
    EXPECT_TRUE(existing ? ReadFile(out) == "earlier" : access(out.c_str(), F_OK) != 0);
    EXPECT_EQ(RunShell("test $(ls '" + folder.path() + "' | wc -l) = " + (existing ? "1" : "0")), 0);
    RunShell("rm -f '" + out + "'");
  }
}

// Ctrl-C at a no-echo credential prompt, in dash: the terminal echoes
// again for the next command, as `stty -a` shows.
TEST(CredentialPrompt, InterruptRestoresEcho) {
  if (RunShell("command -v dash >/dev/null") != 0) GTEST_SKIP() << "dash is missing";
  struct stat device;
  const bool haveLoop0 = stat("/dev/loop0", &device) == 0 && S_ISBLK(device.st_mode);
  TempDir folder;
  const std::string volume = folder("volume.img");
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  std::vector<std::vector<std::string>> commands{{ZQ_TOOL_FILE, "verify", image->path}};
  if (haveLoop0) commands.push_back({ZQCTL_FILE, "explore", "loop0"});
  for (const auto& command : commands) {
    SCOPED_TRACE(command[0]);
    const ProgramRun run = Python(
        "import os, pty, sys\n"
        "pid, fd = pty.fork()\n"
        "if pid == 0:\n"
        "  os.execv('/usr/bin/dash', ['dash', '-c', 'trap : INT; \"$@\"; stty -a', 'dash'] + sys.argv[1:])\n"
        "seen = b''\n"
        "while b': ' not in seen:\n"
        "  chunk = os.read(fd, 100)\n"
        "  if not chunk: sys.exit('no prompt: ' + seen.decode(errors='replace'))\n"
        "  seen += chunk\n"
        "os.write(fd, b'\\x03')\n"
        "try:\n"
        "  while True:\n"
        "    chunk = os.read(fd, 4096)\n"
        "    if not chunk: break\n"
        "    seen += chunk\n"
        "except OSError: pass\n"
        "print(seen.decode(errors='replace'))\n",
        command);
    ASSERT_EQ(run.status, 0) << run.errors;
    EXPECT_NE(run.output.find(" echo "), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("-echo "), std::string::npos) << run.output;
  }
}

}  // namespace
