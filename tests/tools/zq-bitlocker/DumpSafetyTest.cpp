// What a dump may never do, whatever the user types: write over the
// storage of the volume it reads, leave a partial file under the name
// asked for, or leave the terminal without echo.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "bitlocker/BitlockerStatus.h"
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

// Each output that holds the volume's bytes under another name is refused
// with --force, before the volume is even opened; a sibling partition,
// which holds none of them, is not.
TEST(ZqBitlockerDump, RefusesEveryNameOfTheVolumesOwnStorage) {
  const std::string unavailable = LoopDevicesUnavailable();
  if (!unavailable.empty()) GTEST_SKIP() << unavailable;
  TempDir folder;
  const std::string disk = folder("disk.img"), image = folder("volume.img"), node = "mknod " + folder.path() + "/";
  ASSERT_EQ(RunShell("truncate -s 8M " + disk + " " + image + " && ln -s volume.img " + folder("link") +
                     " && printf 'start=2048, size=4096\\nstart=6144\\n' | sfdisk -q " + disk),
            0);
  LoopDevice loop(image), partitioned(disk);
  ASSERT_TRUE(loop.valid() && partitioned.valid());
  const PartitionsRemoved removed{partitioned.devicePath()};
  // The kernel may have read the table already, and no udev makes nodes.
  const std::string sysfs = "/sys/block/" + partitioned.bsdName() + "/" + partitioned.bsdName();
  ASSERT_EQ(RunShell("partx -a " + partitioned.devicePath() + " 2>/dev/null; " + node + "part1 b $(tr : ' ' <" +
                     sysfs + "p1/dev) && " + node + "part2 b $(tr : ' ' <" + sysfs + "p2/dev) && " + node +
                     "loop b $(tr : ' ' </sys/block/" + loop.bsdName() + "/dev)"),
            0);
  const std::pair<std::string, std::string> outputAndVolume[] = {
      {image, image},
      {folder("link"), image},
      {loop.devicePath(), image},
      {image, loop.devicePath()},
      {folder("loop"), loop.devicePath()},
      {partitioned.devicePath(), folder("part2")},
      {disk, folder("part2")},
      {folder("part1"), partitioned.devicePath()},
  };
  for (const auto& [output, volume] : outputAndVolume) {
    const ProgramRun run = RunProgram(ZQ_TOOL_FILE, {"dump", "--force", "--output", output, volume});
    EXPECT_EQ(run.status, 64) << output << " for " << volume << ": " << run.errors;
  }
  EXPECT_EQ(RunProgram(ZQ_TOOL_FILE, {"dump", "--force", "--output", folder("part1"), folder("part2")}).status,
            bitlocker::kNotBitlocker);
}

// What python3 prints running `script` with the words after it.
ProgramRun Python(const std::string& script, const std::vector<std::string>& words) {
  std::vector<std::string> all{"-c", script};
  all.insert(all.end(), words.begin(), words.end());
  return RunProgram("/usr/bin/python3", all);
}

// Interrupted at its first progress line, a dump says how far it came and
// leaves the file it was to replace as it was, with nothing beside it.
TEST(ZqBitlockerDump, InterruptedLeavesNoPartialFile) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  TempDir folder;
  std::ofstream(folder("plain.img")) << "earlier";
  const ProgramRun run = Python(
      "import signal, subprocess, sys\n"
      "p = subprocess.Popen(sys.argv[2:], stdin=subprocess.PIPE, stderr=subprocess.PIPE, text=True)\n"
      "p.stdin.write(sys.argv[1] + '\\n'); p.stdin.close()\n"
      "p.stderr.readline(); p.send_signal(signal.SIGINT)\n"
      "rest = p.stderr.read(); print(p.wait(), rest, end='')\n",
      {image->password, ZQ_TOOL_FILE, "dump", "--progress-json", "--force", "--output", folder("plain.img"),
       image->path});
  EXPECT_EQ(run.output.rfind("130 ", 0), 0u) << run.output << run.errors;
  EXPECT_NE(run.output.find("zq-bitlocker: interrupted after "), std::string::npos) << run.output;
  EXPECT_EQ(ReadFile(folder("plain.img")), "earlier");
  EXPECT_EQ(RunShell("test \"$(ls " + folder.path() + ")\" = plain.img"), 0) << "a partial file is left";
}

// Ctrl-C at a no-echo credential prompt, in dash: the terminal echoes
// again for the next command, as `stty -a` shows.
TEST(CredentialPrompt, InterruptRestoresEcho) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  if (RunShell("command -v dash >/dev/null && test -b /dev/loop0") != 0) GTEST_SKIP() << "dash or /dev/loop0 is missing";
  for (const std::vector<std::string>& command :
       {std::vector<std::string>{ZQ_TOOL_FILE, "verify", image->path}, {ZQCTL_FILE, "explore", "loop0"}}) {
    const ProgramRun run = Python(
        "import os, pty, sys\n"
        "pid, fd = pty.fork()\n"
        "if pid == 0: os.execv('/usr/bin/dash', ['dash', '-c', 'trap : INT; \"$@\"; stty -a', 'dash'] + sys.argv[1:])\n"
        "seen, sent = b'', False\n"
        "while True:\n"
        "  try: chunk = os.read(fd, 4096)\n"
        "  except OSError: break\n"
        "  if not chunk: break\n"
        "  seen += chunk\n"
        "  if b': ' in seen and not sent: os.write(fd, b'\\x03'); sent = True\n"
        "print(sent, seen.decode(errors='replace'))\n",
        command);
    EXPECT_EQ(run.output.rfind("True ", 0), 0u) << command[0] << ": " << run.output << run.errors;
    EXPECT_NE(run.output.find(" echo "), std::string::npos) << command[0] << ": " << run.output;
  }
}

}  // namespace
