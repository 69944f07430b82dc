#include "UserPool.h"

#include <gtest/gtest.h>

#include <cstring>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
TEST(AccountNameTest, BackslashAndAtSignGiveTheSamePartsInOppositeOrder)
{
  const auto withBackslash = SplitAccountName(L"CORP\\alice");
  const auto withAtSign = SplitAccountName(L"alice@CORP");
  EXPECT_EQ(withBackslash.Domain, L"CORP");
  EXPECT_EQ(withBackslash.UserName, L"alice");
  EXPECT_EQ(withAtSign.Domain, withBackslash.Domain);
  EXPECT_EQ(withAtSign.UserName, withBackslash.UserName);
}

TEST(AccountNameTest, BareNameHasNoDomain)
{
  const auto parts = SplitAccountName(L"alice");
  EXPECT_TRUE(parts.Domain.empty());
  EXPECT_EQ(parts.UserName, L"alice");
}

TEST(AccountNameTest, TwoAtSignsKeepTheWholeNameAsUserName)
{
  const auto parts = SplitAccountName(L"alice@corp@example");
  EXPECT_TRUE(parts.Domain.empty());
  EXPECT_EQ(parts.UserName, L"alice@corp@example");
}

TEST(AccountNameTest, TwoBackslashesFallThroughToTheAtSign)
{
  const auto bare = SplitAccountName(L"a\\b\\c");
  EXPECT_TRUE(bare.Domain.empty());
  EXPECT_EQ(bare.UserName, L"a\\b\\c");
  const auto withAt = SplitAccountName(L"a\\b\\c@corp");
  EXPECT_EQ(withAt.Domain, L"corp");
  EXPECT_EQ(withAt.UserName, L"a\\b\\c");
}

TEST(AccountNameTest, BackslashWinsOverAtSign)
{
  const auto parts = SplitAccountName(L"CORP\\alice@mail");
  EXPECT_EQ(parts.Domain, L"CORP");
  EXPECT_EQ(parts.UserName, L"alice@mail");
}

TEST(AccountNameTest, EmptyPartsAreKept)
{
  const auto parts = SplitAccountName(L"\\alice");
  EXPECT_TRUE(parts.Domain.empty());
  EXPECT_EQ(parts.UserName, L"alice");
  const auto empty = SplitAccountName(L"");
  EXPECT_TRUE(empty.Domain.empty());
  EXPECT_TRUE(empty.UserName.empty());
}

TEST(UserPoolTest, UserKeepsNameAsGivenAndItsParts)
{
  CUserPool pool;
  auto user = pool.Create(L"CORP\\alice", L"secret");
  EXPECT_NE(user->GetId(), GUID_NULL);
  EXPECT_EQ(user->GetName(), L"CORP\\alice");
  EXPECT_EQ(user->GetDomain(), L"CORP");
  EXPECT_EQ(user->GetUserName(), L"alice");
  EXPECT_EQ(user->GetPassword(), L"secret");
  EXPECT_EQ(pool.Get(user->GetId()), user);
}

TEST(UserPoolTest, EmptyNameAndPasswordAreAccepted)
{
  CUserPool pool;
  auto user = pool.Create(L"", L"");
  EXPECT_TRUE(user->GetName().empty());
  EXPECT_TRUE(user->GetUserName().empty());
  EXPECT_EQ(pool.Get(user->GetId()), user);
}

TEST(UserPoolTest, SecondDefaultReplacesTheFirstWhichItsHolderKeepsAlive)
{
  auto pool = std::make_shared<CUserPool>();
  // Whoever holds the first default user (a task, say) keeps it alive after the replacement.
  auto heldByTask = pool->CreateDefault(L"CORP\\first", L"one");
  auto second = pool->CreateDefault(L"second@corp", L"two");
  EXPECT_EQ(pool->Get(GUID_NULL), second);
  const auto all = pool->GetAll();
  ASSERT_EQ(all.size(), 1u);
  EXPECT_EQ(all[0], second);
  EXPECT_EQ(heldByTask.use_count(), 1);
  EXPECT_EQ(heldByTask->GetUserName(), L"first");
  EXPECT_EQ(heldByTask->GetPassword(), L"one");
}

TEST(UserPoolTest, GetAllOnEmptyPoolIsEmpty)
{
  std::shared_ptr<IUserPool> pool = std::make_shared<CUserPool>();
  EXPECT_TRUE(pool->GetAll().empty());
  EXPECT_EQ(pool->Get(GUID_NULL), nullptr);
}

TEST(UserPoolTest, GetAllIsInIdentifierOrder)
{
  CUserPool pool;
  for (int i = 0; i < 10; ++i)
    pool.Create(L"user" + std::to_wstring(i), L"");
  pool.CreateDefault(L"default", L"");
  const auto all = pool.GetAll();
  ASSERT_EQ(all.size(), 11u);
  // Allocated once at its final size, not grown while copying.
  EXPECT_EQ(all.capacity(), all.size());
  // GUID_NULL is the smallest key in memory order.
  EXPECT_EQ(all.front()->GetId(), GUID_NULL);
  for (std::size_t i = 1; i < all.size(); ++i)
  {
    const GUID previous = all[i - 1]->GetId();
    const GUID current = all[i]->GetId();
    EXPECT_LT(std::memcmp(&previous, &current, sizeof(GUID)), 0);
  }
}
} // namespace
