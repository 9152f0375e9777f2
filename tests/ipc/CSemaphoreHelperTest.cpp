#include "CSemaphoreHelper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace {

TEST(CSemaphoreHelper, EveryHandleOnANameSharesOneCountAndATakenNameIsNeverUsed) {
  CSemaphoreHelper helper;
  const std::string name = "zq_sem_test_" + std::to_string(getpid());
  EXPECT_EQ(helper.OpenSemaphore(name.c_str()), SEM_FAILED) << "open finds only existing semaphores";
  sem_t* first = helper.CreateSemaphore(name.c_str(), 1);
  sem_t* opened = helper.OpenSemaphore(name.c_str());
  ASSERT_TRUE(first != SEM_FAILED && opened != SEM_FAILED);
  EXPECT_EQ(helper.CreateSemaphore(name.c_str(), 0), SEM_FAILED) << "a name that is taken is never opened";
  EXPECT_TRUE(helper.TryWaitSemaphore(opened)) << "one count behind both handles";
  EXPECT_FALSE(helper.TryWaitSemaphore(first)) << "one count is taken once";
  EXPECT_EQ(helper.SignalSemaphore(first), 0);
  EXPECT_EQ(helper.WaitSemaphore(opened), 0);
  for (sem_t* semaphore : {first, opened}) EXPECT_TRUE(helper.DestroySemaphore(semaphore));
  EXPECT_TRUE(helper.ClearSemaphore(name.c_str()));
  EXPECT_FALSE(helper.ClearSemaphore(name.c_str())) << "the name is gone";
}

}  // namespace
