// Event Log API handles used from several threads at once (run under TSan): separate queries on
// one session, events rendered on a thread other than the one that fetched them, one event
// rendered by two threads together, and events closed while their query reads on.
#include "TestSupport.h"
#include "WriterSupport.h"
#include "TestSupport/StartLatch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace
{
using namespace wevtapi_test;

constexpr int kEvents = 1500; // many chunks

class Threads : public testing::Test
{
protected:
  void SetUp() override
  {
    WriteEvents(host.File("Application.evtx"), kEvents);
    session = OpenSession(host.WidePath());
    ASSERT_TRUE(session);
  }

  Handle Query(const wchar_t* xpath, DWORD direction = EvtQueryForwardDirection)
  {
    return Handle(EvtQuery(session.get(), L"Application", xpath, EvtQueryChannelPath | direction));
  }

  static std::vector<std::uint64_t> Range(std::uint64_t first, std::uint64_t last, std::uint64_t step = 1)
  {
    std::vector<std::uint64_t> ids;
    for (std::uint64_t id = first; id <= last; id += step)
      ids.push_back(id);
    return ids;
  }

  TempHost host;
  Handle session;
};

TEST_F(Threads, SeparateQueriesOnOneSessionRunAtOnce)
{
  StartLatch start(2);
  std::vector<std::uint64_t> forward, reverseEven;
  DWORD forwardEnd = 0, reverseEnd = 0;
  std::thread a([&] {
    Handle query = Query(L"*");
    start.ArriveAndWait();
    if (query)
      forward = ReadAll(query.get(), 7, INFINITE, forwardEnd);
  });
  std::thread b([&] {
    Handle query = Query(L"*[System[EventID=2]]", EvtQueryReverseDirection);
    start.ArriveAndWait();
    if (query)
      reverseEven = ReadAll(query.get(), 13, INFINITE, reverseEnd);
  });
  a.join();
  b.join();
  EXPECT_EQ(forwardEnd, ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(reverseEnd, ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(forward, Range(1, kEvents));
  auto even = Range(2, kEvents, 2);
  std::reverse(even.begin(), even.end());
  EXPECT_EQ(reverseEven, even);
}

// One thread fetches, another renders and closes, while the fetching query goes on loading
// chunks: chunks released by the closing thread are reused by the fetching one.
TEST_F(Threads, EventsFetchedOnOneThreadAreRenderedAndClosedOnAnother)
{
  std::mutex lock;
  std::condition_variable changed;
  std::deque<EVT_HANDLE> queue;
  std::size_t open = 0; // handed over and not yet closed
  bool done = false;
  std::vector<std::uint64_t> rendered;

  std::thread consumer([&] {
    for (;;)
    {
      EVT_HANDLE event = nullptr;
      {
        std::unique_lock guard(lock);
        changed.wait(guard, [&] { return !queue.empty() || done; });
        if (queue.empty())
          return;
        event = queue.front();
        queue.pop_front();
      }
      rendered.push_back(RecordIdOf(RenderXml(event)));
      EXPECT_TRUE(EvtClose(event));
      const std::lock_guard guard(lock);
      --open;
      changed.notify_all();
    }
  });

  Handle query = Query(L"*");
  ASSERT_TRUE(query);
  EVT_HANDLE events[16];
  DWORD returned = 0;
  while (EvtNext(query.get(), 16, events, INFINITE, 0, &returned))
  {
    std::unique_lock guard(lock);
    queue.insert(queue.end(), events, events + returned);
    open += returned;
    changed.notify_all();
    // Lock step: the next fetch starts once the other thread closed these events, so that the
    // chunks they held are free for reuse by the query.
    changed.wait(guard, [&] { return open == 0; });
  }
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
  {
    const std::lock_guard guard(lock);
    done = true;
    changed.notify_all();
  }
  consumer.join();
  EXPECT_EQ(rendered, Range(1, kEvents));
}

TEST_F(Threads, OneEventRenderedByTwoThreadsAtOnceGivesTheSameXml)
{
  Handle query = Query(L"*");
  ASSERT_TRUE(query);
  std::vector<EVT_HANDLE> events(300);
  DWORD returned = 0;
  ASSERT_TRUE(EvtNext(query.get(), static_cast<DWORD>(events.size()), events.data(), INFINITE, 0, &returned));
  events.resize(returned);
  ASSERT_EQ(events.size(), 300u);

  StartLatch start(2);
  std::vector<std::wstring> first(events.size()), second(events.size());
  std::thread a([&] {
    start.ArriveAndWait();
    for (std::size_t i = 0; i < events.size(); ++i)
      first[i] = RenderXml(events[i]);
  });
  std::thread b([&] {
    start.ArriveAndWait();
    for (std::size_t i = events.size(); i-- > 0;)
      second[i] = RenderXml(events[i]);
  });
  a.join();
  b.join();
  for (std::size_t i = 0; i < events.size(); ++i)
  {
    EXPECT_EQ(first[i], second[i]);
    EXPECT_EQ(RecordIdOf(first[i]), i + 1);
    EXPECT_TRUE(EvtClose(events[i]));
  }
}

// Closing the result set on one thread while another still renders its events: the events
// keep their chunk alive.
TEST_F(Threads, EventsOutliveTheirQueryClosedOnAnotherThread)
{
  Handle query = Query(L"*");
  ASSERT_TRUE(query);
  std::vector<EVT_HANDLE> events(50);
  DWORD returned = 0;
  ASSERT_TRUE(EvtNext(query.get(), 50, events.data(), INFINITE, 0, &returned));
  events.resize(returned);

  StartLatch start(2);
  std::vector<std::uint64_t> ids;
  std::thread closer([&] {
    start.ArriveAndWait();
    EXPECT_TRUE(EvtClose(query.release()));
  });
  std::thread renderer([&] {
    start.ArriveAndWait();
    for (EVT_HANDLE event : events)
    {
      ids.push_back(RecordIdOf(RenderXml(event)));
      EvtClose(event);
    }
  });
  closer.join();
  renderer.join();
  EXPECT_EQ(ids, Range(1, 50));
}
} // namespace
