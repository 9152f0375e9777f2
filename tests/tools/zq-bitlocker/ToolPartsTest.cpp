// zq-bitlocker's parts where a fault hides from the whole program's tests:
// partition tables no tool writes, JSON escapes, progress timing.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "engine/Bytes.h"
#include "tools/zq-bitlocker/PartitionTable.h"
#include "tools/zq-bitlocker/WriteProgress.h"
#include "util/JsonWriter.h"

namespace {

class MemorySource : public bitlocker::IByteSource {
 public:
  explicit MemorySource(size_t size) : bytes(size, 0) {}
  uint64_t Size() const override { return bytes.size(); }
  bool ReadAt(uint64_t offset, void* buffer, size_t length) const override {
    if (offset + length > bytes.size()) return false;
    std::memcpy(buffer, bytes.data() + offset, length);
    return true;
  }
  std::vector<uint8_t> bytes;
};

// One entry of the MBR or extended boot record at `record`.
void PutMbrEntry(MemorySource* disk, uint64_t record, int index, uint8_t type, uint32_t first, uint32_t count) {
  uint8_t* entry = disk->bytes.data() + record + 446 + 16 * index;
  entry[4] = type;
  bitlocker::StoreLe32(first, entry + 8);
  bitlocker::StoreLe32(count, entry + 12);
  disk->bytes[record + 510] = 0x55;
  disk->bytes[record + 511] = 0xaa;
}

TEST(PartitionTable, ReadsWhatNoPartitioningToolHereWrites) {
  const struct {
    const char* name;
    void (*build)(MemorySource*);
    std::vector<std::pair<unsigned, uint64_t>> expected;  // number, offset
  } cases[] = {
      {"an extended boot record that names itself as the next ends the chain",
       [](MemorySource* disk) {
         PutMbrEntry(disk, 0, 0, 0x0f, 8, 64);
         PutMbrEntry(disk, 8 * 512, 0, 0x07, 2, 8);
         PutMbrEntry(disk, 8 * 512, 1, 0x05, 16, 16);
         PutMbrEntry(disk, 24 * 512, 0, 0x07, 2, 8);
         PutMbrEntry(disk, 24 * 512, 1, 0x05, 16, 16);
       },
       {{5, 10 * 512}, {6, 26 * 512}}},
      {"a boot sector's code where the entries would be is no table",
       [](MemorySource* disk) {
         PutMbrEntry(disk, 0, 0, 0x07, 8, 8);
         disk->bytes[446] = 0x33;
       },
       {}},
      {"GPT on 4096-byte sectors: header after the first 4096 bytes, entries counted in them",
       [](MemorySource* disk) {
         PutMbrEntry(disk, 0, 0, 0xee, 1, 0xffffffff);
         uint8_t* header = disk->bytes.data() + 4096;
         std::memcpy(header, "EFI PART", 8);
         bitlocker::StoreLe64(2, header + 72);
         bitlocker::StoreLe32(4, header + 80);
         bitlocker::StoreLe32(128, header + 84);
         uint8_t* second = disk->bytes.data() + 2 * 4096 + 128;
         second[0] = 0xa2;
         bitlocker::StoreLe64(6, second + 32);
         bitlocker::StoreLe64(1000, second + 40);
       },
       {{2, 6 * 4096}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MemorySource disk(1 << 16);
    c.build(&disk);
    std::vector<std::pair<unsigned, uint64_t>> found;
    for (const Partition& partition : ReadPartitionTable(disk, 512)) {
      found.emplace_back(partition.number, partition.offset);
      EXPECT_LE(partition.offset + partition.size, disk.Size()) << "a partition reaches past the disk's end";
    }
    EXPECT_EQ(found, c.expected);
  }
}

TEST(JsonQuoted, EscapesWhatJsonForbidsAndNeverPassesBrokenUtf8) {
  const struct {
    std::string text, quoted;
  } cases[] = {
      {"C: \"data\\x\"", R"("C: \"data\\x\"")"},
      {"a\nb\t\x01\x7f", R"("a\nb\t\u0001\u007f")"},
      {"H\xc3\xa9l\xe2\x82\xac \xf0\x9f\x94\x91", "\"H\xc3\xa9l\xe2\x82\xac \xf0\x9f\x94\x91\""},
      {"\xff|\xc3|\xc0\xaf|\xed\xa0\x80", R"("\ufffd|\ufffd|\ufffd\ufffd|\ufffd\ufffd\ufffd")"},
  };
  for (const auto& c : cases) EXPECT_EQ(JsonQuoted(c.text), c.quoted);
}

TEST(WriteProgress, ShowsTwiceASecondAtMostAndEndsWithTheWholeStory) {
  using std::chrono::milliseconds;
  const WriteProgress::Clock::time_point start;
  const struct {
    WriteWork work;
    const char* jsonStart;
    const char* summary;
  } cases[] = {
      {kDumping, "{\"phase\":\"dump\",", "zq-bitlocker: dumped 3000000 bytes in 1.5 s, 2.0 MB/s\n"},
      {kWiping, "{\"phase\":\"wipe\",", "zq-bitlocker: wiped 3000000 bytes in 1.5 s, 2.0 MB/s\n"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.work.phase);
    std::ostringstream json, whole, stopped;
    WriteProgress lines(test.work, 1000, ProgressStyle::kJson, json, start);
    lines.Update(100, start + milliseconds(100));
    lines.Update(200, start + milliseconds(400));
    lines.Update(500, start + milliseconds(1000));
    lines.Finish(1000, start + milliseconds(2000));
    const std::string first = test.jsonStart;
    EXPECT_EQ(json.str(), first + "\"done\":100,\"total\":1000,\"bytes_per_second\":1000,\"seconds_left\":0}\n" +
                              first + "\"done\":500,\"total\":1000,\"bytes_per_second\":500,\"seconds_left\":1}\n" +
                              first +
                              "\"done\":1000,\"total\":1000,\"bytes_per_second\":500,\"seconds_left\":0,"
                              "\"seconds\":2.000,\"finished\":true}\n");
    WriteProgress done(test.work, 3000000, ProgressStyle::kSummary, whole, start);
    done.Update(1000, start + milliseconds(900));
    done.Finish(3000000, start + milliseconds(1500));
    EXPECT_EQ(whole.str(), test.summary);
    WriteProgress quiet(test.work, 4000000, ProgressStyle::kSummary, stopped, start);
    quiet.Finish(3000000, start + milliseconds(1500));
    EXPECT_EQ(stopped.str(), "zq-bitlocker: stopped after 3000000 bytes in 1.5 s, 2.0 MB/s\n");
  }
}

}  // namespace
