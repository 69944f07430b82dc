#include "WinEvt/RecordIdSet.h"

#include <gtest/gtest.h>

namespace
{
using natc::winevt::RecordIdSet;

TEST(RecordIdSet, ConsecutiveNumbersMergeIntoOneRange)
{
  RecordIdSet set;
  for (std::uint64_t id = 1; id <= 1000; ++id)
    EXPECT_TRUE(set.Insert(id));
  EXPECT_EQ(set.RangeCount(), 1u);
  EXPECT_FALSE(set.Insert(500));
  EXPECT_TRUE(set.Contains(1000));
  EXPECT_FALSE(set.Contains(1001));
}

TEST(RecordIdSet, GapsAreFilledFromBothSides)
{
  RecordIdSet set;
  set.Insert(10);
  set.Insert(12);
  EXPECT_EQ(set.RangeCount(), 2u);
  EXPECT_FALSE(set.Contains(11));
  EXPECT_TRUE(set.Insert(11));
  EXPECT_EQ(set.RangeCount(), 1u);
  EXPECT_TRUE(set.Insert(9));
  EXPECT_TRUE(set.Insert(UINT64_MAX));
  EXPECT_TRUE(set.Insert(0));
  EXPECT_TRUE(set.Contains(0));
  EXPECT_FALSE(set.Contains(8));
  EXPECT_EQ(set.RangeCount(), 3u);
}
} // namespace
