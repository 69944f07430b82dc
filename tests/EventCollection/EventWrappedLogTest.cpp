// Wrapped logs, made of the real chunks of a sample log: a circular log keeps its size, and when
// it is full the service writes its newest chunk over the oldest, while record numbers keep
// rising. Through the factory: an update after a wrap delivers exactly the new events still in
// the log, also when the bookmark's own record was overwritten, and says so when events after
// the bookmark were overwritten unread. On the collection itself: a log that wraps while a query
// reads it (EvtNext gives ERROR_EVT_QUERY_RESULT_STALE) is queried again within the update.
#include "EventTestSupport.h"

#include "Collector/Interfaces.h"
#include "Collector/WinEvents/CreateCollector.h"
#include "Evtx/Crc32.h"
#include "KeldaKernel/Strings.h"
#include "TestSupport/LogCapture.h"
#include "TestSupport/Samples.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

namespace
{
using namespace events_test;

constexpr std::size_t fileHeaderSize = 4096;
constexpr std::size_t chunkSize = 65536;
// 13 chunks of 15 to 35 events, numbered 1 to 340 in order, checksums intact.
const char* const sampleName = "E_Windows_system32_winevt_logs_Microsoft-Windows-CAPI2%4Operational.evtx";
const wchar_t* const channel = L"Microsoft-Windows-CAPI2/Operational";
constexpr int noChunk = -1;

std::uint64_t Get64(const std::vector<char>& bytes, std::size_t at)
{
  std::uint64_t value = 0;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

// A log file of a fixed number of chunk slots, each holding one chunk of the sample (by its
// index there) or nothing. Writes go into the existing file in place, each slot as the writer
// commits a chunk: header cleared, records, then the header.
class CRingLog
{
public:
  CRingLog(const std::string& path, std::size_t slots) : m_path(path), m_slots(slots)
  {
    std::ifstream in(EvtxSamplesDirectory() / sampleName, std::ios::binary);
    m_sample.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

  void Write(const std::vector<int>& chunks)
  {
    const int fd = ::open(m_path.c_str(), O_RDWR | O_CREAT, 0644);
    ASSERT_GE(fd, 0);
    std::vector<char> header(m_sample.begin(), m_sample.begin() + fileHeaderSize);
    std::uint64_t newest = 0;
    std::uint64_t oldest = UINT64_MAX;
    for (std::size_t slot = 0; slot < m_slots; ++slot)
    {
      std::vector<char> bytes(chunkSize, 0);
      if (slot < chunks.size() && chunks[slot] != noChunk)
      {
        const auto from = m_sample.begin() + static_cast<std::ptrdiff_t>(fileHeaderSize + chunks[slot] * chunkSize);
        std::copy(from, from + chunkSize, bytes.begin());
        // The file header names the oldest chunk, the one being written, and the next number.
        if (Get64(bytes, 16) >= newest)
        {
          newest = Get64(bytes, 16);
          Put64(header, 16, slot);
        }
        if (Get64(bytes, 8) < oldest)
        {
          oldest = Get64(bytes, 8);
          Put64(header, 8, slot);
        }
      }
      const off_t at = static_cast<off_t>(fileHeaderSize + slot * chunkSize);
      const std::vector<char> cleared(512, 0);
      ASSERT_EQ(::pwrite(fd, cleared.data(), cleared.size(), at), 512);
      ASSERT_EQ(::pwrite(fd, bytes.data() + 512, chunkSize - 512, at + 512), static_cast<ssize_t>(chunkSize - 512));
      ASSERT_EQ(::pwrite(fd, bytes.data(), 512, at), 512);
    }
    Put64(header, 24, newest + 1);
    const std::uint16_t count = static_cast<std::uint16_t>(m_slots);
    std::memcpy(header.data() + 42, &count, sizeof count);
    const std::uint32_t crc = evtx::Crc32(header.data(), 120);
    std::memcpy(header.data() + 124, &crc, sizeof crc);
    ASSERT_EQ(::pwrite(fd, header.data(), header.size(), 0), static_cast<ssize_t>(header.size()));
    ::close(fd);
  }

private:
  static void Put64(std::vector<char>& bytes, std::size_t at, std::uint64_t value)
  {
    std::memcpy(bytes.data() + at, &value, sizeof value);
  }

  std::string m_path;
  std::size_t m_slots;
  std::vector<char> m_sample;
};

// What tells one event's record from another's.
std::wstring Fingerprint(IRecord& record)
{
  std::wostringstream text;
  text << Text(record, L"SourceName") << L'|' << Number(record, L"EventCode") << L'|' << std::hexfloat
       << static_cast<double>(std::get<COleDateTimeEx>(ValueOf(record, L"CreatedTime")));
  for (const auto& item : List(record, L"Data"))
    text << L'|' << item;
  return text.str();
}

std::vector<std::wstring> Fingerprints(const std::vector<std::shared_ptr<IRecord>>& records)
{
  std::vector<std::wstring> prints;
  for (const auto& record : records)
    prints.push_back(Fingerprint(*record));
  return prints;
}

// The events of these sample chunks, in order, as a fresh collection delivers them.
std::vector<std::wstring> EventsOf(const std::vector<int>& chunks)
{
  CTempHost host;
  CRingLog(host.ChannelFile(kelda::ToUtf8(channel)), chunks.size()).Write(chunks);
  SCollectionParts parts;
  auto collection = parts.Make(host.Path().wstring());
  auto subscriber = std::make_shared<CCollectingSubscriber>();
  collection->Subscribe(subscriber);
  auto filters = Filters({channel});
  collection->SetFilter(filters);
  collection->UpdateOnce();
  return Fingerprints(subscriber->Records());
}

std::vector<std::wstring> Joined(std::vector<std::wstring> first, const std::vector<std::wstring>& second)
{
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// A "WindowsEvents" collection made through create_collector, updated every second.
class EventWrappedLog : public testing::Test
{
protected:
  // Workers may still be ending an update the test no longer waits for: joined here, before the
  // fixture's members go, so that none of them logs while the process exits.
  ~EventWrappedLog() override { m_workers.shutdown(); }

  void Start()
  {
    m_collector = collector::win_events::create_collector(m_workers, m_token);
    auto user = m_collector->GetUserPool()->CreateDefault(L"", L"");
    auto logs = m_collector->GetHostPool()->Create(host.Path().wstring());
    auto task = m_collector->GetTaskPool()->Deploy(L"events", logs->GetId(), user->GetId());
    m_collection = task->CreateCollection(L"WindowsEvents");
    ASSERT_NE(m_collection, nullptr);
    auto filters = Filters({channel});
    std::dynamic_pointer_cast<collector::ni::win_events::ICollectionInit>(m_collection)->SetFilter(filters);
    std::dynamic_pointer_cast<collector::ni::ICollectionInit>(m_collection)->SetUpdatePeriod(1);
    m_collection->Subscribe(subscriber);
    m_collection->Run();
  }

  void TearDown() override
  {
    if (m_collector)
      m_collector->Stop(true);
  }

  // Waits for the records of the update that delivers `count`, then for one more update, which
  // would show any event delivered again; returns what was delivered and clears it.
  std::vector<std::wstring> Collect(std::size_t count)
  {
    std::vector<std::wstring> delivered;
    const bool arrived = WaitRecords(count);
    EXPECT_TRUE(arrived) << "only " << subscriber->Records().size() << " of " << count << " records";
    if (arrived)
    {
      EXPECT_TRUE(capture.Sink().WaitFor(L"Update finished", capture.Sink().Count(L"Update finished") + 1));
    }
    delivered = Fingerprints(subscriber->Records());
    subscriber->Clear();
    return delivered;
  }

  bool WaitRecords(std::size_t count)
  {
    // Each update logs its end: wait for updates until the records are there, within the limit.
    for (std::size_t updates = capture.Sink().Count(L"Update finished") + 1; subscriber->Records().size() < count;
         ++updates)
      if (!capture.Sink().WaitFor(L"Update finished", updates))
        return false;
    return true;
  }

  natc_test::CLoggerCapture capture{ELogLevel::Debug};
  CTempHost host;
  CRingLog log{host.ChannelFile(kelda::ToUtf8(channel)), 4};
  std::shared_ptr<CCollectingSubscriber> subscriber = std::make_shared<CCollectingSubscriber>();

private:
  pool m_workers{2};
  std::shared_ptr<ICancellation> m_token = create_cancellation();
  std::shared_ptr<collector::ni::ICollector> m_collector;
  std::shared_ptr<collector::ni::ICollection> m_collection;
};

TEST_F(EventWrappedLog, TheNewEventsStillInTheLogAreDeliveredOnce)
{
  log.Write({0, 1, 2, 3});
  Start();
  const auto first = EventsOf({0, 1, 2, 3});
  EXPECT_EQ(Collect(first.size()), first);
  // Two new chunks over the two oldest; the bookmark's record (105, in chunk 3) is still there.
  log.Write({4, 5, 2, 3});
  const auto added = EventsOf({4, 5});
  EXPECT_EQ(Collect(added.size()), added);
  EXPECT_EQ(capture.Sink().Count(L"may have been overwritten"), 0u);
}

TEST_F(EventWrappedLog, EveryEventAboveAnOverwrittenBookmarkIsDeliveredOnce)
{
  log.Write({0, 1});
  Start();
  const auto first = EventsOf({0, 1});
  EXPECT_EQ(Collect(first.size()), first);
  // The log fills and wraps over its two oldest chunks, the bookmark's (58) among them.
  log.Write({4, 5, 2, 3});
  const auto rest = EventsOf({2, 3, 4, 5});
  EXPECT_EQ(Collect(rest.size()), rest);
  EXPECT_EQ(capture.Sink().Count(L"may have been overwritten"), 0u);
}

TEST_F(EventWrappedLog, AWrapOverUnreadEventsIsLoggedAndTheRestIsDeliveredOnce)
{
  log.Write({0, 1});
  Start();
  const auto first = EventsOf({0, 1});
  EXPECT_EQ(Collect(first.size()), first);
  // Between two updates the log wraps over chunk 2 (records 59 to 79) as well.
  log.Write({4, 5, 6, 3});
  const auto rest = EventsOf({3, 4, 5, 6});
  EXPECT_EQ(Collect(rest.size()), rest);
  EXPECT_EQ(capture.Sink().Count(L"Log " + std::wstring(channel) +
                                 L" wrapped: events 59 to 79 may have been overwritten before they were read"),
            1u);
}

TEST(EventLogWrappedUnderAQuery, IsQueriedAgainFromTheBookmarkWithinTheUpdate)
{
  CTempHost host;
  CRingLog log(host.ChannelFile(kelda::ToUtf8(channel)), 8);
  log.Write({0, 1, 2, 3, 4, 5, 6, 7});
  SCollectionParts parts;
  auto collection = parts.Make(host.Path().wstring());
  auto subscriber = std::make_shared<CCollectingSubscriber>();
  // At the first record the query's first batch (100 events, into chunk 3) is read: the service
  // then writes five chunks, the last over chunk 4, which the query has yet to read.
  bool wrapped = false;
  subscriber->onRecord = [&](ICollectionTypes::Records) {
    if (!std::exchange(wrapped, true))
      log.Write({8, 9, 10, 11, 12, 5, 6, 7});
  };
  collection->Subscribe(subscriber);
  auto filters = Filters({channel});
  collection->SetFilter(filters);
  natc_test::CLoggerCapture capture(ELogLevel::Info);
  EXPECT_NO_THROW(collection->UpdateOnce());
  EXPECT_EQ(capture.Sink().Count(L"querying again after the last delivered events"), 1u);
  EXPECT_EQ(capture.Sink().Count(L"events 106 to 126 may have been overwritten"), 1u);
  const auto expected = Joined(EventsOf({0, 1, 2, 3}), EventsOf({5, 6, 7, 8, 9, 10, 11, 12}));
  EXPECT_EQ(Fingerprints(subscriber->Records()), expected);
  EXPECT_EQ(collection->GetBookmarks().at(channel), 340);
}
} // namespace
