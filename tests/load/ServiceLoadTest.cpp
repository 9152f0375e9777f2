// Both clients send a mix of commands without pause for a bounded time
// (ZQ_LOAD_SECONDS, 125 by default).  Every answer must arrive, carry its
// request's id and reach the client that asked, while the service's thread
// count and, in the plain build, its memory stay flat.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <thread>

#include "tests/support/ServiceTestEnvironment.h"

namespace {

using Clock = std::chrono::steady_clock;

// The resident KiB and the thread count of a process.
std::pair<long, long> FootprintOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::pair<long, long> footprint;
  for (std::string key; status >> key;) {
    if (key == "VmRSS:") status >> footprint.first;
    if (key == "Threads:") status >> footprint.second;
  }
  return footprint;
}

// One client's loop: a request, then its answer, then the next request.
// Counts the answers in *answered; returns the first failure, or "".
std::string RunClient(RawClient& client, uint32_t firstId, COMMAND_TYPE forward, Clock::time_point end, int* answered) {
  std::vector<CCommandDataWrapper<char>> records;
  for (COMMAND_TYPE type : {eCOMMAND_CHECK_CONNECTION, eCOMMAND_BITLOCKER_CHECK, eCOMMAND_BITLOCKER_MOUNT,
                            eCOMMAND_BITLOCKER_EXPLORER, forward})
    records.push_back(MakeRecord(type));
  std::strcpy(records[1].check.deviceName, "disk2s1");
  std::strcpy(records[2].mount.deviceName, "disk3");
  std::strcpy(records[2].mount.mountArg2, "/mnt/x");
  std::strcpy(records[3].explorer.deviceName, "disk4");
  for (uint32_t id = firstId; Clock::now() < end; ++id) {
    const CCommandDataWrapper<char>& record = records[(id - firstId) % records.size()];
    if (!client.Send(id, record)) return "send failed";
    if (record.type == forward) continue;  // for the other client: no answer
    uint32_t got = 1;
    while (got == 1) {  // a block the other client forwarded
      const std::optional<Block> block = client.Receive(15);
      if (!block) return "no answer to request " + std::to_string(id);
      std::memcpy(&got, block->data(), sizeof got);
    }
    if (got != id) return "answer carried id " + std::to_string(got) + " for " + std::to_string(id);
    ++*answered;
  }
  return "";
}

TEST(ServiceLoad, BothClientsWithoutPause) {
  if (!ServiceTestsUnavailable().empty()) GTEST_SKIP() << ServiceTestsUnavailable();
  const int seconds = std::getenv("ZQ_LOAD_SECONDS") ? std::atoi(std::getenv("ZQ_LOAD_SECONDS")) : 125;
  StubBundle bundle;
  bundle.Answer("diskutil-unmount.stdout", "successful\n");
  ServiceProcess service(bundle.bundlePath());
  RawClient mainUI(kMainUIChannel), explorer(kFileExplorerChannel);
  service.Start();
  for (RawClient* client : {&mainUI, &explorer})
    ASSERT_TRUE(client->Send(5, MakeRecord(eCOMMAND_CHECK_CONNECTION)) && client->Receive(5));

  const Clock::time_point end = Clock::now() + std::chrono::seconds(seconds);
  int answered[2] = {};
  std::string failures[2];
  std::thread mainThread([&] { failures[0] = RunClient(mainUI, 16, eCOMMAND_TO_FILE_EXPLORER, end, &answered[0]); });
  std::thread explorerThread(
      [&] { failures[1] = RunClient(explorer, 1 << 20, eCOMMAND_TO_MAIN_UI, end, &answered[1]); });
  sleep(static_cast<unsigned>(std::min(15, seconds / 4)));
  const std::pair<long, long> before = FootprintOf(service.pid());
  mainThread.join();
  explorerThread.join();
  const std::pair<long, long> after = FootprintOf(service.pid());
  for (int client : {0, 1}) {
    EXPECT_EQ(failures[client], "");
    EXPECT_GT(answered[client], seconds / 4);
  }
  EXPECT_EQ(after.second, before.second) << "threads";
#if !defined(__SANITIZE_ADDRESS__)
  // The address sanitizer's records of threads and allocations grow on their
  // own: only the plain build can tell a leak by the resident size.
  EXPECT_LE(after.first - before.first, 1024) << "KiB of memory grown under load";
#endif
}

}  // namespace
