// The event collection on the kernel pool: a failed session marks Error and the next update
// recovers, a stop during a run ends it at the next event, events appended while the
// collection runs are delivered once each, and bookmarks of forwarded events are saved while
// they move. Waits are on conditions only.
#include "EventTestSupport.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>

namespace
{
using namespace events_test;

constexpr DWORD logonFailure = 1326;
std::atomic<int> g_failOpens{0};

EVT_HANDLE OpenFailingFirst(EVT_LOGIN_CLASS loginClass, PVOID login, DWORD timeout, DWORD flags) noexcept
{
  if (g_failOpens.fetch_sub(1) > 0)
  {
    SetLastError(logonFailure);
    return nullptr;
  }
  return EvtOpenSession(loginClass, login, timeout, flags);
}

TEST(EventCollectionOnPool, ABadCredentialMarksErrorAndTheNextUpdateRecovers)
{
  CTempHost host;
  CChannelWriter writer(host.ChannelFile("Application"), "Application");
  writer.AppendMany(1, 3);
  g_failOpens = 1;
  SEventLogApi api;
  api.OpenSession = &OpenFailingFirst;
  SCollectionParts parts;
  auto collection = parts.Make(host.Path().wstring(), api);
  auto subscriber = std::make_shared<CCollectingSubscriber>();
  collection->Subscribe(subscriber);
  auto filters = Filters({L"Application"});
  collection->SetFilter(filters);
  collection->SetUpdatePeriod(1);
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Running));
  collection->Stop(true);
  const auto states = subscriber->States();
  ASSERT_GE(states.size(), 3u);
  EXPECT_EQ(states[0], ICollectionTypes::Starting);
  EXPECT_EQ(states[1], ICollectionTypes::Error);
  EXPECT_EQ(states[2], ICollectionTypes::Running);
  EXPECT_EQ(subscriber->Records().size(), 3u);
}

TEST(EventCollectionOnPool, AStopDuringARunEndsItAtTheNextEvent)
{
  CTempHost host;
  CChannelWriter writer(host.ChannelFile("Application"), "Application");
  writer.AppendMany(1, 50);
  SCollectionParts parts;
  auto collection = parts.Make(host.Path().wstring());
  auto subscriber = std::make_shared<CCollectingSubscriber>();
  std::weak_ptr<CTestEventCollection> weak = collection;
  subscriber->onRecord = [weak](ICollectionTypes::Records) {
    // The first record stops the collection from inside the run.
    if (auto self = weak.lock())
      self->Stop(false);
  };
  collection->Subscribe(subscriber);
  auto filters = Filters({L"Application"});
  collection->SetFilter(filters);
  collection->Run();
  ASSERT_TRUE(subscriber->WaitFor(ICollectionTypes::Stopped));
  collection->Stop(true);
  EXPECT_EQ(subscriber->Records().size(), 1u);
  EXPECT_EQ(collection->GetBookmarks().at(L"Application"), 1);
  EXPECT_EQ(collection->GetState(), ICollectionTypes::Stopped);
}

// Counts records and lets the test wait for a total.
class CTotalSubscriber : public CCollectingSubscriber
{
public:
  bool WaitForRecords(std::size_t total)
  {
    std::unique_lock lock(m_lock);
    return m_changed.wait_for(lock, waitLimit, [&] { return m_total >= total; });
  }
  void OnRecords(const GUID& id, ICollectionTypes::Records records) override
  {
    CCollectingSubscriber::OnRecords(id, records);
    {
      const std::lock_guard lock(m_lock);
      m_total += records.size();
    }
    m_changed.notify_all();
  }

private:
  std::mutex m_lock;
  std::condition_variable m_changed;
  std::size_t m_total = 0;
};

// A collection of one channel, updated every second on the pool once it runs.
struct SPolledChannel
{
  SPolledChannel(const CTempHost& host, const std::wstring& channel) : collection(parts.Make(host.Path().wstring()))
  {
    collection->Subscribe(subscriber);
    auto filters = Filters({channel});
    collection->SetFilter(filters);
    collection->SetUpdatePeriod(1);
  }
  SCollectionParts parts;
  std::shared_ptr<CTestEventCollection> collection;
  std::shared_ptr<CTotalSubscriber> subscriber = std::make_shared<CTotalSubscriber>();
};

TEST(EventCollectionOnPool, EventsAppendedWhileRunningAreDeliveredOnceEach)
{
  CTempHost host;
  CChannelWriter writer(host.ChannelFile("Application"), "Application");
  SPolledChannel polled(host, L"Application");
  auto& collection = polled.collection;
  auto& subscriber = polled.subscriber;
  collection->Run();
  int next = 1;
  for (int burst = 0; burst < 4; ++burst)
  {
    // Appends race with the collection's reads: each burst is written while updates run.
    writer.AppendMany(next, 500);
    next += 500;
    ASSERT_TRUE(subscriber->WaitForRecords(static_cast<std::size_t>(next - 1))) << "burst " << burst;
  }
  collection->Stop(true);
  std::multiset<int> delivered;
  for (const auto& record : subscriber->Records())
    delivered.insert(IndexOf(*record));
  EXPECT_EQ(delivered.size(), 2000u);
  for (int i = 1; i < next; ++i)
    ASSERT_EQ(delivered.count(i), 1u) << "event " << i;
}

// Saved from another thread while updates read a log of forwarded events (shown numbers run
// down), each bookmark text names the log and never moves back; a restart from the last one
// delivers nothing again.
TEST(EventCollectionOnPool, ForwardedBookmarksSavedWhileTheyMoveNeverGoBack)
{
  CTempHost host;
  CChannelWriter writer(host.ChannelFile("ForwardedEvents"), "Security");
  SPolledChannel polled(host, L"ForwardedEvents");
  auto& collection = polled.collection;
  auto& subscriber = polled.subscriber;
  constexpr int total = 1500;
  for (int i = 1; i <= 500; ++i)
    writer.Append(i, [i](evtx::WriterEvent& event) { event.eventRecordId = static_cast<std::uint64_t>(100000 - i); });
  collection->Run();
  std::uint64_t lastPlace = 0;
  const auto savedPlace = [&] {
    for (const auto& bookmark : collection->SaveBookmarks())
    {
      if (bookmark.BookmarkXml.empty())
        continue;
      EXPECT_NE(bookmark.BookmarkXml.find(L"Channel='ForwardedEvents'"), std::wstring::npos) << bookmark.BookmarkXml;
      const auto at = bookmark.BookmarkXml.find(L"RecordId='");
      const std::uint64_t place = std::wcstoull(bookmark.BookmarkXml.c_str() + at + 10, nullptr, 10);
      EXPECT_GE(place, lastPlace);
      lastPlace = place;
    }
  };
  // Appends and saves race with the collection's reads and bookmark moves.
  for (int i = 501; i <= total; ++i)
  {
    writer.Append(i, [i](evtx::WriterEvent& event) { event.eventRecordId = static_cast<std::uint64_t>(100000 - i); });
    if (i % 10 == 0)
      savedPlace();
  }
  ASSERT_TRUE(subscriber->WaitForRecords(total));
  collection->Stop(true);
  savedPlace();
  EXPECT_EQ(lastPlace, static_cast<std::uint64_t>(total));
  std::multiset<int> delivered;
  for (const auto& record : subscriber->Records())
    delivered.insert(IndexOf(*record));
  EXPECT_EQ(delivered.size(), static_cast<std::size_t>(total));
  for (int i = 1; i <= total; ++i)
    ASSERT_EQ(delivered.count(i), 1u) << "event " << i;
}
} // namespace
