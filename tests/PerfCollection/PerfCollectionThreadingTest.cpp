// CMiPerformanceCollection run by the framework on a real pool: a provider whose readings
// advance on every query gives the raw count on the first update and the rate from the second;
// a stop while a class is being read ends the update at the next class. Waits are on conditions.
#include "PerfFixture.h"

#include "CounterValue.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/TestHost.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <mutex>

using namespace perf_test;
using cim::Type;
using cim::testing::ClassBuilder;
using natc_test::CFixedClass;
using natc_test::CFixedHost;
using natc_test::CFixedUser;
using natc_test::CLoggerCapture;
using States = collector::ni::ICollectionTypes::States;

namespace
{
// Every query moves the clock by one second (frequency 10) and the counter by 10; a query can
// be held until the test lets it go.
class CAdvancingProvider : public cim::Provider
{
public:
  explicit CAdvancingProvider(std::wstring className)
    : m_decl(ClassBuilder(std::move(className))
               .Key(L"Name")
               .Property(L"Frequency_PerfTime", Type::UInt64)
               .Property(L"Timestamp_PerfTime", Type::UInt64)
               .Property(L"Rate", Type::UInt64, {{L"CounterType", std::uint32_t{PERF_COUNTER_COUNTER}}})
               .Property(L"Raw", Type::UInt32, {{L"CounterType", std::uint32_t{PERF_COUNTER_RAWCOUNT}}})
               .Build())
  {
  }

  std::shared_ptr<const cim::ClassDecl> Class() const override { return m_decl; }

  void Enumerate(std::vector<cim::Instance>& out) override
  {
    std::unique_lock lock(m_lock);
    ++m_queries;
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return !m_hold; });
    cim::Instance instance(m_decl);
    instance.Set(L"Name", std::wstring(L"only"));
    instance.Set(L"Frequency_PerfTime", std::uint64_t{10});
    instance.Set(L"Timestamp_PerfTime", std::uint64_t{10} * m_queries);
    instance.Set(L"Rate", std::uint64_t{10} * m_queries);
    instance.Set(L"Raw", std::uint32_t{5});
    out.push_back(std::move(instance));
  }

  void Hold()
  {
    const std::lock_guard lock(m_lock);
    m_hold = true;
  }
  void Release()
  {
    {
      const std::lock_guard lock(m_lock);
      m_hold = false;
    }
    m_changed.notify_all();
  }
  bool WaitQueries(std::size_t count)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, natc_test::waitLimit, [&] { return m_queries >= count; });
  }
  std::size_t Queries()
  {
    const std::lock_guard lock(m_lock);
    return m_queries;
  }

private:
  std::shared_ptr<const cim::ClassDecl> m_decl;
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::size_t m_queries = 0;
  bool m_hold = false;
};

class PerfCollectionThreadingTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    host.Register(L"root/cimv2", first);
    host.Register(L"root/cimv2", second);
    collection = std::make_shared<CMiPerformanceCollection>(
      root, *threadPool, parent, std::make_shared<CFixedHost>(L"perfthreads"), std::make_shared<CFixedUser>(L""),
      std::make_shared<CFixedClass>(L"MiPerf"), targets);
    collection->SetApplication(CMiApplication::CreateInstance());
    collection->Subscribe(batches);
    targets->Subscribe(targetBatches);
  }

  void TearDown() override
  {
    first->Release();
    collection->Stop(true);
    collection.reset();
    // Joins the workers first: one may still be ending an update that logs.
    threadPool->shutdown();
    threadPool.reset();
  }

  CLoggerCapture capture{ELogLevel::Info};
  cim::testing::TestHost host{L"perfthreads"};
  std::shared_ptr<CAdvancingProvider> first = std::make_shared<CAdvancingProvider>(L"Test_PerfA");
  std::shared_ptr<CAdvancingProvider> second = std::make_shared<CAdvancingProvider>(L"Test_PerfB");
  std::shared_ptr<CLog> root = std::make_shared<CLog>(nullptr, L"[NatC]");
  std::optional<pool> threadPool{std::in_place, 2};
  std::shared_ptr<ICancellation> parent = create_cancellation();
  std::shared_ptr<CPerfTargetCollection> targets = std::make_shared<CPerfTargetCollection>();
  std::shared_ptr<CMiPerformanceCollection> collection;
  std::shared_ptr<CBatches> batches = std::make_shared<CBatches>();
  std::shared_ptr<CBatches> targetBatches = std::make_shared<CBatches>();
};

TEST_F(PerfCollectionThreadingTest, ScheduledUpdatesGiveTheRateFromTheSecondUpdateOn)
{
  collection->SetCounterFilter({{L"Test_PerfA", L"Rate", false, tstring(L"rate"), 1.0},
                                {L"Test_PerfA", L"Raw", false, tstring(L"raw"), 1.0}});
  collection->SetUpdatePeriod(1);
  collection->Run();
  ASSERT_TRUE(batches->WaitBatches(2));
  collection->Stop(true);

  const auto all = batches->Batches();
  ASSERT_EQ(all[0].size(), 1U);
  EXPECT_EQ(ReadCounter(*all[0][0]).value, 5.0);
  ASSERT_EQ(all[1].size(), 2U);
  // 10 more counts over one second of the provider's clock.
  EXPECT_DOUBLE_EQ(ReadCounter(*all[1][0]).value, 10.0);
  EXPECT_EQ(ReadCounter(*all[1][0]).interval, 1);
  // The target collection heard of each update after its records.
  ASSERT_TRUE(targetBatches->WaitBatches(2));
  EXPECT_EQ(targetBatches->Batches()[0].size(), 1U);
  EXPECT_EQ(targetBatches->Batches()[1].size(), 1U);
  EXPECT_EQ(collection->GetState(), States::Stopped);
}

TEST_F(PerfCollectionThreadingTest, StopWhileAClassIsReadEndsTheUpdateBeforeTheNextClass)
{
  collection->SetCounterFilter({{L"Test_PerfA", L"Raw", false, tstring(L"a"), 1.0},
                                {L"Test_PerfB", L"Raw", false, tstring(L"b"), 1.0}});
  first->Hold();
  collection->Run();
  ASSERT_TRUE(first->WaitQueries(1));
  // The update is inside the first class: the stop cancels its token and returns at once.
  collection->Stop(false);
  first->Release();
  ASSERT_TRUE(capture.Sink().WaitFor(L"New state: Stopped"));
  EXPECT_EQ(second->Queries(), 0U);
  EXPECT_TRUE(batches->Batches().empty());
  EXPECT_TRUE(targetBatches->Batches().empty());
  EXPECT_EQ(capture.Sink().Count(L"Interrupted"), 1U);
}
} // namespace
