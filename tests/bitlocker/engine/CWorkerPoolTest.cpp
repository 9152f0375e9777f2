#include "CWorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

using namespace bitlocker;

namespace {

TEST(CWorkerPool, RunsEveryIndexOnceOnDistinctLanes) {
  for (unsigned lanes : {1u, 3u}) {
    CWorkerPool pool(lanes);
    ASSERT_EQ(pool.lanes(), lanes);
    for (int round = 0; round < 50; ++round) {
      const size_t count = 1 + round * 7;
      std::vector<std::atomic<int>> runs(count);
      std::vector<std::atomic<int>> busy(lanes);
      std::atomic<bool> laneShared{false};
      pool.Run(count, [&](size_t index, unsigned lane) {
        ASSERT_LT(lane, lanes);
        if (busy[lane].fetch_add(1) != 0) laneShared = true;
        runs[index].fetch_add(1);
        busy[lane].fetch_sub(1);
      });
      for (size_t i = 0; i < count; ++i) ASSERT_EQ(runs[i].load(), 1) << "index " << i;
      EXPECT_FALSE(laneShared);
    }
    pool.Run(0, [](size_t, unsigned) { FAIL() << "nothing to run"; });
  }
}

}  // namespace
