// CProperties from several threads: writers replace values of different types while readers
// copy them; every read sees one whole value that some writer stored.
#include "Properties.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

using collector::ni::FieldValue;
using collector::ni::impl::CProperties;

namespace
{
TEST(PropertiesThreadingTest, ConcurrentReadsSeeWholeValues)
{
  CProperties bag;
  bag.SetProperty(L"Shared", tstring(L"start"));
  constexpr int rounds = 2000;
  std::atomic<int> badReads{0};
  constexpr int writers = 2;
  constexpr int readers = 2;
  std::vector<std::thread> threads;
  threads.reserve(writers + readers);
  for (int writer = 0; writer < writers; ++writer)
  {
    threads.emplace_back([&bag, writer] {
      for (int i = 0; i < rounds; ++i)
      {
        if ((i + writer) % 2 == 0)
          bag.SetProperty(L"Shared", tstring(64, L'x'));
        else
          bag.SetProperty(L"Shared", std::vector<tstring>{L"a", L"b", L"c"});
        bag.SetProperty(L"Writer" + std::to_wstring(writer), static_cast<__int64>(i));
      }
    });
  }
  for (int reader = 0; reader < readers; ++reader)
  {
    threads.emplace_back([&bag, &badReads] {
      for (int i = 0; i < rounds; ++i)
      {
        const FieldValue value = bag.GetProperty(L"Shared");
        const bool whole = (std::holds_alternative<tstring>(value) &&
                            (std::get<tstring>(value) == L"start" || std::get<tstring>(value) == tstring(64, L'x'))) ||
                           (std::holds_alternative<std::vector<tstring>>(value) &&
                            std::get<std::vector<tstring>>(value).size() == 3);
        if (!whole)
          ++badReads;
      }
    });
  }
  for (auto& thread : threads)
    thread.join();
  EXPECT_EQ(badReads.load(), 0);
  EXPECT_EQ(std::get<__int64>(bag.GetProperty(L"Writer0")), rounds - 1);
  EXPECT_EQ(std::get<__int64>(bag.GetProperty(L"Writer1")), rounds - 1);
}
} // namespace
