#include "SharedSlot.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

namespace
{
using collector::ni::impl::CSharedSlot;

TEST(SharedSlot, ACopyTakenBeforeAReplacementStaysValid)
{
  CSharedSlot<int> slot{std::make_shared<int>(1)};
  const std::shared_ptr<int> before = slot.load();
  slot.store(std::make_shared<int>(2));
  EXPECT_EQ(*before, 1);
  EXPECT_EQ(*slot.load(), 2);
  EXPECT_EQ(*slot.exchange(nullptr), 2);
  EXPECT_EQ(slot.load(), nullptr);
}

TEST(SharedSlot, TheReplacedValueIsReleasedOutsideTheLock)
{
  CSharedSlot<int> slot;
  std::shared_ptr<int> seenByDeleter = std::make_shared<int>(0);
  // A deleter that reads the slot again would deadlock if it ran under the slot's lock.
  slot.store(std::shared_ptr<int>(new int(7), [&slot, &seenByDeleter](int* value) {
    seenByDeleter = slot.load();
    delete value;
  }));
  slot.store(std::make_shared<int>(8));
  ASSERT_NE(seenByDeleter, nullptr);
  EXPECT_EQ(*seenByDeleter, 8);
}

// Run under ThreadSanitizer: a reader's load followed by a writer's store must be ordered.
TEST(SharedSlot, ReadersSeeOnlyWholeValuesWhileAWriterReplacesThem)
{
  constexpr int Values = 2000;
  CSharedSlot<int> slot{std::make_shared<int>(0)};
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  constexpr int Readers = 3;
  std::vector<std::thread> readers;
  readers.reserve(Readers);
  for (int r = 0; r < Readers; ++r)
  {
    readers.emplace_back([&] {
      int last = 0;
      while (!done.load())
      {
        const std::shared_ptr<int> now = slot.load();
        // Values only grow, so a reader never sees one older than the last it saw.
        if (!now || *now < last)
        {
          torn.fetch_add(1);
        }
        last = now ? *now : last;
      }
    });
  }
  for (int value = 1; value <= Values; ++value)
  {
    slot.store(std::make_shared<int>(value));
  }
  done.store(true);
  for (auto& reader : readers)
  {
    reader.join();
  }
  EXPECT_EQ(torn.load(), 0);
  EXPECT_EQ(*slot.load(), Values);
}
} // namespace
