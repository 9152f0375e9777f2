// Both clients send a mix of commands without pause for a bounded time
// (ZQ_LOAD_SECONDS, 125 by default).  Every answer must arrive, carry its
// request's id and reach the client that asked, while the service's memory
// and thread count stay flat.
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include "ServiceTestEnvironment.h"
#include "StubBundle.h"

namespace {

struct ServiceFootprint {
  long residentKiB = 0;
  long threads = 0;
};

ServiceFootprint FootprintOf(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  ServiceFootprint footprint;
  std::string key;
  while (status >> key) {
    if (key == "VmRSS:") status >> footprint.residentKiB;
    if (key == "Threads:") status >> footprint.threads;
  }
  return footprint;
}

struct ClientTally {
  int answered = 0;
  int forwardsReceived = 0;
  std::string failure;
};

// One client's loop: a request, then its answer, then the next request.
void RunClient(RawClient& client, uint32_t firstId, std::chrono::steady_clock::time_point end, ClientTally* tally) {
  std::vector<CCommandDataWrapper<char>> records = {
      MakeRecord(eCOMMAND_CHECK_CONNECTION), MakeRecord(eCOMMAND_BITLOCKER_CHECK), MakeRecord(eCOMMAND_BITLOCKER_MOUNT),
      MakeRecord(eCOMMAND_BITLOCKER_EXPLORER),
      // Forwarded to the other client: no answer to wait for.
      MakeRecord(firstId < 1000000 ? eCOMMAND_TO_FILE_EXPLORER : eCOMMAND_TO_MAIN_UI)};
  std::strcpy(records[1].check.deviceName, "disk2s1");
  std::strcpy(records[2].mount.deviceName, "disk3");
  std::strcpy(records[2].mount.mountArg2, "/mnt/x");
  std::strcpy(records[3].explorer.deviceName, "disk4");
  for (uint32_t id = firstId; std::chrono::steady_clock::now() < end && tally->failure.empty(); ++id) {
    const size_t turn = (id - firstId) % records.size();
    if (!client.Send(id, records[turn])) tally->failure = "send failed";
    if (turn == records.size() - 1) continue;
    while (tally->failure.empty()) {
      const std::optional<Block> block = client.Receive(15);
      if (!block) {
        tally->failure = "no answer to request " + std::to_string(id);
        break;
      }
      uint32_t got;
      std::memcpy(&got, block->data(), sizeof got);
      if (got == 1) {  // a block the other client forwarded
        ++tally->forwardsReceived;
        continue;
      }
      if (got != id) tally->failure = "answer carried id " + std::to_string(got) + " for " + std::to_string(id);
      ++tally->answered;
      break;
    }
  }
}

TEST(ServiceLoad, BothClientsWithoutPause) {
  if (!ServiceTestsUnavailable().empty()) GTEST_SKIP() << ServiceTestsUnavailable();
  const char* configured = std::getenv("ZQ_LOAD_SECONDS");
  const int seconds = configured ? std::atoi(configured) : 125;
  StubBundle bundle;
  bundle.Answer("diskutil-unmount.stdout", "successful\n");
  ServiceProcess service(bundle.bundlePath());
  RawClient mainUI(kMainUIChannel), explorer(kFileExplorerChannel);
  service.Start();
  ASSERT_TRUE(mainUI.Send(5, MakeRecord(eCOMMAND_CHECK_CONNECTION)) && mainUI.Receive(5));
  ASSERT_TRUE(explorer.Send(5, MakeRecord(eCOMMAND_CHECK_CONNECTION)) && explorer.Receive(5));

  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  ClientTally mainTally, explorerTally;
  std::thread mainThread(RunClient, std::ref(mainUI), 16, end, &mainTally);
  std::thread explorerThread(RunClient, std::ref(explorer), 1000000, end, &explorerTally);
  sleep(static_cast<unsigned>(std::min(15, seconds / 4)));
  const ServiceFootprint before = FootprintOf(service.pid());
  mainThread.join();
  explorerThread.join();
  const ServiceFootprint after = FootprintOf(service.pid());

  EXPECT_EQ(mainTally.failure, "");
  EXPECT_EQ(explorerTally.failure, "");
  std::printf("answered: MainUI %d, FileExplorer %d; forwards received: %d, %d\n", mainTally.answered,
              explorerTally.answered, mainTally.forwardsReceived, explorerTally.forwardsReceived);
  std::printf("service: %ld KiB and %ld threads after warm-up, %ld KiB and %ld threads at the end\n",
              before.residentKiB, before.threads, after.residentKiB, after.threads);
  EXPECT_GT(mainTally.answered, seconds / 4);
  EXPECT_GT(explorerTally.answered, seconds / 4);
  EXPECT_EQ(after.threads, before.threads);
  EXPECT_LE(after.residentKiB - before.residentKiB, 1024) << "memory grew under load";
}

}  // namespace
