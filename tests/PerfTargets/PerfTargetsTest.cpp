// CPerfTargetCollection: numbers given once, removal of targets an update did not report, the
// change records (operation code as record type; "c", "ins", "id"), the "_Total" rule, and the
// order of identities.
#include "PerfTargetCollectoin.h"

#include "Collector.Interfaces.Impl.h"

#include <gtest/gtest.h>

#include <mutex>
#include <vector>

using collector::ni::FieldValue;
using collector::ni::ICollectionTypes;
using collector::ni::IRecord;
using collector::ni::impl::CPerfTargetCollection;
using Identity = CPerfTargetCollection::TargetIdentity;
using View = CPerfTargetCollection::TargetIdentityView;

namespace
{
constexpr std::wstring_view processor = L"Win32_PerfRawData_PerfOS_Processor";
constexpr std::wstring_view busy = L"PercentProcessorTime";

class CBatchSubscriber : public ICollectionTypes::ISubscriber
{
public:
  void OnRecords(const GUID& collectionId, ICollectionTypes::Records records) override
  {
    const std::lock_guard lock(m_lock);
    ids.push_back(collectionId);
    batches.emplace_back(records.begin(), records.end());
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}

  std::mutex m_lock;
  std::vector<GUID> ids;
  std::vector<std::vector<std::shared_ptr<IRecord>>> batches;
};

struct Seen
{
  std::uint32_t operation;
  FieldValue value;
  tstring instance;
  __int64 id;
};

Seen Read(IRecord& record)
{
  auto& composite = dynamic_cast<collector::ni::ICompositionRecord&>(record);
  return {composite.GetType(), record.GetField(L"c")->GetValue(),
          std::get<tstring>(record.GetField(L"ins")->GetValue()),
          std::get<__int64>(record.GetField(L"id")->GetValue())};
}

class PerfTargetsTest : public ::testing::Test
{
protected:
  void SetUp() override { targets->Subscribe(subscriber); }

  std::uint64_t Report(std::wstring_view instance, const FieldValue& value = tstring(L"target"))
  {
    return targets->GetOrAddTarget({instance, busy, processor}, value);
  }

  std::shared_ptr<CPerfTargetCollection> targets = std::make_shared<CPerfTargetCollection>();
  std::shared_ptr<CBatchSubscriber> subscriber = std::make_shared<CBatchSubscriber>();
};

TEST_F(PerfTargetsTest, FirstUpdateNumbersTargetsAndNotifiesTwoAdditions)
{
  EXPECT_EQ(Report(L"A", tstring(L"cpu A")), 1U);
  EXPECT_EQ(Report(L"B", static_cast<__int64>(42)), 2U);
  // A second report in the same update keeps the number and adds nothing.
  EXPECT_EQ(Report(L"A"), 1U);
  targets->EndUpdateAndNotify();

  ASSERT_EQ(subscriber->batches.size(), 1U);
  EXPECT_EQ(subscriber->ids.front(), targets->GetId());
  const auto& batch = subscriber->batches.front();
  ASSERT_EQ(batch.size(), 2U);
  const Seen a = Read(*batch[0]);
  const Seen b = Read(*batch[1]);
  EXPECT_EQ(a.operation, 1U);
  EXPECT_EQ(a.instance, L"A");
  EXPECT_EQ(a.id, 1);
  EXPECT_EQ(std::get<tstring>(a.value), L"cpu A");
  EXPECT_EQ(b.operation, 1U);
  EXPECT_EQ(b.instance, L"B");
  EXPECT_EQ(b.id, 2);
  EXPECT_EQ(std::get<__int64>(b.value), 42);
}

TEST_F(PerfTargetsTest, AdditionsComeInOrderOfAdditionNotTargetOrder)
{
  Report(L"zeta");
  Report(L"alpha");
  const auto changes = targets->EndUpdate();
  ASSERT_EQ(changes.size(), 2U);
  EXPECT_EQ(changes[0].identity.instance, L"zeta");
  EXPECT_EQ(changes[1].identity.instance, L"alpha");
}

TEST_F(PerfTargetsTest, UnreportedTargetIsRemovedAndReappearsWithANewNumber)
{
  Report(L"A");
  Report(L"B");
  targets->EndUpdateAndNotify();

  EXPECT_EQ(Report(L"B"), 2U);
  targets->EndUpdateAndNotify();
  ASSERT_EQ(subscriber->batches.size(), 2U);
  ASSERT_EQ(subscriber->batches[1].size(), 1U);
  const Seen removed = Read(*subscriber->batches[1][0]);
  EXPECT_EQ(removed.operation, 3U);
  EXPECT_EQ(removed.instance, L"A");
  EXPECT_EQ(removed.id, 1);

  EXPECT_EQ(Report(L"B"), 2U);
  EXPECT_EQ(Report(L"A"), 3U);
  targets->EndUpdateAndNotify();
  ASSERT_EQ(subscriber->batches[2].size(), 1U);
  const Seen again = Read(*subscriber->batches[2][0]);
  EXPECT_EQ(again.operation, 1U);
  EXPECT_EQ(again.id, 3);
}

TEST_F(PerfTargetsTest, AdditionsPrecedeRemovalsAndRemovalsFollowTargetOrder)
{
  Report(L"c");
  Report(L"a");
  Report(L"b");
  targets->EndUpdateAndNotify();
  Report(L"new");
  targets->EndUpdateAndNotify();
  const auto& batch = subscriber->batches.back();
  ASSERT_EQ(batch.size(), 4U);
  EXPECT_EQ(Read(*batch[0]).operation, 1U);
  EXPECT_EQ(Read(*batch[0]).instance, L"new");
  EXPECT_EQ(Read(*batch[1]).instance, L"a");
  EXPECT_EQ(Read(*batch[2]).instance, L"b");
  EXPECT_EQ(Read(*batch[3]).instance, L"c");
  for (std::size_t i = 1; i < 4; ++i)
    EXPECT_EQ(Read(*batch[i]).operation, 3U);
}

TEST_F(PerfTargetsTest, AnUpdateWithoutChangesNotifiesAnEmptyBatch)
{
  Report(L"A");
  targets->EndUpdateAndNotify();
  Report(L"A");
  targets->EndUpdateAndNotify();
  ASSERT_EQ(subscriber->batches.size(), 2U);
  EXPECT_TRUE(subscriber->batches[1].empty());
}

TEST_F(PerfTargetsTest, TotalInAnyCaseIsReportedAsEmptyInstance)
{
  for (const wchar_t* name : {L"_Total", L"_TOTAL", L"_total", L"_ToTaL"})
    Report(name);
  Report(L"_Totality");
  Report(L"_Tota");
  targets->EndUpdateAndNotify();
  const auto& batch = subscriber->batches.front();
  ASSERT_EQ(batch.size(), 6U);
  for (std::size_t i = 0; i < 4; ++i)
    EXPECT_EQ(Read(*batch[i]).instance, L"") << i;
  EXPECT_EQ(Read(*batch[4]).instance, L"_Totality");
  EXPECT_EQ(Read(*batch[5]).instance, L"_Tota");
  // The target itself keeps its real name.
  EXPECT_EQ(targets->Targets().begin()->first.instance.substr(0, 2), L"_T");
}

TEST_F(PerfTargetsTest, TargetsDifferingOnlyInInstanceAreOrderedByInstance)
{
  Report(L"b");
  Report(L"ab");
  Report(L"a");
  Report(L"B");
  std::vector<tstring> order;
  for (const auto& [identity, data] : targets->Targets())
    order.push_back(identity.instance);
  EXPECT_EQ(order, (std::vector<tstring>{L"B", L"a", L"ab", L"b"}));
}

TEST(PerfTargetIdentityTest, ClassComesFirstThenCounterThenInstance)
{
  const CPerfTargetCollection::TargetIdentityComparer less;
  const Identity a{L"z", L"z", L"A"};
  const Identity b{L"a", L"a", L"B"};
  EXPECT_TRUE(less(a, b));
  const Identity c{L"z", L"A", L"K"};
  const Identity d{L"a", L"B", L"K"};
  EXPECT_TRUE(less(c, d));
  EXPECT_FALSE(less(d, c));
  // A prefix sorts first; equal identities are not less.
  EXPECT_TRUE(less(Identity{L"ab", L"c", L"K"}, Identity{L"abc", L"c", L"K"}));
  EXPECT_FALSE(less(a, a));
  // The view compares like the identity it names.
  EXPECT_TRUE(less(View{L"z", L"z", L"A"}, b));
  EXPECT_FALSE(less(b, View{L"z", L"z", L"A"}));
}

TEST_F(PerfTargetsTest, TargetRecordIsKeyedByItsNumber)
{
  Report(L"A", 2.5);
  targets->EndUpdateAndNotify();
  auto& record = *subscriber->batches.front().front();
  ASSERT_NE(record.GetKey(), nullptr);
  const auto& keyFields = record.GetKey()->GetFields();
  ASSERT_EQ(keyFields.size(), 1U);
  EXPECT_EQ(keyFields[0]->GetName(), L"id");
  EXPECT_EQ(std::get<__int64>(keyFields[0]->GetValue()), 1);
  EXPECT_EQ(std::get<double>(record.GetField(L"c")->GetValue()), 2.5);
}

TEST_F(PerfTargetsTest, IsACollectionWithIdentifierOnly)
{
  const auto other = std::make_shared<CPerfTargetCollection>();
  EXPECT_NE(targets->GetId(), other->GetId());
  EXPECT_NE(targets->GetId(), GUID_NULL);
  EXPECT_EQ(targets->GetName(), L"");
  EXPECT_EQ(targets->GetClass(), nullptr);
  EXPECT_EQ(targets->GetState(), ICollectionTypes::Running);
}

TEST_F(PerfTargetsTest, NumbersKeepRisingAcrossUpdates)
{
  for (int update = 0; update < 3; ++update)
  {
    // A different target each time: the previous one is removed, none is reused.
    EXPECT_EQ(Report(std::to_wstring(update)), static_cast<std::uint64_t>(update + 1));
    targets->EndUpdateAndNotify();
  }
  EXPECT_EQ(targets->NumbersGiven(), 3U);
  EXPECT_EQ(targets->Targets().size(), 1U);
}
} // namespace
