// CMiPerformanceLoader over a test host: one query per class in class-name order, samples kept
// between loads, the "CounterType" qualifier, and what one failing counter or class costs.
#include "MiPerformanceLoader.h"

#include "CounterValue.h"
#include "MiApplication.h"
#include "MiException.h"
#include "TestSupport.h"

#include "Cim/Testing/ClassBuilder.h"
#include "Cim/Testing/MiFaults.h"
#include "Cim/Testing/TestHost.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

using cim::Type;
using cim::testing::ClassBuilder;
using natc_test::CLoggerCapture;

namespace
{
constexpr const wchar_t* rawClass = L"Test_PerfRaw";
constexpr const wchar_t* otherClass = L"Test_PerfOther";

std::vector<cim::Qualifier> CounterType(cim::Value value)
{
  return {{L"CounterType", std::move(value)}};
}

// A token that cancels itself when it is tested for the n-th time.
class CCountingToken : public ICancellationToken
{
public:
  explicit CCountingToken(int cancelAt) : m_cancelAt(cancelAt) {}
  bool is_cancelled() const noexcept override { return m_tests.load() >= m_cancelAt; }
  void throw_if_cancelled() const override
  {
    if (++m_tests >= m_cancelAt)
      KELDA_THROW(CInterruptedException());
  }
  std::shared_ptr<ICancellation> get_cancellation() override { return {}; }
  void stop(bool) noexcept override {}
  bool stop_requested() const noexcept override { return false; }
  bool stop_is_sync() const noexcept override { return false; }
  int Tests() const { return m_tests.load(); }

private:
  int m_cancelAt;
  mutable std::atomic<int> m_tests{0};
};

class PerfLoaderTest : public ::testing::Test
{
protected:
  void SetUp() override
  {
    cim::testing::MiMonitor().ClearHistory();
    raw = host.AddClass(ClassBuilder(rawClass)
                            .Key(L"Name")
                            .Property(L"Frequency_PerfTime", Type::UInt64)
                            .Property(L"Timestamp_PerfTime", Type::UInt64)
                            .Property(L"Rate", Type::UInt64, CounterType(std::uint32_t{PERF_COUNTER_COUNTER}))
                            .Property(L"Raw", Type::UInt32, CounterType(std::uint32_t{PERF_COUNTER_RAWCOUNT}))
                            .Property(L"Bare", Type::UInt32)
                            .Property(L"Lower", Type::UInt32, {{L"countertype", std::uint32_t{PERF_COUNTER_RAWCOUNT}}})
                            .Property(L"Texty", Type::UInt32, CounterType(std::wstring(L"65536")))
                            .Build());
    other = host.AddClass(ClassBuilder(otherClass)
                              .Key(L"Name")
                              .Property(L"Frequency_PerfTime", Type::UInt64)
                              .Property(L"Timestamp_PerfTime", Type::UInt64)
                              .Property(L"Raw", Type::UInt32, CounterType(std::uint32_t{PERF_COUNTER_RAWCOUNT}))
                              .Build());
    application = CMiApplication::CreateInstance();
    session = std::make_shared<CMiSession>(application);
    session->Connect(host.Destination(), L"", L"", L"");
  }

  void TearDown() override
  {
    session.reset();
    application.reset();
  }

  // One instance of the raw class with the given readings (frequency 10).
  void SetRaw(std::wstring name, std::uint64_t rate, std::uint64_t timestamp, std::uint32_t rawValue = 7)
  {
    raw->Add({{L"Name", std::move(name)},
              {L"Frequency_PerfTime", std::uint64_t{10}},
              {L"Timestamp_PerfTime", timestamp},
              {L"Rate", rate},
              {L"Raw", rawValue},
              {L"Bare", std::uint32_t{1}},
              {L"Lower", std::uint32_t{1}},
              {L"Texty", std::uint32_t{1}}});
  }

  static CMiPerformanceLoader::ClassFilters Filters(std::initializer_list<CMiPerformanceLoader::ClassFilter> list)
  {
    return CMiPerformanceLoader::ClassFilters(list);
  }

  const CMiPerformanceLoader::CounterData& Data(const std::wstring& instance, const std::wstring& counter,
                                                const std::wstring& className = rawClass)
  {
    return loader.Results().at(className).instances.at(instance).at(counter);
  }

  CLoggerCapture capture{ELogLevel::Debug};
  cim::testing::TestHost host{L"perfloader"};
  std::shared_ptr<cim::testing::TestProvider> raw;
  std::shared_ptr<cim::testing::TestProvider> other;
  std::shared_ptr<CMiApplication> application;
  std::shared_ptr<CMiSession> session;
  std::shared_ptr<CLog> log = std::make_shared<CLog>(nullptr, L"[MiLoader]");
  CMiPerformanceLoader loader{log};
};

TEST(PerfLoaderQueryTest, QueryListsFixedColumnsThenCountersInOrder)
{
  const CMiPerformanceLoader::ClassFilter filter{L"C", {L"B", L"A"}};
  const tstring query = CMiPerformanceLoader::makeQuery(filter);
  EXPECT_EQ(query, L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,A,B FROM C");
  // The builder reserved exactly what it wrote.
  EXPECT_EQ(query.capacity(), query.size());
}

TEST(PerfLoaderQueryTest, QueryWithoutCountersIsRefused)
{
  try
  {
    CMiPerformanceLoader::makeQuery({L"C", {}});
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"Counters are unset");
  }
}

TEST(PerfLoaderQueryTest, FiltersOfOneClassAreOneElement)
{
  const CMiPerformanceLoader::ClassFilterCmp less;
  EXPECT_FALSE(less({L"A", {L"x"}}, {L"A", {L"y"}}));
  EXPECT_FALSE(less({L"A", {L"y"}}, {L"A", {L"x"}}));
  EXPECT_TRUE(less({L"A", {}}, {L"AB", {}}));
  EXPECT_TRUE(less({L"B", {}}, {L"a", {}}));
  CMiPerformanceLoader::ClassFilters set{{L"A", {L"x"}}, {L"A", {L"y"}}};
  EXPECT_EQ(set.size(), 1U);
}

TEST(PerfLoaderQualifierTest, ScalarQualifierValuesConvertToCounterTypes)
{
  const auto typeOf = [](MI_Type type, const void* value) {
    const MI_Qualifier qualifier{L"CounterType", static_cast<MI_Uint32>(type), 0, value};
    return CMiPerformanceLoader::CounterTypeOf(qualifier);
  };
  const MI_Boolean yes = 2;
  EXPECT_EQ(typeOf(MI_BOOLEAN, &yes), 1U);
  const MI_Sint8 minusOne = -1;
  EXPECT_EQ(typeOf(MI_SINT8, &minusOne), 0xFFFFFFFFU);
  const MI_Uint16 word = 0x1234;
  EXPECT_EQ(typeOf(MI_UINT16, &word), 0x1234U);
  const MI_Uint32 timer = PERF_100NSEC_TIMER;
  EXPECT_EQ(typeOf(MI_UINT32, &timer), PERF_100NSEC_TIMER);
  const MI_Uint64 wide = 0x1'2041'0500ULL;
  EXPECT_EQ(typeOf(MI_UINT64, &wide), 0x20410500U);
  const MI_Sint64 negative = -2;
  EXPECT_EQ(typeOf(MI_SINT64, &negative), 0xFFFFFFFEU);
  const MI_Real64 real = 65536.9;
  EXPECT_EQ(typeOf(MI_REAL64, &real), 65536U);
  const MI_Real32 single = 256.7F;
  EXPECT_EQ(typeOf(MI_REAL32, &single), 256U);
  const MI_Char16 letter = u'A';
  EXPECT_EQ(typeOf(MI_CHAR16, &letter), 65U);
}

TEST(PerfLoaderQualifierTest, TextDateTimeAndArraysAreTypeMismatches)
{
  const MI_Char* text = L"65536";
  const MI_Datetime when{};
  const MI_Uint32 items[2] = {1, 2};
  for (const auto& [type, value] : std::vector<std::pair<MI_Type, const void*>>{
         {MI_STRING, &text}, {MI_DATETIME, &when}, {MI_UINT32A, items}, {MI_INSTANCE, nullptr}})
  {
    const MI_Qualifier qualifier{L"CounterType", static_cast<MI_Uint32>(type), 0, value};
    try
    {
      CMiPerformanceLoader::CounterTypeOf(qualifier);
      ADD_FAILURE() << "type " << type << " converted";
    }
    catch (const CMiException& error)
    {
      EXPECT_EQ(error.message(), L"The value supplied is not compatible with the type") << type;
    }
  }
}

TEST_F(PerfLoaderTest, TwoClassesGiveTwoQueriesRunInClassNameOrder)
{
  SetRaw(L"a", 1, 1);
  other->Add({{L"Name", std::wstring(L"o")}, {L"Frequency_PerfTime", std::uint64_t{10}},
              {L"Timestamp_PerfTime", std::uint64_t{5}}, {L"Raw", std::uint32_t{3}}});
  // Handed over in the opposite order; the set puts "Test_PerfOther" first.
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}, {otherClass, {L"Raw"}}}));
  ASSERT_EQ(loader.Queries().size(), 2U);
  EXPECT_EQ(loader.Queries()[0].query, L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Raw FROM Test_PerfOther");
  EXPECT_EQ(loader.Queries()[1].query, L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Raw FROM Test_PerfRaw");

  cim::testing::MiMonitor().ClearHistory();
  loader.Load(*session, nullptr);
  const auto operations = cim::testing::MiMonitor().Operations();
  ASSERT_EQ(operations.size(), 2U);
  EXPECT_EQ(operations[0].query, loader.Queries()[0].query);
  EXPECT_EQ(operations[1].query, loader.Queries()[1].query);
  EXPECT_EQ(operations[0].nameSpace, L"root/cimv2");
  EXPECT_EQ(Data(L"o", L"Raw", otherClass).value, 3.0);
  EXPECT_EQ(Data(L"a", L"Raw").value, 7.0);
}

TEST_F(PerfLoaderTest, RateHasNoValueOnFirstLoadAndAValueWithIntervalOnTheSecond)
{
  SetRaw(L"a", 100, 1000);
  loader.SetFilter(Filters({{rawClass, {L"Rate", L"Raw"}}}));
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"a", L"Rate").value.has_value());
  EXPECT_TRUE(Data(L"a", L"Rate").hasSample);
  EXPECT_EQ(Data(L"a", L"Rate").interval, 0U);
  EXPECT_EQ(Data(L"a", L"Raw").value, 7.0);
  EXPECT_EQ(Data(L"a", L"Rate").lastSample.value, 100);
  EXPECT_EQ(Data(L"a", L"Rate").lastSample.frequency, 10);
  EXPECT_EQ(Data(L"a", L"Rate").lastSample.timestamp, 1000);
  EXPECT_EQ(Data(L"a", L"Rate").lastSample.base, 0);

  raw->Clear();
  SetRaw(L"a", 200, 2000);
  loader.Load(*session, nullptr);
  // (100 - 200) / ((1000 - 2000) / 10) = 1 per second over (2000 - 1000) / 10 = 100 s.
  ASSERT_TRUE(Data(L"a", L"Rate").value.has_value());
  EXPECT_DOUBLE_EQ(*Data(L"a", L"Rate").value, 1.0);
  EXPECT_EQ(Data(L"a", L"Rate").interval, 100U);
  EXPECT_EQ(Data(L"a", L"Rate").lastSample.value, 200);
}

TEST_F(PerfLoaderTest, AllInstancesOfOneQueryShareOneTick)
{
  SetRaw(L"a", 1, 1);
  SetRaw(L"b", 1, 1);
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}}));
  const auto before = static_cast<std::int64_t>(GetTickCount64());
  loader.Load(*session, nullptr);
  const auto after = static_cast<std::int64_t>(GetTickCount64());
  const auto tick = Data(L"a", L"Raw").lastSample.tick;
  EXPECT_EQ(Data(L"b", L"Raw").lastSample.tick, tick);
  EXPECT_GE(tick, before);
  EXPECT_LE(tick, after);
}

TEST_F(PerfLoaderTest, NullNamesShareTheEmptyNameAndTheLaterOverwrites)
{
  raw->Add({{L"Frequency_PerfTime", std::uint64_t{10}}, {L"Timestamp_PerfTime", std::uint64_t{1}},
            {L"Raw", std::uint32_t{11}}});
  raw->Add({{L"Frequency_PerfTime", std::uint64_t{10}}, {L"Timestamp_PerfTime", std::uint64_t{2}},
            {L"Raw", std::uint32_t{22}}});
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}}));
  loader.Load(*session, nullptr);
  const auto& instances = loader.Results().at(rawClass).instances;
  ASSERT_EQ(instances.size(), 1U);
  EXPECT_EQ(instances.begin()->first, L"");
  EXPECT_EQ(Data(L"", L"Raw").value, 22.0);
  EXPECT_EQ(Data(L"", L"Raw").lastSample.timestamp, 2);
}

TEST_F(PerfLoaderTest, FailedCounterClearsItsSampleSoTheNextLoadHasNoRateAgain)
{
  SetRaw(L"a", 100, 1000);
  loader.SetFilter(Filters({{rawClass, {L"Rate", L"Raw"}}}));
  loader.Load(*session, nullptr);

  raw->Clear();
  SetRaw(L"a", 200, 2000);
  raw->FailElement(0, L"Rate", MI_RESULT_ACCESS_DENIED);
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"a", L"Rate").value.has_value());
  EXPECT_FALSE(Data(L"a", L"Rate").hasSample);
  // The other counter of the same instance went on.
  EXPECT_EQ(Data(L"a", L"Raw").value, 7.0);
  EXPECT_EQ(capture.Sink().Count(L"[MiLoader] Failed to process counter Rate of class Test_PerfRaw"), 1U);
  EXPECT_EQ(capture.Sink().Count(L"MI_Instance_GetElement"), 1U);

  raw->Clear();
  SetRaw(L"a", 300, 3000);
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"a", L"Rate").value.has_value());
  EXPECT_TRUE(Data(L"a", L"Rate").hasSample);

  raw->Clear();
  SetRaw(L"a", 400, 4000);
  loader.Load(*session, nullptr);
  EXPECT_DOUBLE_EQ(Data(L"a", L"Rate").value.value_or(-1), 1.0);
}

TEST_F(PerfLoaderTest, CounterWithoutCounterTypeQualifierFails)
{
  SetRaw(L"a", 1, 1);
  // "Lower" carries the qualifier only in another case: the name must match exactly.
  loader.SetFilter(Filters({{rawClass, {L"Bare", L"Lower", L"Raw"}}}));
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"a", L"Bare").value.has_value());
  EXPECT_FALSE(Data(L"a", L"Bare").hasSample);
  EXPECT_FALSE(Data(L"a", L"Lower").hasSample);
  EXPECT_TRUE(Data(L"a", L"Raw").hasSample);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter Bare of class Test_PerfRaw"), 1U);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter Lower of class Test_PerfRaw"), 1U);
  EXPECT_EQ(capture.Sink().Count(L"Qualifier 'CounterType' was not found"), 2U);
}

TEST_F(PerfLoaderTest, TextCounterTypeQualifierIsATypeMismatch)
{
  SetRaw(L"a", 1, 1);
  loader.SetFilter(Filters({{rawClass, {L"Texty"}}}));
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"a", L"Texty").hasSample);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter Texty of class Test_PerfRaw"), 1U);
  EXPECT_EQ(capture.Sink().Count(L"The value supplied is not compatible with the type"), 1U);
}

TEST_F(PerfLoaderTest, NullCounterIsNoReadingAndNullTimeBaseFailsTheCounter)
{
  raw->Add({{L"Name", std::wstring(L"noRate")}, {L"Frequency_PerfTime", std::uint64_t{10}},
            {L"Timestamp_PerfTime", std::uint64_t{1}}, {L"Raw", std::uint32_t{5}}});
  raw->Add({{L"Name", std::wstring(L"noTime")}, {L"Frequency_PerfTime", std::uint64_t{10}},
            {L"Rate", std::uint64_t{1}}, {L"Raw", std::uint32_t{5}}});
  loader.SetFilter(Filters({{rawClass, {L"Rate", L"Raw"}}}));
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"noRate", L"Rate").hasSample);
  EXPECT_TRUE(Data(L"noRate", L"Raw").hasSample);
  EXPECT_FALSE(Data(L"noTime", L"Rate").hasSample);
  EXPECT_FALSE(Data(L"noTime", L"Raw").hasSample);
  // A NULL counter is no reading and is not logged; a NULL time base fails the counter.
  EXPECT_EQ(capture.Sink().Count(L"Property 'Rate' is null"), 0U);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter Rate of class Test_PerfRaw"), 1U);
  EXPECT_EQ(capture.Sink().Count(L"Property 'Timestamp_PerfTime' is null"), 2U);
}

TEST_F(PerfLoaderTest, NullCounterAfterAReadingDropsTheStoredSample)
{
  SetRaw(L"a", 100, 1000);
  loader.SetFilter(Filters({{rawClass, {L"Rate"}}}));
  loader.Load(*session, nullptr);
  ASSERT_TRUE(Data(L"a", L"Rate").hasSample);
  raw->Clear();
  raw->Add({{L"Name", std::wstring(L"a")}, {L"Frequency_PerfTime", std::uint64_t{10}},
            {L"Timestamp_PerfTime", std::uint64_t{2000}}});
  loader.Load(*session, nullptr);
  EXPECT_FALSE(Data(L"a", L"Rate").value.has_value());
  EXPECT_FALSE(Data(L"a", L"Rate").hasSample);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter"), 0U);
}

TEST_F(PerfLoaderTest, FailedClassEmptiesItsInstancesKeepsItsErrorAndStartsAfresh)
{
  SetRaw(L"a", 100, 1000);
  other->Add({{L"Name", std::wstring(L"o")}, {L"Frequency_PerfTime", std::uint64_t{10}},
              {L"Timestamp_PerfTime", std::uint64_t{5}}, {L"Raw", std::uint32_t{3}}});
  loader.SetFilter(Filters({{rawClass, {L"Rate"}}, {otherClass, {L"Raw"}}}));
  loader.Load(*session, nullptr);
  ASSERT_EQ(loader.Results().at(rawClass).instances.size(), 1U);

  // The query delivers one instance and then fails.
  raw->Clear();
  SetRaw(L"a", 200, 2000);
  raw->FailQuery(MI_RESULT_FAILED, L"provider broke", 1);
  loader.Load(*session, nullptr);
  const auto& failed = loader.Results().at(rawClass);
  EXPECT_TRUE(failed.instances.empty());
  ASSERT_TRUE(failed.error);
  EXPECT_THROW(std::rethrow_exception(failed.error), CMiException);
  EXPECT_EQ(capture.Sink().Count(
              L"[MiLoader] Failed to execute 'SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Rate FROM Test_PerfRaw'"),
            1U);
  // The other class of the same load is untouched.
  EXPECT_FALSE(loader.Results().at(otherClass).error);
  EXPECT_EQ(Data(L"o", L"Raw", otherClass).value, 3.0);

  raw->Succeed();
  raw->Clear();
  SetRaw(L"a", 300, 3000);
  loader.Load(*session, nullptr);
  EXPECT_FALSE(loader.Results().at(rawClass).error);
  // No stored sample survived the failure, so the rate starts again.
  EXPECT_FALSE(Data(L"a", L"Rate").value.has_value());
  EXPECT_TRUE(Data(L"a", L"Rate").hasSample);
}

TEST_F(PerfLoaderTest, UnknownClassFailsItsQueryOnly)
{
  SetRaw(L"a", 1, 1);
  loader.SetFilter(Filters({{L"Test_Missing", {L"Raw"}}, {rawClass, {L"Raw"}}}));
  loader.Load(*session, nullptr);
  EXPECT_TRUE(loader.Results().at(L"Test_Missing").error);
  EXPECT_EQ(Data(L"a", L"Raw").value, 7.0);
  EXPECT_EQ(capture.Sink().Count(L"Failed to execute 'SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Raw FROM Test_Missing'"), 1U);
}

TEST_F(PerfLoaderTest, EmptyFilterIsRefusedAndLeavesTheLoaderUnconfigured)
{
  try
  {
    loader.SetFilter(Filters({{L"A_Class", {L"x"}}, {L"B_Class", {}}}));
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"Counters are unset");
  }
  EXPECT_TRUE(loader.Queries().empty());
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}}));
  EXPECT_EQ(loader.Queries().size(), 1U);
}

TEST_F(PerfLoaderTest, SecondFilterIsRefused)
{
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}}));
  try
  {
    loader.SetFilter(Filters({{otherClass, {L"Raw"}}}));
    FAIL() << "no exception";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"Already initialized");
  }
  ASSERT_EQ(loader.Queries().size(), 1U);
  EXPECT_EQ(loader.Queries()[0].filter.className, rawClass);
}

TEST_F(PerfLoaderTest, CancellationBetweenClassesKeepsEarlierResults)
{
  SetRaw(L"a", 1, 1);
  other->Add({{L"Name", std::wstring(L"o")}, {L"Frequency_PerfTime", std::uint64_t{10}},
              {L"Timestamp_PerfTime", std::uint64_t{5}}, {L"Raw", std::uint32_t{3}}});
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}, {otherClass, {L"Raw"}}}));
  // The first test passes (Test_PerfOther is loaded), the second cancels.
  const auto token = std::make_shared<CCountingToken>(2);
  EXPECT_THROW(loader.Load(*session, token), CInterruptedException);
  EXPECT_EQ(token->Tests(), 2);
  EXPECT_EQ(Data(L"o", L"Raw", otherClass).value, 3.0);
  EXPECT_EQ(loader.Results().count(rawClass), 0U);
  EXPECT_EQ(cim::testing::MiMonitor().Live().operations, 0);
}

TEST_F(PerfLoaderTest, InstancesNoLongerSeenStayWithTheirSamplesButNoValue)
{
  SetRaw(L"a", 1, 1);
  SetRaw(L"b", 1, 1);
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}}));
  loader.Load(*session, nullptr);
  raw->Clear();
  SetRaw(L"a", 1, 2, 9);
  loader.Load(*session, nullptr);
  EXPECT_EQ(loader.Results().at(rawClass).instances.size(), 2U);
  EXPECT_EQ(Data(L"a", L"Raw").value, 9.0);
  EXPECT_FALSE(Data(L"b", L"Raw").value.has_value());
  EXPECT_TRUE(Data(L"b", L"Raw").hasSample);
  EXPECT_EQ(Data(L"b", L"Raw").lastSample.value, 7);
}

// Samples persist from one load to the next; values do not: a load reports only what it read.
TEST_F(PerfLoaderTest, InstanceBackAfterAGapRatesAgainstTheSampleFromBeforeTheGap)
{
  SetRaw(L"a", 100, 1000);
  SetRaw(L"b", 100, 1000);
  loader.SetFilter(Filters({{rawClass, {L"Rate"}}}));
  loader.Load(*session, nullptr);

  raw->Clear();
  SetRaw(L"a", 200, 2000);
  SetRaw(L"b", 300, 2000);
  loader.Load(*session, nullptr);
  EXPECT_DOUBLE_EQ(Data(L"a", L"Rate").value.value_or(-1), 1.0);
  EXPECT_DOUBLE_EQ(Data(L"b", L"Rate").value.value_or(-1), 2.0);

  // "b" is not delivered: its value of the previous load is not reported again, its sample stays.
  raw->Clear();
  SetRaw(L"a", 300, 3000);
  loader.Load(*session, nullptr);
  EXPECT_DOUBLE_EQ(Data(L"a", L"Rate").value.value_or(-1), 1.0);
  EXPECT_FALSE(Data(L"b", L"Rate").value.has_value());
  EXPECT_TRUE(Data(L"b", L"Rate").hasSample);
  EXPECT_EQ(Data(L"b", L"Rate").lastSample.value, 300);
  EXPECT_EQ(Data(L"b", L"Rate").lastSample.timestamp, 2000);
  EXPECT_EQ(Data(L"b", L"Rate").interval, 100U);

  // Back again: the rate and the interval span the gap, from the sample of the second load.
  raw->Clear();
  SetRaw(L"a", 400, 4000);
  SetRaw(L"b", 700, 4000);
  loader.Load(*session, nullptr);
  // (300 - 700) / ((2000 - 4000) / 10) = 2 per second over 200 s.
  EXPECT_DOUBLE_EQ(Data(L"b", L"Rate").value.value_or(-1), 2.0);
  EXPECT_EQ(Data(L"b", L"Rate").interval, 200U);
  EXPECT_EQ(Data(L"b", L"Rate").lastSample.timestamp, 4000);
}

TEST_F(PerfLoaderTest, FailedNameReadFailsTheWholeClass)
{
  SetRaw(L"a", 100, 1000);
  loader.SetFilter(Filters({{rawClass, {L"Rate"}}}));
  loader.Load(*session, nullptr);
  ASSERT_TRUE(Data(L"a", L"Rate").hasSample);

  raw->Clear();
  SetRaw(L"a", 200, 2000);
  SetRaw(L"b", 200, 2000);
  raw->FailElement(1, L"Name", MI_RESULT_ACCESS_DENIED);
  loader.Load(*session, nullptr);
  // "a" was read before "b" failed, yet the whole class is dropped, its samples with it.
  EXPECT_TRUE(loader.Results().at(rawClass).instances.empty());
  ASSERT_TRUE(loader.Results().at(rawClass).error);
  try
  {
    std::rethrow_exception(loader.Results().at(rawClass).error);
  }
  catch (const CMiException& error)
  {
    EXPECT_NE(error.message().find(L"MI_Instance_GetElement"), std::wstring::npos) << kelda::ToUtf8(error.message());
  }
  EXPECT_EQ(capture.Sink().Count(L"[MiLoader] Failed to execute 'SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,"
                                 L"Rate FROM Test_PerfRaw'"),
            1U);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter"), 0U);
}

TEST_F(PerfLoaderTest, FailedTimeBaseReadFailsEveryCounterOfThatInstanceOnly)
{
  SetRaw(L"a", 100, 1000);
  SetRaw(L"b", 100, 1000);
  raw->FailElement(0, L"Frequency_PerfTime", MI_RESULT_ACCESS_DENIED);
  loader.SetFilter(Filters({{rawClass, {L"Rate", L"Raw"}}}));
  loader.Load(*session, nullptr);
  EXPECT_FALSE(loader.Results().at(rawClass).error);
  EXPECT_FALSE(Data(L"a", L"Rate").hasSample);
  EXPECT_FALSE(Data(L"a", L"Raw").hasSample);
  EXPECT_FALSE(Data(L"a", L"Raw").value.has_value());
  EXPECT_TRUE(Data(L"b", L"Rate").hasSample);
  EXPECT_EQ(Data(L"b", L"Raw").value, 7.0);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter Rate of class Test_PerfRaw"), 1U);
  EXPECT_EQ(capture.Sink().Count(L"Failed to process counter Raw of class Test_PerfRaw"), 1U);
}

// The interval is the elapsed time integer-divided by the new frequency, whatever its sign; only
// a zero frequency, which has no quotient, leaves it as it was.
TEST_F(PerfLoaderTest, IntervalDividesByTheNewFrequency)
{
  const auto add = [this](std::uint64_t frequency, std::uint64_t timestamp) {
    raw->Clear();
    raw->Add({{L"Name", std::wstring(L"a")}, {L"Frequency_PerfTime", frequency},
              {L"Timestamp_PerfTime", timestamp}, {L"Raw", std::uint32_t{1}}});
  };
  loader.SetFilter(Filters({{rawClass, {L"Raw"}}}));
  add(10, 1000);
  loader.Load(*session, nullptr);
  EXPECT_EQ(Data(L"a", L"Raw").interval, 0U);

  // (2999 - 1000) / 10 truncates to 199.
  add(10, 2999);
  loader.Load(*session, nullptr);
  EXPECT_EQ(Data(L"a", L"Raw").interval, 199U);

  // A frequency of -10 (its 64-bit pattern): (4999 - 2999) / -10 = -200, kept in 32 bits.
  add(static_cast<std::uint64_t>(-10), 4999);
  loader.Load(*session, nullptr);
  EXPECT_EQ(Data(L"a", L"Raw").interval, static_cast<std::uint32_t>(-200));

  add(0, 9999);
  loader.Load(*session, nullptr);
  EXPECT_EQ(Data(L"a", L"Raw").interval, static_cast<std::uint32_t>(-200));
  EXPECT_EQ(Data(L"a", L"Raw").lastSample.timestamp, 9999);
  EXPECT_EQ(Data(L"a", L"Raw").value, 1.0);
}
} // namespace

// A class shaped as Windows publishes its raw classes: the three time bases and "<counter>_Base"
// properties right after their counters.
class PerfLoaderWindowsShapeTest : public ::testing::Test
{
protected:
  static constexpr const wchar_t* windowsClass = L"Test_PerfWindows";

  void SetUp() override
  {
    provider = host.AddClass(
        ClassBuilder(windowsClass)
            .Key(L"Name")
            .Property(L"Frequency_Object", Type::UInt64)
            .Property(L"Frequency_PerfTime", Type::UInt64)
            .Property(L"Frequency_Sys100NS", Type::UInt64)
            .Property(L"Timestamp_Object", Type::UInt64)
            .Property(L"Timestamp_PerfTime", Type::UInt64)
            .Property(L"Timestamp_Sys100NS", Type::UInt64)
            .Property(L"Busy", Type::UInt64, CounterType(std::uint32_t{PERF_100NSEC_TIMER}))
            .Property(L"Fraction", Type::UInt32, CounterType(std::uint32_t{PERF_RAW_FRACTION}))
            .Property(L"Fraction_Base", Type::UInt32, CounterType(std::uint32_t{PERF_RAW_BASE}))
            .Property(L"PerRead", Type::UInt32, CounterType(std::uint32_t{PERF_AVERAGE_TIMER}))
            .Property(L"PerRead_Base", Type::UInt32, CounterType(std::uint32_t{PERF_AVERAGE_BASE}))
            .Property(L"Started", Type::UInt64, CounterType(std::uint32_t{PERF_ELAPSED_TIME}))
            .Build());
    application = CMiApplication::CreateInstance();
    session = std::make_shared<CMiSession>(application);
    session->Connect(host.Destination(), L"", L"", L"");
    loader.SetFilter(CMiPerformanceLoader::ClassFilters({{windowsClass, {L"Busy", L"Fraction", L"PerRead", L"Started"}}}));
  }

  // One reading `seconds` after a start at FILETIME 133e15, on a PerfTime of 3,579,545 Hz.
  void Set(std::uint64_t seconds, std::uint64_t busy, std::optional<std::uint32_t> fractionBase, std::uint32_t readTicks,
           std::uint32_t reads)
  {
    provider->Clear();
    auto& instance = provider->AddEmpty();
    instance.Set(L"Name", std::wstring(L"x"));
    instance.Set(L"Frequency_Object", std::uint64_t{10'000'000});
    instance.Set(L"Frequency_PerfTime", std::uint64_t{3'579'545});
    instance.Set(L"Frequency_Sys100NS", std::uint64_t{10'000'000});
    instance.Set(L"Timestamp_Object", startFileTime + seconds * 10'000'000);
    instance.Set(L"Timestamp_PerfTime", seconds * 3'579'545);
    instance.Set(L"Timestamp_Sys100NS", startFileTime + seconds * 10'000'000);
    instance.Set(L"Busy", busy);
    instance.Set(L"Fraction", std::uint32_t{1});
    if (fractionBase)
      instance.Set(L"Fraction_Base", *fractionBase);
    instance.Set(L"PerRead", readTicks);
    instance.Set(L"PerRead_Base", reads);
    instance.Set(L"Started", startFileTime);
  }

  std::optional<double> Value(const wchar_t* counter) const
  {
    return loader.Results().at(windowsClass).instances.at(L"x").at(counter).value;
  }

  static constexpr std::uint64_t startFileTime = 133'000'000'000'000'000;
  cim::testing::TestHost host{L"perfloader"};
  std::shared_ptr<cim::testing::TestProvider> provider;
  std::shared_ptr<CMiApplication> application;
  std::shared_ptr<CMiSession> session;
  CLoggerCapture capture;
  CMiPerformanceLoader loader{std::make_shared<CLog>(nullptr, L"[MiLoader]")};
};

TEST_F(PerfLoaderWindowsShapeTest, FirstInstanceAddsTheDeclaredTimeBasesAndBasesToTheQuery)
{
  Set(10, 0, 4, 0, 0);
  EXPECT_EQ(loader.Queries()[0].query,
            L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Busy,Fraction,PerRead,Started FROM Test_PerfWindows");
  cim::testing::MiMonitor().ClearHistory();
  loader.Load(*session, nullptr);
  const std::wstring full = L"SELECT Name,Frequency_PerfTime,Timestamp_PerfTime,Frequency_Object,Timestamp_Object,"
                            L"Timestamp_Sys100NS,Busy,Fraction,Fraction_Base,PerRead,PerRead_Base,Started FROM Test_PerfWindows";
  EXPECT_EQ(loader.Queries()[0].query, full);
  auto operations = cim::testing::MiMonitor().Operations();
  ASSERT_EQ(operations.size(), 2U);
  EXPECT_EQ(operations[1].query, full);
  // The first load's values come from the full query already.
  EXPECT_EQ(Value(L"Fraction"), 25.0);
  EXPECT_EQ(Value(L"Started"), 10.0);
  const auto& sample = loader.Results().at(windowsClass).instances.at(L"x").at(L"Fraction").lastSample;
  EXPECT_EQ(sample.base, 4);
  EXPECT_EQ(sample.time100ns, static_cast<std::int64_t>(startFileTime + 100'000'000));
  EXPECT_EQ(sample.objectFrequency, 10'000'000);

  cim::testing::MiMonitor().ClearHistory();
  loader.Load(*session, nullptr);
  operations = cim::testing::MiMonitor().Operations();
  ASSERT_EQ(operations.size(), 1U);
  EXPECT_EQ(operations[0].query, full);
}

TEST_F(PerfLoaderWindowsShapeTest, CountersUseTheirTypesTimeBaseAndBase)
{
  Set(10, 0, 4, 0, 0);
  loader.Load(*session, nullptr);
  // 2 s later: 1 s busy (PERF_100NSEC_TIMER against Sys100NS, not the 3.58 MHz PerfTime), and
  // 4 reads that took 1 s of PerfTime ticks (PERF_AVERAGE_TIMER over its base).
  Set(12, 10'000'000, 4, 3'579'545, 4);
  loader.Load(*session, nullptr);
  ASSERT_TRUE(Value(L"Busy").has_value());
  EXPECT_DOUBLE_EQ(*Value(L"Busy"), 50.0);
  ASSERT_TRUE(Value(L"PerRead").has_value());
  EXPECT_DOUBLE_EQ(*Value(L"PerRead"), 0.25);
  EXPECT_EQ(Value(L"Started"), 12.0);
  EXPECT_EQ(loader.Results().at(windowsClass).instances.at(L"x").at(L"Busy").interval, 2U);
}

TEST_F(PerfLoaderWindowsShapeTest, NullBaseIsNoReadingOfItsCounter)
{
  Set(10, 0, std::nullopt, 0, 0);
  loader.Load(*session, nullptr);
  const auto& data = loader.Results().at(windowsClass).instances.at(L"x").at(L"Fraction");
  EXPECT_FALSE(data.value.has_value());
  EXPECT_FALSE(data.hasSample);
  EXPECT_EQ(Value(L"Started"), 10.0);
  EXPECT_EQ(capture.Sink().Count(L"Failed"), 0U);
}
