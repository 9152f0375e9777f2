#include "ipc/CSemaphoreHelper.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace {

// Someone who made a request's semaphore first must not be able to answer it.
TEST(CSemaphoreHelper, ANameThatIsTakenIsNeverUsed) {
  CSemaphoreHelper helper;
  const std::string name = "zq_sem_test_" + std::to_string(getpid());
  sem_t* first = helper.CreateSemaphore(name.c_str(), 1);
  ASSERT_NE(first, SEM_FAILED);
  EXPECT_EQ(helper.CreateSemaphore(name.c_str(), 0), SEM_FAILED);
  EXPECT_TRUE(helper.DestroySemaphore(first));
  EXPECT_TRUE(helper.ClearSemaphore(name.c_str()));
  EXPECT_FALSE(helper.ClearSemaphore(name.c_str())) << "the name is gone";
}

}  // namespace
