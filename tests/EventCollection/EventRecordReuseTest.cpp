// Records lent to subscribers and filled again once they let go: what every subscriber sees is
// the event's own record, whatever an earlier subscriber did with the record before it let go
// (looked fields up, which sorts them; detached them; changed values; added a field), and a
// record a subscriber keeps is never written to again.
#include "EventTestSupport.h"

#include "Collector.Interfaces.Impl.h"
#include "RecordRecycler.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace
{
using namespace events_test;
using collector::ni::FieldValue;
using collector::ni::IField;
using collector::ni::impl::CField;
using collector::ni::impl::CKey;
using collector::ni::impl::CRecordOnVector;
using collector::ni::impl::CRecordRecycler;

std::wstring Show(const FieldValue& value)
{
  std::wostringstream out;
  switch (value.index())
  {
  case 0:
    out << L'"' << std::get<0>(value) << L'"';
    break;
  case 1:
    out << std::get<1>(value);
    break;
  case 3:
    out << std::get<3>(value).GetDate();
    break;
  case 4:
    for (const auto& item : std::get<4>(value))
      out << L'[' << item << L']';
    break;
  default:
    out << L"kind " << value.index();
  }
  return out.str();
}

// Everything a subscriber can read of a record, fields in their order.
std::wstring Snapshot(IRecord& record)
{
  std::wstring text;
  if (auto* composition = dynamic_cast<collector::ni::ICompositionRecord*>(&record))
    text += L"type " + std::to_wstring(composition->GetType()) + L";";
  if (auto* key = record.GetKey())
  {
    text += key->GetClass() ? key->GetClass()->GetName() : L"no class";
    for (const auto& field : key->GetFields())
      text += L" key " + field->GetName() + L"=" + Show(field->GetValue());
  }
  for (const CField& field : dynamic_cast<CRecordOnVector&>(record).GetFields())
    text += L"; " + field.GetName() + L"=" + Show(field.GetValue());
  return text;
}

// What a subscriber does with a record before it lets go of it.
enum class EUse
{
  Read,
  LookUp,
  Detach,
  Change,
  Extend,
};

// Takes a snapshot of each record, then uses it as told and lets it go.
class CSnapshotSubscriber : public ICollectionTypes::ISubscriber
{
public:
  explicit CSnapshotSubscriber(EUse use) : m_use(use) {}

  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    for (const auto& record : records)
    {
      snapshots.push_back(Snapshot(*record));
      switch (m_use)
      {
      case EUse::Read:
        break;
      case EUse::LookUp:
        record->FindField(L"SourceName");
        break;
      case EUse::Detach:
        std::unique_ptr<collector::ni::ICompositionRecord>(
          dynamic_cast<collector::ni::ICompositionRecord&>(*record).Detach());
        break;
      case EUse::Change:
        record->GetField(L"SourceName")->GetValue() = FieldValue(static_cast<__int64>(7));
        record->GetField(L"Data")->GetValue() = FieldValue(tstring(L"changed"));
        record->GetField(L"InitiatedBy")->GetValue() = FieldValue(std::vector<tstring>{L"x", L"y"});
        dynamic_cast<CRecordOnVector&>(*record).SetType(9);
        break;
      case EUse::Extend:
        dynamic_cast<CRecordOnVector&>(*record).AddField(std::make_shared<tstring>(L"Extra"), 1);
        break;
      }
    }
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}

  std::vector<std::wstring> snapshots;

private:
  EUse m_use;
};

class EventRecordReuse : public CWrittenLogTest
{
protected:
  // Events of varied providers, accounts and data counts (none, one, several, long texts).
  void WriteEvents()
  {
    CChannelWriter writer(host.ChannelFile("Application"), "Application");
    for (int i = 0; i < 12; ++i)
      writer.Append(i, [i](evtx::WriterEvent& e) {
        e.provider = i % 3 == 0 ? "A" : "A provider with a rather long name " + std::to_string(i);
        e.userSid = i % 2 == 0 ? "S-1-5-18" : "S-1-5-21-3623811015-3361044348-30300820-" + std::to_string(1000 + i);
        e.level = static_cast<std::uint8_t>(i % 5);
        if (i % 4 == 1)
          e.data.clear();
        for (int d = 0; d < i % 5; ++d)
          e.data.push_back({"Value" + std::to_string(d), evtx::WriterValue::Text(std::string(static_cast<std::size_t>(i * 7 + d), static_cast<char>('a' + d)))});
      });
    SetChannels({L"Application"});
  }

  // The snapshots of records that every subscriber keeps: none of them was reused.
  std::vector<std::wstring> Expected()
  {
    collection->UpdateOnce();
    std::vector<std::wstring> expected;
    for (const auto& record : subscriber->Records())
      expected.push_back(Snapshot(*record));
    return expected;
  }

  std::vector<std::wstring> SeenBy(EUse use)
  {
    auto other = parts.Make(host.Path().wstring());
    auto watcher = std::make_shared<CSnapshotSubscriber>(use);
    other->Subscribe(watcher);
    auto filters = Filters({L"Application"});
    other->SetFilter(filters);
    other->UpdateOnce();
    return watcher->snapshots;
  }
};

TEST_F(EventRecordReuse, EachRecordIsTheEventsOwnWhateverTheLastHolderDidWithItsRecord)
{
  WriteEvents();
  const std::vector<std::wstring> expected = Expected();
  ASSERT_EQ(expected.size(), 12u);
  for (const EUse use : {EUse::Read, EUse::LookUp, EUse::Detach, EUse::Change, EUse::Extend})
    EXPECT_EQ(SeenBy(use), expected) << "use " << static_cast<int>(use);
}

TEST_F(EventRecordReuse, ARecordKeptByASubscriberIsNotWrittenToByLaterEvents)
{
  WriteEvents();
  std::vector<std::wstring> atDelivery;
  subscriber->onRecord = [&atDelivery](ICollectionTypes::Records records) {
    for (const auto& record : records)
      atDelivery.push_back(Snapshot(*record));
  };
  collection->UpdateOnce();
  std::vector<std::wstring> afterwards;
  for (const auto& record : subscriber->Records())
    afterwards.push_back(Snapshot(*record));
  EXPECT_EQ(afterwards, atDelivery);
}

TEST(RecordRecycler, ARecordComesBackWhenItsLastHolderLetsGo)
{
  auto recycler = std::make_shared<CRecordRecycler>();
  EXPECT_EQ(recycler->Take(), nullptr);
  auto record = std::make_unique<CRecordOnVector>(CKey(), 1, 8);
  CRecordOnVector* const address = record.get();
  std::shared_ptr<CRecordOnVector> lent = CRecordRecycler::Share(recycler, std::move(record));
  std::shared_ptr<CRecordOnVector> alsoHeld = lent;
  lent.reset();
  EXPECT_EQ(recycler->Take(), nullptr);
  alsoHeld.reset();
  std::unique_ptr<CRecordOnVector> back = recycler->Take();
  EXPECT_EQ(back.get(), address);
  EXPECT_EQ(recycler->Take(), nullptr);
}

TEST(RecordRecycler, ARecordLetGoAfterTheRecyclerIsGoneIsDeleted)
{
  auto recycler = std::make_shared<CRecordRecycler>();
  std::shared_ptr<CRecordOnVector> lent = CRecordRecycler::Share(recycler, std::make_unique<CRecordOnVector>());
  std::weak_ptr<CRecordRecycler> watch = recycler;
  recycler.reset();
  // The lent record keeps the recycler until it comes back; then both go (ASan sees a leak).
  EXPECT_FALSE(watch.expired());
  lent.reset();
  EXPECT_TRUE(watch.expired());
}

// Hands each record to a function and keeps nothing.
class CCallbackSubscriber : public ICollectionTypes::ISubscriber
{
public:
  explicit CCallbackSubscriber(std::function<void(const std::shared_ptr<IRecord>&)> onRecord)
    : m_onRecord(std::move(onRecord))
  {
  }
  void OnRecords(const GUID&, ICollectionTypes::Records records) override
  {
    for (const auto& record : records)
      m_onRecord(record);
  }
  void OnStateChanged(const GUID&, const ICollectionTypes::IState&) override {}

private:
  std::function<void(const std::shared_ptr<IRecord>&)> m_onRecord;
};

class EventKeyReuse : public EventRecordReuse
{
protected:
  // One update of the written events, with only `onRecord` subscribed.
  void UpdateWith(std::function<void(const std::shared_ptr<IRecord>&)> onRecord)
  {
    WriteEvents();
    auto other = parts.Make(host.Path().wstring());
    other->Subscribe(std::make_shared<CCallbackSubscriber>(std::move(onRecord)));
    auto filters = Filters({L"Application"});
    other->SetFilter(filters);
    other->UpdateOnce();
  }
};

// The key's field of a record no one holds any more is written with the next event's value
// rather than made again: a weak reference to the first event's key field finds it in every
// later record, with that record's value.
TEST_F(EventKeyReuse, TheKeyFieldOfARecordThatCameBackCarriesTheNextEvent)
{
  std::weak_ptr<IField> firstField;
  std::vector<bool> sameField;
  std::vector<FieldValue> keyValues;
  UpdateWith([&](const std::shared_ptr<IRecord>& record) {
    ASSERT_EQ(record->GetKey()->GetFields().size(), 1u);
    const std::shared_ptr<IField>& field = record->GetKey()->GetFields().front();
    EXPECT_EQ(field->GetName(), L"InternalId");
    if (keyValues.empty())
      firstField = field;
    sameField.push_back(firstField.lock() == field);
    keyValues.push_back(field->GetValue());
  });
  ASSERT_EQ(keyValues.size(), 12u);
  EXPECT_EQ(sameField, std::vector<bool>(12, true));
  EXPECT_NE(keyValues.front(), keyValues.back());
}

// A key field a subscriber keeps (without its record) is left as it was: the next event gets a
// field of its own.
TEST_F(EventKeyReuse, AKeyFieldKeptByASubscriberIsNotWrittenToByLaterEvents)
{
  std::vector<std::shared_ptr<IField>> keyFields;
  std::vector<FieldValue> keyValues;
  UpdateWith([&](const std::shared_ptr<IRecord>& record) {
    keyFields.push_back(record->GetKey()->GetFields().front());
    keyValues.push_back(keyFields.back()->GetValue());
  });
  ASSERT_EQ(keyFields.size(), 12u);
  for (std::size_t i = 0; i < keyFields.size(); ++i)
    EXPECT_EQ(keyFields[i]->GetValue(), keyValues[i]) << "event " << i;
  EXPECT_NE(keyFields.front().get(), keyFields.back().get());
  EXPECT_NE(keyValues.front(), keyValues.back());
}
} // namespace
