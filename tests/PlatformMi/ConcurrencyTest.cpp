// Sessions on different threads share one application and one host, as collections on pool
// threads do; the monitor's counts stay consistent.
#include "MiFixture.h"

#include <thread>
#include <vector>

using mitest::MiTest;
using mitest::Pull;

TEST_F(MiTest, ThreadsQueryConcurrentlyThroughOneApplication)
{
  AddThings(20);
  constexpr int kThreads = 4;
  constexpr int kQueries = 25;
  std::vector<int> counts(kThreads, 0);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([this, t, &counts] {
      MI_Session session = MI_SESSION_NULL;
      if (MI_Application_NewSession(&application, L"WMIDCOM", L"mitest", nullptr, nullptr, nullptr, &session) !=
          MI_RESULT_OK)
        return;
      for (int q = 0; q < kQueries; ++q)
      {
        MI_Operation operation = MI_OPERATION_NULL;
        MI_Session_QueryInstances(&session, 0, nullptr, L"root/cimv2", L"WQL",
                                  L"SELECT Name FROM Test_Thing WHERE Count >= 10", nullptr, &operation);
        for (auto pulled = Pull(operation);; pulled = Pull(operation))
        {
          counts[t] += pulled.instance ? 1 : 0;
          if (!pulled.more)
            break;
        }
        MI_Operation_Close(&operation);
      }
      MI_Session_Close(&session, nullptr, nullptr);
    });
  for (auto& thread : threads)
    thread.join();
  for (int t = 0; t < kThreads; ++t)
    EXPECT_EQ(counts[t], 10 * kQueries) << t;
}
