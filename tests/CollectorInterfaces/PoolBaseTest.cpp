#include "Collector/Interfaces/Impl/PoolBase.h"

#include <gtest/gtest.h>

#include <mutex>

using namespace collector::ni::impl;

namespace
{
struct SItem
{
  GUID id;
  int tag = 0;
  GUID GetId() const { return id; }
};

// Same first byte order as memory, reversed as numbers: memory order and field order disagree.
constexpr GUID kLowInMemory{0x00000100, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};
constexpr GUID kHighInMemory{0x00000001, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}};

TEST(PoolBaseTest, MissingIdentifierGivesEmptyPointer)
{
  CPoolBase<SItem> pool;
  EXPECT_EQ(pool.Get(GUID_NULL), nullptr);
  pool.Add(std::make_shared<SItem>(SItem{kLowInMemory}));
  EXPECT_EQ(pool.Get(GUID_NULL), nullptr);
  EXPECT_EQ(pool.Get(kHighInMemory), nullptr);
  EXPECT_NE(pool.Get(kLowInMemory), nullptr);
}

TEST(PoolBaseTest, KeysAreOrderedByRawMemory)
{
  CPoolBase<SItem> pool;
  pool.Add(std::make_shared<SItem>(SItem{kHighInMemory, 2}));
  pool.Add(std::make_shared<SItem>(SItem{kLowInMemory, 1}));
  pool.Add(std::make_shared<SItem>(SItem{GUID_NULL, 0}));
  const auto items = pool.Snapshot();
  ASSERT_EQ(items.size(), 3u);
  // On little-endian memory 0x100 is stored 00 01 00 00 and sorts before 01 00 00 00.
  if (reinterpret_cast<const unsigned char*>(&kLowInMemory.Data1)[0] == 0)
  {
    EXPECT_EQ(items[0]->tag, 0);
    EXPECT_EQ(items[1]->tag, 1);
    EXPECT_EQ(items[2]->tag, 2);
  }
  std::vector<int> walked;
  pool.ForEach([&walked](const std::shared_ptr<SItem>& item) { walked.push_back(item->tag); });
  EXPECT_EQ(walked, (std::vector<int>{items[0]->tag, items[1]->tag, items[2]->tag}));
}

TEST(PoolBaseTest, WalkVisitsEveryObjectPresentAtItsStartWhateverVisitErases)
{
  CPoolBase<SItem> pool;
  std::vector<GUID> ids;
  for (std::uint32_t number = 1; number <= 3; ++number)
  {
    ids.push_back(GUID{number << 24, 0, 0, {0, 0, 0, 0, 0, 0, 0, 0}});
    pool.Add(std::make_shared<SItem>(SItem{ids.back(), static_cast<int>(number)}));
  }
  std::vector<int> walked;
  // The first visit erases the entry it stands on and the one after it.
  pool.ForEach([&](const std::shared_ptr<SItem>& item) {
    walked.push_back(item->tag);
    pool.Erase(item->id);
    if (item->tag == 1)
      pool.Erase(ids[1]);
  });
  EXPECT_EQ(walked, (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(pool.Size(), 0u);
}

TEST(PoolBaseTest, AddUnderPresentIdentifierReplacesAndReleasesTheOld)
{
  CPoolBase<SItem> pool;
  auto first = pool.Add(std::make_shared<SItem>(SItem{GUID_NULL, 1}));
  std::weak_ptr<SItem> watch = first;
  first.reset();
  EXPECT_FALSE(watch.expired());
  auto second = pool.Add(std::make_shared<SItem>(SItem{GUID_NULL, 2}));
  EXPECT_TRUE(watch.expired());
  EXPECT_EQ(pool.Size(), 1u);
  EXPECT_EQ(pool.Get(GUID_NULL), second);
  EXPECT_EQ(pool.Get(GUID_NULL)->tag, 2);
}

TEST(PoolBaseTest, EraseForgetsOnlyThatIdentifier)
{
  CPoolBase<SItem> pool;
  pool.Add(std::make_shared<SItem>(SItem{kLowInMemory}));
  pool.Add(std::make_shared<SItem>(SItem{kHighInMemory}));
  EXPECT_FALSE(pool.Erase(GUID_NULL));
  EXPECT_TRUE(pool.Erase(kLowInMemory));
  EXPECT_FALSE(pool.Erase(kLowInMemory));
  EXPECT_EQ(pool.Get(kLowInMemory), nullptr);
  EXPECT_NE(pool.Get(kHighInMemory), nullptr);
  EXPECT_EQ(pool.Size(), 1u);
}

TEST(CriticalSectionTest, IsRecursiveOnOneThread)
{
  CCriticalSection section;
  std::lock_guard outer(section);
  ASSERT_TRUE(section.try_lock());
  section.unlock();
}
} // namespace
