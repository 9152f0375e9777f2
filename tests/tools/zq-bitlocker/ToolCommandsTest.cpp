// zq-bitlocker as people and scripts use it: finding volumes inside whole
// disks, opening them there, and the output programs parse.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/FileContents.h"
#include "tests/support/LoopDevice.h"
#include "tests/support/ProgramRun.h"
#include "tests/support/StubBundle.h"
#include "tests/support/TempDir.h"
#include "tests/support/TestImages.h"

namespace {

constexpr uint64_t kImageSize = 104857600;

// What python3 prints running `script` with `input` on standard input.
std::string Python(const std::string& script, const std::string& input, const std::string& argument = "") {
  const ProgramRun run = RunProgram("/usr/bin/python3", {"-c", script, argument}, input);
  EXPECT_EQ(run.status, 0) << run.errors;
  return run.output;
}

// "device partition offset size kind mounted" a volume, from `list --json`.
std::string ListedVolumes(const std::vector<std::string>& words) {
  const ProgramRun run = RunProgram(ZQ_TOOL_FILE, words);
  return Python(
      "import json,sys\n"
      "for v in json.load(sys.stdin)['volumes']: print(v['device'], v['partition'], v['offset'], v['size'], v['kind'], v['mounted'])",
      run.output);
}

// A 300 MB disk image partitioned by sfdisk from `layout`, with `image`
// copied (sparse) into the partition that starts at sector `start`.
std::string MakeDisk(const TempDir& folder, const std::string& layout, const std::string& image, uint64_t start) {
  const std::string disk = folder("disk.img");
  EXPECT_EQ(RunShell("rm -f " + disk + " && truncate -s 300M " + disk + " && printf '" + layout + "' | sfdisk -q " +
                     disk + " && dd if='" + image + "' of=" + disk + " bs=512 seek=" + std::to_string(start) +
                     " conv=sparse,notrunc status=none"),
            0);
  return disk;
}

struct DiskCase {
  const char* layout;
  const char* image;
  uint64_t start;  // sector of the BitLocker partition
  unsigned partition;
  const char* kind;
};

const DiskCase kDisks[] = {
    {"label: dos\\nstart=2048, size=40960, type=83\\nstart=43008, size=204800, type=7\\n", "bitlk-aes-xts-128", 43008,
     2, "Windows 7+"},
    {"label: dos\\nstart=2048, size=20480, type=83\\nstart=24576, type=5\\nstart=26624, size=20480, type=83\\n"
     "start=49152, size=204800, type=7\\n",
     "bitlk-aes-cbc-128", 49152, 6, "Windows 7+"},
    {"label: gpt\\nstart=2048, size=20480\\nstart=24576, size=204800\\n", "bitlk-togo-aes-xts-128", 24576, 2, "To Go"},
};

bool HaveSfdisk() { return RunShell("command -v sfdisk >/dev/null") == 0; }

TEST(ZqBitlockerList, FindsVolumesInPartitionedDisksAndTheOtherCommandsOpenThemAtTheOffset) {
  ZQ_REQUIRE_IMAGES(images);
  if (!HaveSfdisk()) GTEST_SKIP() << "sfdisk (package fdisk) is missing";
  TempDir folder;
  for (const DiskCase& c : kDisks) {
    SCOPED_TRACE(c.image);
    std::string why;
    const testimages::Image* image = testimages::FindImage(c.image, &why);
    ASSERT_TRUE(image) << why;
    const std::string disk = MakeDisk(folder, c.layout, image->path, c.start);
    const std::string offset = std::to_string(c.start * 512);
    EXPECT_EQ(ListedVolumes({"list", "--json", disk}),
              disk + " " + std::to_string(c.partition) + " " + offset + " " + std::to_string(kImageSize) + " " +
                  c.kind + " False\n");

    // The volume ends where its partition does, not with the disk.
    const ProgramRun info = RunProgram(ZQ_TOOL_FILE, {"info", "--offset", offset, disk});
    EXPECT_EQ(info.status, 0) << info.errors;
    EXPECT_NE(info.output.find(image->volumeGuid), std::string::npos) << info.output;
    EXPECT_NE(info.output.find("Device size:       " + std::to_string(kImageSize) + " bytes"), std::string::npos);

    const ProgramRun whole = RunProgram(ZQ_TOOL_FILE, {"info", disk});
    EXPECT_EQ(whole.status, 1);
    EXPECT_NE(whole.errors.find("give --offset " + offset), std::string::npos) << whole.errors;
  }
}

TEST(ZqBitlockerList, ScansTheMachinesDevicesReadsTheTablesTheKernelDidNotAndSeesMounts) {
  ZQ_REQUIRE_IMAGES(images);
  const std::string unavailable = LoopDevicesUnavailable();
  if (!unavailable.empty()) GTEST_SKIP() << unavailable;
  if (!HaveSfdisk()) GTEST_SKIP() << "sfdisk (package fdisk) is missing";
  TempDir folder;
  const DiskCase& c = kDisks[0];
  std::string why;
  const testimages::Image* found = testimages::FindImage(c.image, &why);
  ASSERT_NE(found, nullptr) << why;
  const std::string image = found->path;
  LoopDevice partitioned(MakeDisk(folder, c.layout, image, c.start), 0, true);
  LoopDevice whole(image, 0, true);
  ASSERT_TRUE(partitioned.valid() && whole.valid());
  // Any mount whose source names the device, as our FUSE mounter's do.
  RunShell("mkdir " + folder("mounted"));
  ASSERT_TRUE(whole.Mount(folder("mounted"), "tmpfs"));
  const std::string size = " " + std::to_string(kImageSize) + " " + c.kind;
  for (const std::string& listed : {ListedVolumes({"list", "--json"}), ListedVolumes({"scan", "--json"})}) {
    EXPECT_NE(listed.find(partitioned.devicePath() + " 2 " + std::to_string(c.start * 512) + size + " False\n"),
              std::string::npos)
        << listed;
    EXPECT_NE(listed.find(whole.devicePath() + " 0 0" + size + " True\n"), std::string::npos) << listed;
  }
  // Named through a link, the device is still the one the mount names.
  ASSERT_EQ(RunShell("ln -s " + whole.devicePath() + " " + folder("link")), 0);
  EXPECT_EQ(ListedVolumes({"list", "--json", folder("link")}), folder("link") + " 0 0" + size + " True\n");
}

TEST(ZqBitlockerTool, FollowsTheCommandLineConventions) {
  const struct {
    std::vector<std::string> words;
    int status;
    std::string outputStarts, errorsStart;
  } cases[] = {
      {{"--version"}, 0, "zq-bitlocker 1.", ""},
      {{"-h"}, 0, "usage: zq-bitlocker", ""},
      {{"dump", "--help"}, 0, "usage: zq-bitlocker", ""},
      {{"--foo"}, 64, "", "zq-bitlocker: unknown option '--foo'"},
      {{"info", "--foo", "disk"}, 64, "", "zq-bitlocker: unknown option '--foo'"},
      {{"info", "--offset", "12x", "disk"}, 64, "", "zq-bitlocker: '12x'"},
      {{"info", "--progress-json", "disk"}, 64, "", "zq-bitlocker: '--progress-json'"},
      {{"verify", "disk", "other"}, 64, "", "zq-bitlocker: unexpected argument 'other'"},
      {{"create", "--size", "12Q", "new.img"}, 64, "", "zq-bitlocker: '12Q' is no size for --size"},
      {{"create", "--size", "0", "new.img"}, 64, "", "zq-bitlocker: '0' is no size for --size"},
      {{"create", "--cipher", "aes-cbc-128-diffuser", "new.img"}, 64, "", "zq-bitlocker: unknown cipher"},
      {{"info", "--quick", "disk"}, 64, "", "zq-bitlocker: '--quick' does not apply to info"},
      {{"create"}, 64, "", "zq-bitlocker: create needs a DEVICE"},
      {{"list", testimages::ScratchFolder() + "/missing"}, 1, "", "zq-bitlocker: " + testimages::ScratchFolder()},
  };
  for (const auto& c : cases) {
    const ProgramRun run = RunProgram(ZQ_TOOL_FILE, c.words);
    SCOPED_TRACE(c.words.front() + " " + c.words.back());
    EXPECT_EQ(run.status, c.status);
    EXPECT_EQ(run.output.rfind(c.outputStarts, 0), 0u) << run.output;
    EXPECT_EQ(run.errors.rfind(c.errorsStart, 0), 0u) << run.errors;
  }
}

TEST(ZqBitlockerTool, ItsJsonParsesAndSaysWhatItsTextSays) {
  std::string why;
  const testimages::Image* image = testimages::FindImage("bitlk-aes-xts-128", &why);
  if (!image) GTEST_SKIP() << why;
  const ProgramRun text = RunProgram(ZQ_TOOL_FILE, {"info", image->path});
  const ProgramRun json = RunProgram(ZQ_TOOL_FILE, {"info", "--json", image->path});
  ASSERT_EQ(json.status, 0) << json.errors;
  // Every value of the JSON is in the text, numbers in decimal or in hex.
  EXPECT_EQ(Python("import json,sys\n"
                   "def leaves(v):\n"
                   "  if isinstance(v, dict): v = list(v.values())\n"
                   "  return [x for e in v for x in leaves(e)] if isinstance(v, list) else [v]\n"
                   "d = json.load(sys.stdin); t = sys.argv[1]\n"
                   "print(len(d['key_protectors']), [v for v in leaves(d) if str(v) not in t and\n"
                   "      not (isinstance(v, int) and hex(v) in t)])",
                   json.output, text.output),
            "2 []\n");

  const std::string out = testimages::ScratchFolder() + "/progress.img";
  const ProgramRun dump = RunProgram(ZQ_TOOL_FILE, {"dump", "--progress-json", "--output", out, image->path},
                                     image->password + "\n");
  EXPECT_EQ(dump.status, 0) << dump.errors;
  EXPECT_EQ(Python("import json,sys\n"
                   "lines = [json.loads(line) for line in sys.stdin.read().splitlines()]\n"
                   "print(lines[-1]['finished'], lines[-1]['done'], set(l['total'] for l in lines))",
                   dump.errors),
            "True " + std::to_string(kImageSize) + " {" + std::to_string(kImageSize) + "}\n");
  const ProgramRun plain =
      RunProgram(ZQ_TOOL_FILE, {"dump", "--force", "--output", out, image->path}, image->password + "\n");
  EXPECT_EQ(plain.errors.rfind("zq-bitlocker: dumped " + std::to_string(kImageSize) + " bytes in ", 0), 0u)
      << plain.errors;
}

}  // namespace
