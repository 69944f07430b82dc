#include "ClassPool.h"

#include <gtest/gtest.h>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
const GUID kCollectionId{0x1234, 5, 6, {7, 8, 9, 10, 11, 12, 13, 14}};

TEST(ClassPoolTest, NewPoolHoldsTheDefaultClassWithEmptyName)
{
  std::shared_ptr<IClassPool> pool = std::make_shared<CClassPool>();
  auto defaultClass = pool->Get(GUID_NULL);
  ASSERT_NE(defaultClass, nullptr);
  EXPECT_EQ(defaultClass->GetId(), GUID_NULL);
  EXPECT_TRUE(defaultClass->GetName().empty());
}

TEST(ClassPoolTest, RemovedClassIsNoLongerFound)
{
  CClassPool pool;
  auto created = pool.Create(kCollectionId, L"WindowsEvents");
  EXPECT_EQ(pool.Get(kCollectionId), created);
  pool.Remove(kCollectionId);
  EXPECT_EQ(pool.Get(kCollectionId), nullptr);
  // The default class is untouched, and a second removal is harmless.
  pool.Remove(kCollectionId);
  EXPECT_NE(pool.Get(GUID_NULL), nullptr);
}

TEST(ClassPoolTest, CreateUnderExistingIdentifierReplaces)
{
  CClassPool pool;
  auto first = pool.Create(kCollectionId, L"MiProp");
  auto second = pool.Create(kCollectionId, L"MiPerf");
  EXPECT_NE(first, second);
  EXPECT_EQ(pool.Get(kCollectionId), second);
  EXPECT_EQ(pool.Get(kCollectionId)->GetName(), L"MiPerf");
  EXPECT_EQ(pool.Size(), 2u);
}

TEST(ClassPoolTest, DefaultClassCanBeReplaced)
{
  CClassPool pool;
  pool.Create(GUID_NULL, L"Named");
  EXPECT_EQ(pool.Get(GUID_NULL)->GetName(), L"Named");
}

TEST(ClassPoolTest, UnknownIdentifierGivesEmptyPointer)
{
  CClassPool pool;
  EXPECT_EQ(pool.Get(kCollectionId), nullptr);
}
} // namespace
