// CMiPerformanceCollection on an MI test host, one update at a time: which counters give
// records on which update, factors, targets, failing classes, and its configuration.
#include "PerfFixture.h"

#include "CounterValue.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/MiFaults.h"
#include "Cim/Testing/TestHost.h"

#include <gtest/gtest.h>

using namespace perf_test;
using cim::Type;
using cim::testing::ClassBuilder;
using natc_test::CFixedClass;
using natc_test::CFixedHost;
using natc_test::CFixedUser;
using natc_test::CLoggerCapture;

namespace
{
constexpr const wchar_t* rawClass = L"Test_PerfRaw";
constexpr const wchar_t* otherClass = L"Test_PerfOther";

class PerfCollectionTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    const auto counterType = [](std::uint32_t type) { return std::vector<cim::Qualifier>{{L"CounterType", type}}; };
    raw = host.AddClass(ClassBuilder(rawClass)
                            .Key(L"Name")
                            .Property(L"Frequency_PerfTime", Type::UInt64)
                            .Property(L"Timestamp_PerfTime", Type::UInt64)
                            .Property(L"Rate", Type::UInt64, counterType(PERF_COUNTER_COUNTER))
                            .Property(L"Raw", Type::UInt32, counterType(PERF_COUNTER_RAWCOUNT))
                            .Build());
    other = host.AddClass(ClassBuilder(otherClass)
                              .Key(L"Name")
                              .Property(L"Frequency_PerfTime", Type::UInt64)
                              .Property(L"Timestamp_PerfTime", Type::UInt64)
                              .Property(L"Raw", Type::UInt32, counterType(PERF_COUNTER_RAWCOUNT))
                              .Build());
    collection = Make(std::make_shared<CFixedUser>(L"alice"));
    collection->Subscribe(batches);
    targets->Subscribe(targetBatches);
  }

  std::shared_ptr<CTestPerfCollection> Make(const std::shared_ptr<collector::ni::IUser>& user)
  {
    auto made = std::make_shared<CTestPerfCollection>(root, threadPool, create_cancellation(),
                                                      std::make_shared<CFixedHost>(L"perfcoll"), user,
                                                      std::make_shared<CFixedClass>(L"MiPerf"), targets);
    made->SetApplication(application);
    return made;
  }

  void SetRaw(std::wstring name, std::uint64_t rate, std::uint64_t timestamp, std::uint32_t rawValue = 7)
  {
    raw->Add({{L"Name", std::move(name)},
              {L"Frequency_PerfTime", std::uint64_t{10}},
              {L"Timestamp_PerfTime", timestamp},
              {L"Rate", rate},
              {L"Raw", rawValue}});
  }

  void SetOther(std::wstring name, std::uint32_t rawValue)
  {
    other->Add({{L"Name", std::move(name)}, {L"Frequency_PerfTime", std::uint64_t{10}},
                {L"Timestamp_PerfTime", std::uint64_t{5}}, {L"Raw", rawValue}});
  }

  std::vector<std::shared_ptr<IRecord>> Batch(std::size_t index) const { return batches->Batches().at(index); }

  CLoggerCapture capture{ELogLevel::Debug};
  cim::testing::TestHost host{L"perfcoll"};
  std::shared_ptr<cim::testing::TestProvider> raw;
  std::shared_ptr<cim::testing::TestProvider> other;
  std::shared_ptr<CLog> root = std::make_shared<CLog>(nullptr, L"[NatC]");
  pool threadPool{1};
  std::shared_ptr<CMiApplication> application = CMiApplication::CreateInstance();
  std::shared_ptr<CPerfTargetCollection> targets = std::make_shared<CPerfTargetCollection>();
  std::shared_ptr<CTestPerfCollection> collection;
  std::shared_ptr<CBatches> batches = std::make_shared<CBatches>();
  std::shared_ptr<CBatches> targetBatches = std::make_shared<CBatches>();
};

TEST_F(PerfCollectionTest, FirstUpdateReportsRawCountOnlyAndTheSecondTheRateToo)
{
  SetRaw(L"a", 100, 1000);
  collection->SetCounterFilter({{rawClass, L"Rate", false, tstring(L"rate of a"), 1.0},
                                {rawClass, L"Raw", false, tstring(L"raw of a"), 1.0}});
  collection->UpdateOnce();
  ASSERT_EQ(batches->Batches().size(), 1U);
  ASSERT_EQ(Batch(0).size(), 1U);
  const CounterRecord first = ReadCounter(*Batch(0)[0]);
  EXPECT_EQ(first.value, 7.0);
  EXPECT_EQ(first.interval, 0);
  EXPECT_EQ(first.id, 1);

  raw->Clear();
  SetRaw(L"a", 200, 2000, 8);
  collection->UpdateOnce();
  ASSERT_EQ(Batch(1).size(), 2U);
  // Counters in name order within the instance: "Rate" before "Raw".
  const CounterRecord rate = ReadCounter(*Batch(1)[0]);
  const CounterRecord rawCount = ReadCounter(*Batch(1)[1]);
  EXPECT_DOUBLE_EQ(rate.value, 1.0);
  EXPECT_EQ(rate.interval, 100);
  EXPECT_EQ(rate.id, 2);
  EXPECT_EQ(rawCount.value, 8.0);
  EXPECT_EQ(rawCount.interval, 100);
  EXPECT_EQ(rawCount.id, 1);
}

TEST_F(PerfCollectionTest, RecordsAreKeylessWithFourFieldsAndTheClassTime)
{
  SetRaw(L"a", 1, 1);
  SetRaw(L"b", 1, 1);
  collection->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"x"), 1.0}});
  const COleDateTimeEx before = COleDateTimeEx::GetCurrentUtcTime();
  collection->UpdateOnce();
  const COleDateTimeEx after = COleDateTimeEx::GetCurrentUtcTime();
  const auto batch = Batch(0);
  ASSERT_EQ(batch.size(), 2U);
  for (const auto& record : batch)
  {
    EXPECT_EQ(record->GetKey(), nullptr);
    auto& composite = dynamic_cast<collector::ni::impl::CRecordOnVectorNoKey&>(*record);
    EXPECT_EQ(composite.GetType(), collector::ni::impl::kMiPerfRecordType);
    ASSERT_EQ(composite.GetFieldCount(), 4U);
    // Added in the order t, i, v, id.
    EXPECT_EQ(composite.GetFields()[0].GetName(), L"t");
    EXPECT_EQ(composite.GetFields()[3].GetName(), L"id");
  }
  const CounterRecord a = ReadCounter(*batch[0]);
  const CounterRecord b = ReadCounter(*batch[1]);
  // One time for the whole class.
  EXPECT_EQ(a.time.GetDate(), b.time.GetDate());
  EXPECT_GE(a.time.GetDate(), before.GetDate());
  EXPECT_LE(a.time.GetDate(), after.GetDate());
  EXPECT_EQ(a.id, 1);
  EXPECT_EQ(b.id, 2);
}

TEST_F(PerfCollectionTest, FactorScalesTheCookedValue)
{
  SetRaw(L"a", 1, 1, 700);
  collection->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"x"), 0.01}});
  collection->UpdateOnce();
  ASSERT_EQ(Batch(0).size(), 1U);
  EXPECT_DOUBLE_EQ(ReadCounter(*Batch(0)[0]).value, 7.0);
}

TEST_F(PerfCollectionTest, LaterFilterOfTheSameCounterOverridesTheEarlier)
{
  SetRaw(L"a", 1, 1, 700);
  collection->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"first"), 0.01},
                                {rawClass, L"Raw", true, tstring(L"second"), 2.0}});
  collection->UpdateOnce();
  ASSERT_EQ(Batch(0).size(), 1U);
  EXPECT_DOUBLE_EQ(ReadCounter(*Batch(0)[0]).value, 1400.0);
  const auto added = targetBatches->Batches().at(0);
  ASSERT_EQ(added.size(), 1U);
  EXPECT_EQ(std::get<tstring>(ReadTarget(*added[0]).value), L"second");
}

TEST_F(PerfCollectionTest, FailingClassGivesNoRecordsWhileTheOtherClassDoes)
{
  SetRaw(L"a", 1, 1);
  SetOther(L"o", 3);
  raw->FailQuery(MI_RESULT_FAILED, L"provider broke");
  collection->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"x"), 1.0},
                                {otherClass, L"Raw", false, tstring(L"y"), 1.0}});
  collection->UpdateOnce();
  const auto batch = Batch(0);
  ASSERT_EQ(batch.size(), 1U);
  EXPECT_EQ(ReadCounter(*batch[0]).value, 3.0);
  // The loader logs under the collection's own prefix.
  EXPECT_EQ(capture.Sink().Count(L"[NatC][C:perfcoll:MiPerf][MiLoader] Failed to execute 'SELECT "
                                 L"Name,Frequency_PerfTime,Timestamp_PerfTime,Raw FROM Test_PerfRaw'"),
            1U);
  // The update itself succeeded.
  EXPECT_EQ(targetBatches->Batches().size(), 1U);
}

TEST_F(PerfCollectionTest, TwoFiltersOfOneClassMakeOneQueryWithBothCounters)
{
  SetRaw(L"a", 1, 1);
  collection->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"x"), 1.0},
                                {otherClass, L"Raw", false, tstring(L"y"), 1.0},
                                {rawClass, L"Rate", false, tstring(L"z"), 1.0}});
  cim::testing::MiMonitor().ClearHistory();
  collection->UpdateOnce();
  std::vector<std::wstring> queries;
  for (const auto& operation : cim::testing::MiMonitor().Operations())
    queries.push_back(operation.query);
  EXPECT_EQ(queries, (std::vector<std::wstring>{
                       L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Raw FROM Test_PerfOther",
                       L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Rate,Raw FROM Test_PerfRaw"}));
}

TEST_F(PerfCollectionTest, PropertyBagHoldsTheTargetCollectionId)
{
  const collector::ni::FieldValue id = collection->GetProperty(L"TargetCollectionId");
  ASSERT_TRUE(std::holds_alternative<GUID>(id));
  EXPECT_EQ(std::get<GUID>(id), targets->GetId());
}

TEST_F(PerfCollectionTest, SecondCounterFilterIsRefused)
{
  collection->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"x"), 1.0}});
  try
  {
    collection->SetCounterFilter({{otherClass, L"Raw", false, tstring(L"y"), 1.0}});
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"Already initialized");
  }
  cim::testing::MiMonitor().ClearHistory();
  collection->UpdateOnce();
  ASSERT_EQ(cim::testing::MiMonitor().Operations().size(), 1U);
  EXPECT_EQ(cim::testing::MiMonitor().Operations()[0].query,
            L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Raw FROM Test_PerfRaw");
}

TEST_F(PerfCollectionTest, TargetsAreAddedAndRemovedAtTheEndOfEachUpdate)
{
  SetRaw(L"_Total", 1, 1);
  SetRaw(L"gone", 1, 1);
  collection->SetCounterFilter({{rawClass, L"Raw", false, static_cast<__int64>(77), 1.0}});
  collection->UpdateOnce();
  auto added = targetBatches->Batches().at(0);
  ASSERT_EQ(added.size(), 2U);
  EXPECT_EQ(ReadTarget(*added[0]).operation, 1U);
  EXPECT_EQ(ReadTarget(*added[0]).instance, L"");
  EXPECT_EQ(std::get<__int64>(ReadTarget(*added[0]).value), 77);
  EXPECT_EQ(ReadTarget(*added[1]).instance, L"gone");

  raw->Clear();
  SetRaw(L"_Total", 1, 2);
  SetRaw(L"new", 1, 2);
  collection->UpdateOnce();
  const auto changes = targetBatches->Batches().at(1);
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(ReadTarget(*changes[0]).operation, 1U);
  EXPECT_EQ(ReadTarget(*changes[0]).instance, L"new");
  EXPECT_EQ(ReadTarget(*changes[0]).id, 3);
  EXPECT_EQ(ReadTarget(*changes[1]).operation, 3U);
  EXPECT_EQ(ReadTarget(*changes[1]).instance, L"gone");
  EXPECT_EQ(ReadTarget(*changes[1]).id, 2);
  // Counter records and their targets agree.
  const auto records = Batch(1);
  ASSERT_EQ(records.size(), 2U);
  EXPECT_EQ(ReadCounter(*records[0]).id, 1);
  EXPECT_EQ(ReadCounter(*records[1]).id, 3);
}

TEST_F(PerfCollectionTest, EveryUpdateHandsOverOneBatchEvenWhenEmpty)
{
  SetRaw(L"a", 1, 1);
  collection->SetCounterFilter({{rawClass, L"Rate", false, tstring(L"x"), 1.0}});
  collection->UpdateOnce();
  ASSERT_EQ(batches->Batches().size(), 1U);
  EXPECT_TRUE(Batch(0).empty());
}

TEST_F(PerfCollectionTest, UpdateWithoutUserFailsWithUserIsUnset)
{
  auto lonely = Make(nullptr);
  lonely->SetCounterFilter({{rawClass, L"Raw", false, tstring(L"x"), 1.0}});
  try
  {
    lonely->UpdateOnce();
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"User is unset");
  }
}

TEST_F(PerfCollectionTest, MissingTargetCollectionIsABadArgument)
{
  EXPECT_THROW(std::make_shared<CTestPerfCollection>(root, threadPool, create_cancellation(),
                                                     std::make_shared<CFixedHost>(L"perfcoll"), nullptr,
                                                     std::make_shared<CFixedClass>(L"MiPerf"), nullptr),
               CHResultException);
}
} // namespace
