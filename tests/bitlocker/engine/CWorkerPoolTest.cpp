#include "CWorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

using namespace bitlocker;

namespace {

TEST(CWorkerPool, RunsEveryIndexOnceOnDistinctLanes) {
  CWorkerPool pool(3);
  ASSERT_EQ(pool.lanes(), 3u);
  for (int round = 0; round < 50; ++round) {
    const size_t count = 1 + round * 7;
    std::vector<std::atomic<int>> runs(count);
    std::vector<std::atomic<int>> busy(pool.lanes());
    std::atomic<bool> laneShared{false};
    pool.Run(count, [&](size_t index, unsigned lane) {
      ASSERT_LT(lane, pool.lanes());
      if (busy[lane].fetch_add(1) != 0) laneShared = true;
      runs[index].fetch_add(1);
      busy[lane].fetch_sub(1);
    });
    for (size_t i = 0; i < count; ++i) ASSERT_EQ(runs[i].load(), 1) << "index " << i;
    EXPECT_FALSE(laneShared);
  }
  pool.Run(0, [](size_t, unsigned) { FAIL() << "nothing to run"; });
}

TEST(CWorkerPool, OneLaneRunsEverythingOnTheCaller) {
  CWorkerPool pool(1);
  std::vector<unsigned> lanes;
  pool.Run(5, [&](size_t, unsigned lane) { lanes.push_back(lane); });
  EXPECT_EQ(lanes, std::vector<unsigned>(5, 0));
}

}  // namespace
