// A client sending mount or explore requests in a burst, tried against the
// real service with a mounter and an explorer that take their time.
#include <dirent.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <map>
#include <thread>

#include "tests/service/ServiceClients.h"
#include "tests/support/FileContents.h"

namespace {

// How many processes run the bundle's `program` now; a stand-in's own
// subshells are not counted.
int Running(const std::string& program) {
  std::map<std::string, std::string> parents;  // of each process running it
  DIR* processes = opendir("/proc");
  while (dirent* entry = processes != nullptr ? readdir(processes) : nullptr) {
    const std::string process = std::string("/proc/") + entry->d_name;
    if (ReadFile(process + "/cmdline").find("/Contents/MacOS/" + program + '\0') == std::string::npos) continue;
    // "pid (name) state ppid ...": the name may hold blanks but no ") ".
    const std::string stat = ReadFile(process + "/stat");
    const size_t after = stat.rfind(") ");
    if (after != std::string::npos) parents[entry->d_name] = stat.substr(after + 4, stat.find(' ', after + 4) - after - 4);
  }
  if (processes != nullptr) closedir(processes);
  return static_cast<int>(std::count_if(parents.begin(), parents.end(),
                                        [&](const auto& process) { return parents.count(process.second) == 0; }));
}

// The most processes of `program` seen at once while it lives.
class MostRunning {
 public:
  explicit MostRunning(std::string program)
      : sampler_([this, program] {
          while (!done_) {
            most_ = std::max(most_.load(), Running(program));
            usleep(20 * 1000);
          }
        }) {}
  ~MostRunning() { Stop(); }
  int Stop() {
    done_ = true;
    if (sampler_.joinable()) sampler_.join();
    return most_;
  }

 private:
  std::atomic<bool> done_{false};
  std::atomic<int> most_{0};
  std::thread sampler_;
};

using RequestFloodTest = ServiceClientTest;

// Sends `count` copies of `record` from each client at once and collects
// how many answers of each result came back.
std::map<uint32_t, int> Burst(RawClient& first, RawClient& second, const CCommandDataWrapper<char>& record,
                              int count) {
  for (int i = 0; i < count; ++i) {
    EXPECT_TRUE(first.Send(100 + i, record));
    EXPECT_TRUE(second.Send(100 + i, record));
  }
  std::map<uint32_t, int> results;
  for (RawClient* client : {&first, &second}) {
    for (int i = 0; i < count; ++i) {
      const std::optional<Block> answer = client->Receive(2 * count + 30);
      if (!answer) break;
      uint32_t result;
      std::memcpy(&result, answer->data() + 16, sizeof result);
      ++results[result];
    }
  }
  return results;
}

int Count(const std::vector<std::string>& lines, const std::string& part) {
  return static_cast<int>(
      std::count_if(lines.begin(), lines.end(), [&](const std::string& line) { return line.find(part) != std::string::npos; }));
}

// Explorers that stay open: no more than four start, and every request is
// answered, the rest as failed, with one log line for the burst.
TEST_F(RequestFloodTest, ABurstOfExploreRequestsStartsAtMostFourExplorers) {
  StartWithClients();
  bundle->Answer("Zq Norvane Explorer.delay", "60");
  MostRunning explorers("Zq Norvane Explorer");
  const std::map<uint32_t, int> results =
      Burst(*mainUI, *explorer, DeviceRecord(eCOMMAND_BITLOCKER_EXPLORER, "disk2s1", "pw"), 15);
  EXPECT_EQ(explorers.Stop(), 4);
  EXPECT_EQ(results, (std::map<uint32_t, int>{{0, 4}, {kResultUnmountFailed, 26}}));
  EXPECT_EQ(Running("Zq Norvane Explorer"), 4) << "the four started still run";
  EXPECT_EQ(Count(LogMessages(), "refused eCOMMAND_BITLOCKER_EXPLORER"), 1) << "one line for the burst";
}

// Mounts of one device from both clients: one mounter at a time, every
// request answered.
TEST_F(RequestFloodTest, ABurstOfMountRequestsRunsOneMounterPerDevice) {
  StartWithClients();
  bundle->Answer("zq-mounter.delay", "2");
  MostRunning mounters("zq-mounter");
  const std::map<uint32_t, int> results =
      Burst(*mainUI, *explorer, DeviceRecord(eCOMMAND_BITLOCKER_MOUNT, "disk2s1", "/media/x"), 4);
  EXPECT_EQ(mounters.Stop(), 1);
  int answered = 0;
  for (const auto& result : results) answered += result.second;
  EXPECT_EQ(answered, 8);
  EXPECT_EQ(results.count(0), 1u) << "mounts of the device while none ran went ahead";
  EXPECT_EQ(results.count(kResultUnmountFailed), 1u) << "mounts of the device while one ran are refused";
}

}  // namespace
