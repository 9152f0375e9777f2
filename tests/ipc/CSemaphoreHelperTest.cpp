#include "CSemaphoreHelper.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include "IpcTestSupport.h"

namespace {

TEST(CSemaphoreHelper, TryWaitTakesOneCountAtATime) {
  CSemaphoreHelper helper;
  const std::string name = UniqueName("zq_sem_test_a");
  sem_t* semaphore = helper.CreateSemaphore(name.c_str(), 0);
  ASSERT_NE(semaphore, SEM_FAILED);
  EXPECT_FALSE(helper.TryWaitSemaphore(semaphore));
  EXPECT_EQ(helper.SignalSemaphore(semaphore), 0);
  EXPECT_TRUE(helper.TryWaitSemaphore(semaphore));
  EXPECT_FALSE(helper.TryWaitSemaphore(semaphore));
  EXPECT_TRUE(helper.DestroySemaphore(semaphore));
  EXPECT_TRUE(helper.ClearSemaphore(name.c_str()));
  EXPECT_FALSE(helper.ClearSemaphore(name.c_str())) << "the name is gone";
}

TEST(CSemaphoreHelper, ANameSomeoneElseTookIsNeverUsed) {
  CSemaphoreHelper helper;
  const std::string name = UniqueName("zq_sem_test_b");
  sem_t* planted = sem_open(name.c_str(), O_CREAT, 0666, 5);
  ASSERT_NE(planted, SEM_FAILED);
  EXPECT_EQ(helper.CreateSemaphore(name.c_str(), 0), SEM_FAILED);
  sem_close(planted);
  helper.ClearSemaphore(name.c_str());
}

TEST(CSemaphoreHelper, OpenFindsOnlyExistingSemaphoresAndFailedHandlesNeverWait) {
  CSemaphoreHelper helper;
  const std::string name = UniqueName("zq_sem_test_c");
  EXPECT_EQ(helper.OpenSemaphore(name.c_str()), SEM_FAILED);
  EXPECT_FALSE(helper.TryWaitSemaphore(SEM_FAILED));
  sem_t* made = helper.CreateSemaphore(name.c_str(), 0);
  sem_t* opened = helper.OpenSemaphore(name.c_str());
  EXPECT_NE(opened, SEM_FAILED);
  helper.DestroySemaphore(opened);
  helper.DestroySemaphore(made);
  helper.ClearSemaphore(name.c_str());
}

}  // namespace
