#include "system/ChildQuota.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

// Two at once, one for each device; a slot comes back with its last copy,
// and only the first refusal after a slot was taken starts a burst.
TEST(ChildQuotaTest, BoundsChildrenInAllAndForEachKey) {
  ChildQuota quota(2);
  bool burst = false;
  ChildQuota::Slot loop3 = quota.Take("loop3", &burst);
  ASSERT_TRUE(loop3);
  EXPECT_FALSE(quota.Take("loop3", &burst)) << "one child for a device";
  EXPECT_TRUE(burst);
  EXPECT_FALSE(quota.Take("loop3", &burst));
  EXPECT_FALSE(burst) << "the same burst";
  {
    const ChildQuota::Slot any = quota.Take("", &burst);
    ASSERT_TRUE(any);
    EXPECT_FALSE(quota.Take("loop4", &burst)) << "two in all";
    EXPECT_TRUE(burst) << "a slot was taken since the last refusal";
  }
  const ChildQuota::Slot copy = loop3;
  loop3.reset();
  EXPECT_FALSE(quota.Take("loop3", &burst)) << "a copy still holds the slot";
  std::vector<ChildQuota::Slot> unkeyed = {quota.Take("", &burst)};
  EXPECT_TRUE(unkeyed.back()) << "the other slot came back";
  EXPECT_FALSE(quota.Take("", &burst));
  unkeyed.clear();
  EXPECT_TRUE(quota.Take("", &burst)) << "the unkeyed slot came back";
}

}  // namespace
