// A log that is still being written: what one query reads, the next query sees only what is new.
#include "TestSupport.h"
#include "WriterSupport.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <numeric>

namespace
{
using namespace wevtapi_test;

std::vector<char> ReadBytes(const std::string& path)
{
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void WriteBytes(const std::string& path, const std::vector<char>& bytes)
{
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The query the collection sends after its first read: only records above its bookmark.
std::wstring After(std::uint64_t bookmark)
{
  return L"<QueryList><Query Id=\"0\"><Select Path=\"Application\">*[System[(EventRecordID&gt;" +
         std::to_wstring(bookmark) + L")]]</Select></Query></QueryList>";
}

class LiveLog : public testing::Test
{
protected:
  void SetUp() override { session = OpenSession(host.WidePath()); }

  std::vector<std::uint64_t> Read(std::uint64_t bookmark)
  {
    Handle query(EvtQuery(session.get(), nullptr, After(bookmark).c_str(), 0x1101));
    EXPECT_TRUE(query);
    return query ? ReadAll(query.get()) : std::vector<std::uint64_t>{};
  }

  TempHost host;
  Handle session;
  std::string path = host.File("Application.evtx");
};

TEST_F(LiveLog, AppendsBetweenQueriesAreSeenExactlyOnce)
{
  WriteEvents(path, 10);
  std::uint64_t bookmark = 0;
  std::vector<std::uint64_t> seen;
  for (int round = 0; round < 5; ++round)
  {
    const auto ids = Read(bookmark);
    seen.insert(seen.end(), ids.begin(), ids.end());
    if (!ids.empty())
      bookmark = ids.back();
    // Enough events to cross into new chunks on later rounds.
    WriteEvents(path, 150, false, static_cast<int>(10 + round * 150 + 1));
  }
  const auto last = Read(bookmark);
  seen.insert(seen.end(), last.begin(), last.end());
  std::vector<std::uint64_t> expected(10 + 5 * 150);
  std::iota(expected.begin(), expected.end(), 1);
  EXPECT_EQ(seen, expected);
}

TEST_F(LiveLog, NothingNewGivesNoMoreItemsAtOnce)
{
  WriteEvents(path, 3);
  EXPECT_EQ(Read(0).size(), 3u);
  EXPECT_TRUE(Read(3).empty());
}

// The moment between writing a record and committing its chunk header: the record's bytes are
// in the file but the header does not cover them yet. The query must not deliver it.
TEST_F(LiveLog, HalfWrittenRecordIsNotDelivered)
{
  WriteEvents(path, 5);
  const std::vector<char> before = ReadBytes(path);
  WriteEvents(path, 1, false, 6);
  const std::vector<char> after = ReadBytes(path);
  ASSERT_GE(after.size(), 4096u + 512u);
  // New record bytes with the old file and chunk headers.
  std::vector<char> torn = after;
  std::copy(before.begin(), before.begin() + 4096 + 512, torn.begin());
  WriteBytes(path, torn);
  EXPECT_EQ(Read(0), (std::vector<std::uint64_t>{1, 2, 3, 4, 5}));
  // Once committed, the record is delivered, once.
  WriteBytes(path, after);
  EXPECT_EQ(Read(5), (std::vector<std::uint64_t>{6}));
}

// A log cleared or wrapped while a query reads it: EvtNext gives the events it can and then
// ERROR_EVT_QUERY_RESULT_STALE, as Windows does ("the log being cleared or rolling over after the
// query result was created"): https://learn.microsoft.com/en-us/windows/win32/debug/system-error-codes--15000-15999-
class ChangedUnderAQuery : public LiveLog
{
protected:
  // Starts a query over a log of several chunks and takes its first events.
  Handle Start()
  {
    WriteEvents(path, 2000);
    Handle query(EvtQuery(session.get(), L"Application", L"*", EvtQueryChannelPath));
    EXPECT_TRUE(query);
    EVT_HANDLE events[10];
    DWORD returned = 0;
    EXPECT_TRUE(EvtNext(query.get(), 10, events, INFINITE, 0, &returned));
    for (DWORD i = 0; i < returned; ++i)
      EvtClose(events[i]);
    return query;
  }

  // The rest of the query: it must end stale, and what it gave before must be the old log's.
  void ExpectStale(EVT_HANDLE query)
  {
    DWORD lastError = 0;
    const auto ids = ReadAll(query, 50, INFINITE, lastError);
    EXPECT_EQ(lastError, ERROR_EVT_QUERY_RESULT_STALE);
    EXPECT_LT(ids.size(), 1990u);
    for (std::size_t i = 0; i < ids.size(); ++i)
      ASSERT_EQ(ids[i], 11 + i);
    // Stale for good: the query does not go on.
    EVT_HANDLE event = nullptr;
    DWORD returned = 0;
    EXPECT_FALSE(EvtNext(query, 1, &event, INFINITE, 0, &returned));
    EXPECT_EQ(GetLastError(), ERROR_EVT_QUERY_RESULT_STALE);
  }
};

TEST_F(ChangedUnderAQuery, AClearedLogMakesTheResultStale)
{
  Handle query = Start();
  WriteEvents(path, 3);
  ExpectStale(query.get());
}

TEST_F(ChangedUnderAQuery, AWrappedLogMakesTheResultStale)
{
  Handle query = Start();
  // The third chunk's slot now holds newer records, as when the log wraps over it.
  const std::string newer = host.File("Newer.evtx");
  WriteEvents(newer, 100, true, 5000);
  const std::vector<char> source = ReadBytes(newer);
  std::vector<char> bytes = ReadBytes(path);
  constexpr std::size_t kChunk = 65536, kThirdSlot = 4096 + 2 * kChunk;
  ASSERT_GE(bytes.size(), kThirdSlot + kChunk);
  std::copy(source.begin() + 4096, source.begin() + 4096 + kChunk, bytes.begin() + kThirdSlot);
  WriteBytes(path, bytes);
  ExpectStale(query.get());
}

// A log left dirty (file header flag 0x1) whose last chunk header was not rewritten after its
// newest records: Windows scans such a log when it opens it and finds those records too
// (https://computer.forensikblog.de/en/2007/07/evtx-file-header.html). A clean log is trusted.
class StaleChunkHeader : public LiveLog
{
protected:
  void Make(bool dirty)
  {
    WriteEvents(path, 10);
    const std::vector<char> before = ReadBytes(path);
    WriteEvents(path, 5, false, 11);
    std::vector<char> bytes = ReadBytes(path);
    ASSERT_GE(bytes.size(), 4096u + 512u);
    std::copy(before.begin() + 4096, before.begin() + 4096 + 512, bytes.begin() + 4096);
    // The flags sit outside the file header's CRC (it covers the first 120 bytes).
    bytes[120] = static_cast<char>(dirty ? 1 : 0);
    WriteBytes(path, bytes);
  }
};

TEST_F(StaleChunkHeader, ADirtyLogIsReadToItsTrueEnd)
{
  Make(true);
  std::vector<std::uint64_t> expected(15);
  std::iota(expected.begin(), expected.end(), 1);
  EXPECT_EQ(Read(0), expected);
  EXPECT_EQ(Read(12), (std::vector<std::uint64_t>{13, 14, 15}));
}

TEST_F(StaleChunkHeader, ACleanLogEndsWhereItsHeaderSays)
{
  Make(false);
  std::vector<std::uint64_t> expected(10);
  std::iota(expected.begin(), expected.end(), 1);
  EXPECT_EQ(Read(0), expected);
}
} // namespace
