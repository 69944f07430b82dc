// Records lent on one thread and let go on another: the producer refills each record only after
// its holder on the other thread is done with it (ThreadSanitizer checks the hand-over).
#include "Collector.Interfaces.Impl.h"
#include "RecordRecycler.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

namespace
{
using collector::ni::impl::CKey;
using collector::ni::impl::CRecordOnVector;
using collector::ni::impl::CRecordRecycler;

TEST(RecordRecyclerThreading, RecordsLetGoOnAnotherThreadAreRefilledOnlyAfterTheirHolderIsDone)
{
  constexpr std::uint32_t records = 2000;
  auto recycler = std::make_shared<CRecordRecycler>();
  std::mutex lock;
  std::condition_variable changed;
  std::deque<std::shared_ptr<CRecordOnVector>> queue;
  bool done = false;
  std::uint32_t released = 0;
  std::uint32_t wrongType = 0;

  std::thread holder([&] {
    std::uint32_t expected = 1;
    for (;;)
    {
      std::shared_ptr<CRecordOnVector> record;
      {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return !queue.empty() || done; });
        if (queue.empty())
          return;
        record = std::move(queue.front());
        queue.pop_front();
      }
      // The holder reads and writes its record; the producer must not touch it meanwhile.
      if (record->GetType() != expected)
        ++wrongType;
      record->SetType(0);
      ++expected;
      record.reset();
      {
        const std::lock_guard guard(lock);
        ++released;
      }
      changed.notify_all();
    }
  });

  std::uint32_t reused = 0;
  for (std::uint32_t number = 1; number <= records; ++number)
  {
    std::unique_ptr<CRecordOnVector> record = recycler->Take();
    if (record)
      ++reused;
    else
      record = std::make_unique<CRecordOnVector>(CKey(), 0, 0);
    record->SetType(number);
    std::shared_ptr<CRecordOnVector> lent = CRecordRecycler::Share(recycler, std::move(record));
    {
      const std::lock_guard guard(lock);
      queue.push_back(std::move(lent));
    }
    changed.notify_all();
    // Now and then the producer lets the holder catch up, so that the next record must come back.
    if (number % 100 == 0)
    {
      std::unique_lock guard(lock);
      changed.wait(guard, [&] { return released == number; });
    }
  }
  {
    const std::lock_guard guard(lock);
    done = true;
  }
  changed.notify_all();
  holder.join();

  EXPECT_EQ(wrongType, 0u);
  // At least the record after each catch-up came back from the other thread.
  EXPECT_GE(reused, records / 100 - 1);
}
} // namespace
