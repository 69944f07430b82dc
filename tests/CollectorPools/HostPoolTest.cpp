#include "HostPool.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

#include <string>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
TEST(HostPoolTest, CreateWithEmptyNameThrowsInvalidArgumentAndAddsNothing)
{
  auto pool = std::make_shared<CHostPool>();
  try
  {
    pool->Create(L"");
    FAIL() << "an empty host name was accepted";
  }
  catch (const CHResultException& error)
  {
    EXPECT_EQ(error.hresult(), static_cast<HRESULT>(0x80070057));
    EXPECT_EQ(error.message(), L"Host name can not be empty");
    EXPECT_NE(get_throw_function(error).find("CHostPool::Create"), std::string::npos);
    EXPECT_NE(get_throw_file(error).find("HostPool.cpp"), std::string::npos);
  }
  EXPECT_EQ(pool->Size(), 0u);
}

TEST(HostPoolTest, SameNameTwiceMakesTwoHosts)
{
  CHostPool pool;
  auto first = pool.Create(L"server01");
  auto second = pool.Create(L"server01");
  EXPECT_NE(first->GetId(), second->GetId());
  EXPECT_NE(first->GetId(), GUID_NULL);
  EXPECT_EQ(pool.Get(first->GetId()), first);
  EXPECT_EQ(pool.Get(second->GetId()), second);
  EXPECT_EQ(pool.Get(second->GetId())->GetName(), L"server01");
  EXPECT_EQ(pool.Size(), 2u);
}

TEST(HostPoolTest, SecondDefaultReplacesTheFirst)
{
  CHostPool pool;
  auto first = pool.CreateDefault(L"first");
  auto second = pool.CreateDefault(L"second");
  EXPECT_EQ(first->GetId(), GUID_NULL);
  EXPECT_EQ(pool.Size(), 1u);
  ASSERT_NE(pool.Get(GUID_NULL), nullptr);
  EXPECT_EQ(pool.Get(GUID_NULL), second);
  EXPECT_EQ(pool.Get(GUID_NULL)->GetName(), L"second");
  // The caller's reference keeps the replaced host alive and unchanged.
  EXPECT_EQ(first->GetName(), L"first");
}

TEST(HostPoolTest, DefaultIsAbsentUntilCreated)
{
  CHostPool pool;
  EXPECT_EQ(pool.Get(GUID_NULL), nullptr);
  pool.Create(L"server01");
  EXPECT_EQ(pool.Get(GUID_NULL), nullptr);
}

TEST(HostPoolTest, DefaultAcceptsAnEmptyName)
{
  CHostPool pool;
  auto host = pool.CreateDefault(L"");
  EXPECT_TRUE(host->GetName().empty());
  EXPECT_EQ(pool.Get(GUID_NULL), host);
}

TEST(HostPoolTest, UnknownIdentifierGivesEmptyPointerThroughTheInterface)
{
  std::shared_ptr<IHostPool> pool = std::make_shared<CHostPool>();
  const GUID unknown{7, 7, 7, {7, 7, 7, 7, 7, 7, 7, 7}};
  EXPECT_EQ(pool->Get(unknown), nullptr);
}
} // namespace
