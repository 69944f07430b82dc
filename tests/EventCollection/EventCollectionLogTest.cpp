// The event collection over logs written with the project's .evtx writer, through the
// platform's Event Log API: records, bookmarks across updates, live appends, missing channels
// and hosts, descriptions from a publisher catalog.
#include "EventTestSupport.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Exceptions.h"
#include "WinEvt/PublisherCatalog.h"

#include <gtest/gtest.h>

#include <random>
#include <set>

namespace
{
using namespace events_test;
using collector::ni::impl::CField;
using collector::ni::impl::CRecordOnVector;

class EventCollectionLog : public CWrittenLogTest
{
protected:
  std::vector<int> DeliveredIndexes() const
  {
    std::vector<int> indexes;
    for (const auto& record : subscriber->Records())
      indexes.push_back(IndexOf(*record));
    return indexes;
  }
};

TEST_F(EventCollectionLog, ARecordHasTheEightFieldsInOrderAndAKeyOfItsOwn)
{
  CChannelWriter writer(host.ChannelFile("System"), "System");
  writer.Append(1, [](evtx::WriterEvent& e) {
    e.provider = "Service Control Manager";
    e.eventId = 7036;
    e.qualifiers = 16384;
    e.level = 2;
    e.userSid = "S-1-5-18";
    e.timeCreated = 131124751716816400ull; // 2016-07-08T18:12:51.6816400Z
    e.data.push_back({"param2", evtx::WriterValue::Text("running")});
  });
  SetChannels({L"System"});
  collection->UpdateOnce();
  ASSERT_EQ(subscriber->Records().size(), 1u);
  auto record = std::dynamic_pointer_cast<CRecordOnVector>(subscriber->Records()[0]);
  ASSERT_TRUE(record);
  EXPECT_EQ(record->GetType(), 1u);

  // Field order before any lookup sorts them.
  const std::vector<std::wstring> order{L"SourceName", L"Description", L"CreatedTime", L"InitiatedBy",
                                        L"EventType",  L"Data",        L"EventCode",   L"InternalId"};
  std::vector<std::wstring> names;
  std::vector<std::size_t> kinds;
  for (const CField& field : record->GetFields())
  {
    names.push_back(field.GetName());
    kinds.push_back(field.GetValue().index());
  }
  EXPECT_EQ(names, order);
  EXPECT_EQ(kinds, (std::vector<std::size_t>{0, 0, 3, 0, 1, 4, 1, 1}));
  // The names are the process-wide shared objects.
  EXPECT_EQ(record->GetFields()[0].GetSharedName(), collector::ni::impl::EventFieldNames().SourceName);

  EXPECT_EQ(Text(*record, L"SourceName"), L"Service Control Manager");
  EXPECT_EQ(Text(*record, L"Description"), L"");
  EXPECT_EQ(Text(*record, L"InitiatedBy"), L"NT AUTHORITY\\SYSTEM");
  EXPECT_EQ(Number(*record, L"EventType"), 1);
  EXPECT_EQ(Number(*record, L"EventCode"), 7036);
  EXPECT_EQ(Number(*record, L"InternalId"), 1073748860);
  EXPECT_EQ(List(*record, L"Data"), (std::vector<std::wstring>{L"1", L"running"}));
  SYSTEMTIME st{};
  ASSERT_TRUE(std::get<COleDateTimeEx>(ValueOf(*record, L"CreatedTime")).GetAsSystemTime(st));
  EXPECT_EQ(st.wYear, 2016);
  EXPECT_EQ(st.wMonth, 7);
  EXPECT_EQ(st.wDay, 8);
  EXPECT_EQ(st.wHour, 18);
  EXPECT_EQ(st.wMinute, 12);
  EXPECT_EQ(st.wSecond, 51);
  EXPECT_EQ(st.wMilliseconds, 682);

  // The key: the collection's class and a separately made "InternalId" field.
  auto* key = record->GetKey();
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->GetClass(), parts.cls);
  ASSERT_EQ(key->GetFields().size(), 1u);
  const auto& keyField = key->GetFields()[0];
  EXPECT_EQ(keyField->GetName(), L"InternalId");
  EXPECT_EQ(std::get<__int64>(keyField->GetValue()), 1073748860);
  EXPECT_NE(static_cast<const void*>(keyField.get()), static_cast<const void*>(record->FindField(L"InternalId")));
}

TEST_F(EventCollectionLog, AnUnknownAccountIsShownAsItsSid)
{
  CChannelWriter writer(host.ChannelFile("Security"), "Security");
  writer.Append(1, [](evtx::WriterEvent& e) { e.userSid = "S-1-5-21-3623811015-3361044348-30300820-1013"; });
  writer.Append(2);
  SetChannels({L"Security"});
  collection->UpdateOnce();
  ASSERT_EQ(subscriber->Records().size(), 2u);
  EXPECT_EQ(Text(*subscriber->Records()[0], L"InitiatedBy"), L"S-1-5-21-3623811015-3361044348-30300820-1013");
  EXPECT_EQ(Text(*subscriber->Records()[1], L"InitiatedBy"), L"");
}

TEST_F(EventCollectionLog, ASecondUpdateWithNoNewEventsDeliversNothing)
{
  CChannelWriter writer(host.ChannelFile("Application"), "Application");
  writer.AppendMany(1, 30);
  SetChannels({L"Application"});
  collection->UpdateOnce();
  EXPECT_EQ(subscriber->Records().size(), 30u);
  subscriber->Clear();
  collection->UpdateOnce();
  collection->UpdateOnce();
  EXPECT_TRUE(subscriber->Records().empty());
  EXPECT_EQ(collection->GetBookmarks().at(L"Application"), 30);
}

TEST_F(EventCollectionLog, ThousandsOfAppendsAreEachDeliveredExactlyOnce)
{
  CChannelWriter application(host.ChannelFile("Application"), "Application");
  CChannelWriter sysmon(host.ChannelFile("Microsoft-Windows-Sysmon/Operational"), "Microsoft-Windows-Sysmon/Operational");
  SetChannels({L"Application", L"Microsoft-Windows-Sysmon/Operational"});
  std::mt19937 random(20240501);
  int nextApplication = 1;
  int nextSysmon = 100000;
  __int64 lastApplication = 0;
  __int64 lastSysmon = 0;
  for (int round = 0; round < 60; ++round)
  {
    // Some rounds add nothing, some exactly a batch, some several batches.
    const int burst = static_cast<int>(random() % 4 == 0 ? 100 : random() % 120);
    application.AppendMany(nextApplication, burst);
    nextApplication += burst;
    const int other = static_cast<int>(random() % 30);
    sysmon.AppendMany(nextSysmon, other);
    nextSysmon += other;
    collection->UpdateOnce();
    const auto bookmarks = collection->GetBookmarks();
    if (bookmarks.count(L"Application"))
    {
      EXPECT_GE(bookmarks.at(L"Application"), lastApplication);
      lastApplication = bookmarks.at(L"Application");
    }
    if (bookmarks.count(L"Microsoft-Windows-Sysmon/Operational"))
    {
      EXPECT_GE(bookmarks.at(L"Microsoft-Windows-Sysmon/Operational"), lastSysmon);
      lastSysmon = bookmarks.at(L"Microsoft-Windows-Sysmon/Operational");
    }
  }
  const auto indexes = DeliveredIndexes();
  const std::multiset<int> delivered(indexes.begin(), indexes.end());
  const auto expected = static_cast<std::size_t>(nextApplication - 1) + static_cast<std::size_t>(nextSysmon - 100000);
  ASSERT_GT(expected, 2000u);
  EXPECT_EQ(indexes.size(), expected);
  for (int i = 1; i < nextApplication; ++i)
    ASSERT_EQ(delivered.count(i), 1u) << "application event " << i;
  for (int i = 100000; i < nextSysmon; ++i)
    ASSERT_EQ(delivered.count(i), 1u) << "sysmon event " << i;
  EXPECT_EQ(lastApplication, nextApplication - 1);
  EXPECT_EQ(lastSysmon, nextSysmon - 100000);
}

TEST_F(EventCollectionLog, AMissingChannelDoesNotSpoilTheOthers)
{
  CChannelWriter writer(host.ChannelFile("Application"), "Application");
  writer.AppendMany(1, 5);
  SetChannels({L"No-Such-Channel", L"Application", L"Another/Missing"});
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIndexes(), (std::vector<int>{1, 2, 3, 4, 5}));
  const auto bookmarks = collection->GetBookmarks();
  EXPECT_EQ(bookmarks.size(), 1u);
  EXPECT_EQ(bookmarks.at(L"Application"), 5);
}

TEST_F(EventCollectionLog, AChannelCreatedLaterIsReadFromItsStart)
{
  CChannelWriter application(host.ChannelFile("Application"), "Application");
  application.AppendMany(1, 3);
  SetChannels({L"Application", L"System"});
  collection->UpdateOnce();
  CChannelWriter system(host.ChannelFile("System"), "System");
  system.AppendMany(50, 4);
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIndexes(), (std::vector<int>{1, 2, 3, 50, 51, 52, 53}));
}

TEST_F(EventCollectionLog, FiltersSelectByProviderAndEventId)
{
  CChannelWriter writer(host.ChannelFile("System"), "System");
  for (int i = 1; i <= 20; ++i)
    writer.Append(i, [i](evtx::WriterEvent& e) {
      e.provider = i % 2 == 0 ? "Even" : "Odd";
      e.eventId = static_cast<std::uint16_t>(i % 5);
    });
  std::vector<SFilter> filters{SFilter{L"System", L"Even", 0, {2, 4}}};
  collection->SetFilter(filters);
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIndexes(), (std::vector<int>{2, 4, 12, 14}));
}

TEST_F(EventCollectionLog, AnUnreachableHostFailsAndTheNextUpdateRetries)
{
  const std::filesystem::path later = host.Path() / "later";
  collection = parts.Make(later.wstring());
  collection->Subscribe(subscriber);
  SetChannels({L"Application"});
  try
  {
    collection->UpdateOnce();
    FAIL() << "the host was reached";
  }
  catch (const std::exception& error)
  {
    // As on Windows, the session opens and EvtQuery finds the host unreachable.
    EXPECT_EQ(get_hresult(error), HRESULT_FROM_WIN32(RPC_S_SERVER_UNAVAILABLE));
  }
  std::filesystem::create_directory(later);
  CChannelWriter writer((later / "Application.evtx").string(), "Application");
  writer.AppendMany(1, 2);
  collection->UpdateOnce();
  EXPECT_EQ(DeliveredIndexes(), (std::vector<int>{1, 2}));
}

// Messages for one provider: "Index is %1." with the first data value.
class CTestCatalog : public natc::winevt::PublisherCatalog
{
public:
  class CMessages : public natc::winevt::PublisherMessages
  {
  public:
    DWORD Format(DWORD, DWORD, std::wstring_view xml, std::wstring& text) override
    {
      // The value follows the element that names "Index", whatever quotes the XML uses.
      const auto name = xml.find(L"Index");
      const auto open = name == std::wstring_view::npos ? name : xml.find(L'>', name);
      const auto value = open == std::wstring_view::npos ? std::wstring_view{} : xml.substr(open + 1);
      text = L"Index is " + std::wstring(value.substr(0, value.find(L'<'))) + L".";
      return ERROR_SUCCESS;
    }
  };
  std::shared_ptr<natc::winevt::PublisherMessages> Open(std::wstring_view provider, const std::string&) override
  {
    return provider == L"Natc-Test" ? std::make_shared<CMessages>() : nullptr;
  }
};

TEST_F(EventCollectionLog, TheDescriptionComesFromThePublisherMetadata)
{
  CChannelWriter writer(host.ChannelFile("Application"), "Application");
  writer.Append(7);
  writer.Append(8, [](evtx::WriterEvent& e) { e.provider = "Without-Metadata"; });
  SetChannels({L"Application"});
  const auto previous = natc::winevt::SetPublisherCatalog(std::make_shared<CTestCatalog>());
  collection->UpdateOnce();
  natc::winevt::SetPublisherCatalog(previous);
  ASSERT_EQ(subscriber->Records().size(), 2u);
  // The whole buffer, its terminating zero included.
  EXPECT_EQ(Text(*subscriber->Records()[0], L"Description"), std::wstring(L"Index is 7.") + L'\0');
  EXPECT_EQ(Text(*subscriber->Records()[1], L"Description"), L"");
}
} // namespace
