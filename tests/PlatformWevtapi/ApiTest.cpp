#include "TestSupport.h"
#include "WriterSupport.h"

#include "Evtx/File.h"
#include "Evtx/Query/Query.h"
#include "WinEvt/Hosts.h"
#include "WinEvt/ResultSet.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <thread>

namespace
{
using namespace wevtapi_test;

std::vector<std::uint64_t> Range(std::uint64_t first, std::uint64_t last)
{
  std::vector<std::uint64_t> ids(last - first + 1);
  std::iota(ids.begin(), ids.end(), first);
  return ids;
}

using Api = LogsTest;

// Windows opens a session without reaching the host or checking the logon; both are checked by
// EvtQuery: https://learn.microsoft.com/en-us/windows/win32/api/winevt/nf-winevt-evtopensession
TEST(Session, AnUnknownHostFailsAtTheQuery)
{
  for (const wchar_t* server : {L"no-such-host.invalid", L"/no/such/natc/dir"})
  {
    Handle session = OpenSession(server);
    ASSERT_TRUE(session) << "the session opens without reaching the host";
    SetLastError(0);
    EXPECT_FALSE(EvtQuery(session.get(), L"Application", L"*", EvtQueryChannelPath));
    EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);
    EXPECT_FALSE(EvtOpenPublisherMetadata(session.get(), L"Natc-Test", nullptr, 0, 0));
    EXPECT_EQ(GetLastError(), RPC_S_SERVER_UNAVAILABLE);
  }
}

// A host that checks logons: the wrong password or user fails at EvtQuery with
// ERROR_LOGON_FAILURE, an account without rights on the logs with ERROR_ACCESS_DENIED.
TEST(Session, CredentialsAreCheckedAtTheQuery)
{
  TempHost host;
  WriteEvents(host.File("Application.evtx"), 3);
  const std::string directory = host.Path().string();
  struct Forget
  {
    std::string directory;
    ~Forget() { natc::winevt::ForgetHostAccount(directory); }
  } forget{directory};
  natc::winevt::RegisterHostAccount(directory, L"admin", L"secret", true);
  auto query = [&](const wchar_t* user, const wchar_t* password) {
    std::wstring server = host.WidePath(), name = user, word = password;
    EVT_RPC_LOGIN login{server.data(), name.data(), nullptr, word.data(), EvtRpcLoginAuthNegotiate};
    Handle session(EvtOpenSession(EvtRpcLogin, &login, 0, 0));
    EXPECT_TRUE(session) << "the session opens without checking the logon";
    SetLastError(0);
    Handle result(EvtQuery(session.get(), L"Application", L"*", EvtQueryChannelPath));
    return result ? ERROR_SUCCESS : GetLastError();
  };
  EXPECT_EQ(query(L"ADMIN", L"secret"), ERROR_SUCCESS);
  EXPECT_EQ(query(L"admin", L"wrong"), ERROR_LOGON_FAILURE);
  EXPECT_EQ(query(L"someone", L"secret"), ERROR_LOGON_FAILURE);
  natc::winevt::RegisterHostAccount(directory, L"admin", L"secret", false);
  EXPECT_EQ(query(L"admin", L"secret"), ERROR_ACCESS_DENIED);
  natc::winevt::ForgetHostAccount(directory);
  EXPECT_EQ(query(L"anyone", L"anything"), ERROR_SUCCESS);
}

TEST(Session, CredentialsAreAcceptedAndLocalNamesWork)
{
  wchar_t server[] = L"localhost", user[] = L"admin", domain[] = L"CORP", password[] = L"secret";
  EVT_RPC_LOGIN login{server, user, domain, password, EvtRpcLoginAuthNegotiate};
  Handle session(EvtOpenSession(EvtRpcLogin, &login, 0, 0));
  EXPECT_TRUE(session);
}

TEST(Session, BadArgumentsAreInvalidParameters)
{
  EXPECT_EQ(EvtOpenSession(EvtRpcLogin, nullptr, 0, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(EvtOpenSession(static_cast<EVT_LOGIN_CLASS>(7), nullptr, 0, 0), nullptr);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(Api, BatchesThenNoMoreItems)
{
  Handle query = Query(L"Application", L"*");
  ASSERT_TRUE(query);
  EVT_HANDLE events[100];
  DWORD returned = 0;
  std::vector<DWORD> batches;
  while (EvtNext(query.get(), 100, events, INFINITE, 0, &returned))
  {
    batches.push_back(returned);
    for (DWORD i = 0; i < returned; ++i)
      EXPECT_TRUE(EvtClose(events[i]));
  }
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
  EXPECT_EQ(returned, 0u);
  EXPECT_EQ(batches, (std::vector<DWORD>{100, 100, 50}));
  // Asking again after the end still reports the end.
  EXPECT_FALSE(EvtNext(query.get(), 100, events, INFINITE, 0, &returned));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_ITEMS);
}

TEST_F(Api, ForwardAndReverseOrder)
{
  Handle forward = Query(L"Application", L"*");
  EXPECT_EQ(ReadAll(forward.get()), Range(1, 250));
  Handle reverse = Query(L"Application", L"*", EvtQueryChannelPath | EvtQueryReverseDirection);
  auto expected = Range(1, 250);
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(ReadAll(reverse.get()), expected);
}

TEST_F(Api, RenderReportsTheSizeInBytesFirst)
{
  Handle query = Query(L"Application", L"*");
  EVT_HANDLE event = nullptr;
  DWORD returned = 0;
  ASSERT_TRUE(EvtNext(query.get(), 1, &event, INFINITE, 0, &returned));
  Handle owned(event);
  DWORD used = 0, count = 7;
  SetLastError(0);
  EXPECT_FALSE(EvtRender(nullptr, event, EvtRenderEventXml, 0, nullptr, &used, &count));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_GT(used, 0u);
  EXPECT_EQ(used % sizeof(wchar_t), 0u);
  std::vector<wchar_t> buffer(used / sizeof(wchar_t), L'?');
  // One character short is still too small.
  EXPECT_FALSE(EvtRender(nullptr, event, EvtRenderEventXml, used - sizeof(wchar_t), buffer.data(), &used, &count));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_TRUE(EvtRender(nullptr, event, EvtRenderEventXml, used, buffer.data(), &used, &count));
  EXPECT_EQ(count, 0u);
  const std::wstring xml(buffer.data());
  EXPECT_EQ((xml.size() + 1) * sizeof(wchar_t), used);
  EXPECT_EQ(xml.rfind(L"<Event ", 0), 0u);
  EXPECT_NE(xml.find(L"<EventRecordID>1</EventRecordID>"), std::wstring::npos);
  EXPECT_NE(xml.find(L"<Provider Name='Natc-Test'/>"), std::wstring::npos) << xml;
}

// Each event renders as itself however the calls of several events interleave, on one thread
// or on several (a thread keeps only the text it rendered last).
TEST_F(Api, InterleavedRendersGiveEachEventItsOwnText)
{
  Handle query = Query(L"Application", L"*");
  EVT_HANDLE events[3] = {};
  DWORD returned = 0;
  ASSERT_TRUE(EvtNext(query.get(), 3, events, INFINITE, 0, &returned));
  ASSERT_EQ(returned, 3u);
  const Handle first(events[0]), second(events[1]), third(events[2]);
  std::vector<DWORD> sizes;
  for (EVT_HANDLE event : events)
  {
    DWORD used = 0, count = 0;
    EXPECT_FALSE(EvtRender(nullptr, event, EvtRenderEventXml, 0, nullptr, &used, &count));
    sizes.push_back(used);
  }
  // The first event's text, asked for after the others were sized, and after another thread
  // rendered it too.
  std::wstring elsewhere;
  std::thread other([&] { elsewhere = RenderXml(events[0]); });
  other.join();
  for (DWORD i : {0u, 2u, 1u, 0u})
  {
    std::vector<wchar_t> buffer(sizes[i] / sizeof(wchar_t), L'?');
    DWORD used = 0, count = 0;
    ASSERT_TRUE(EvtRender(nullptr, events[i], EvtRenderEventXml, sizes[i], buffer.data(), &used, &count));
    EXPECT_EQ(used, sizes[i]);
    EXPECT_EQ(RecordIdOf(buffer.data()), i + 1);
  }
  EXPECT_EQ(elsewhere, RenderXml(events[0]));
  EXPECT_EQ(RecordIdOf(elsewhere), 1u);
}

TEST_F(Api, RenderOfValuesIsNotSupported)
{
  Handle query = Query(L"Application", L"*");
  EVT_HANDLE event = nullptr;
  DWORD returned = 0, used = 0, count = 0;
  ASSERT_TRUE(EvtNext(query.get(), 1, &event, INFINITE, 0, &returned));
  Handle owned(event);
  EXPECT_FALSE(EvtRender(nullptr, event, EvtRenderEventValues, 0, nullptr, &used, &count));
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
  // An event is no bookmark.
  EXPECT_FALSE(EvtRender(nullptr, event, EvtRenderBookmark, 0, nullptr, &used, &count));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(EvtRender(nullptr, query.get(), EvtRenderEventXml, 0, nullptr, &used, &count));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(Api, EventsOutliveTheirQuery)
{
  EVT_HANDLE event = nullptr;
  {
    Handle query = Query(L"Application", L"*[System[EventRecordID=7]]");
    DWORD returned = 0;
    ASSERT_TRUE(EvtNext(query.get(), 1, &event, INFINITE, 0, &returned));
  }
  Handle owned(event);
  EXPECT_EQ(RecordIdOf(RenderXml(event)), 7u);
}

TEST_F(Api, XPathFiltersOnSystemValues)
{
  Handle even = Query(L"Application", L"*[System[(EventID=2) and (EventRecordID&gt;200)]]");
  ASSERT_FALSE(even); // entities belong in query lists, not in a bare XPath
  EXPECT_EQ(GetLastError(), ERROR_EVT_INVALID_QUERY);
  Handle filtered = Query(L"Application", L"*[System[(EventID=2) and (EventRecordID>200)]]");
  ASSERT_TRUE(filtered);
  std::vector<std::uint64_t> expected;
  for (std::uint64_t id = 202; id <= 250; id += 2)
    expected.push_back(id);
  EXPECT_EQ(ReadAll(filtered.get()), expected);
}

TEST_F(Api, XPathFiltersOnEventData)
{
  Handle query = Query(L"Application", L"*[EventData[Data[@Name='Index']='17']]");
  EXPECT_EQ(ReadAll(query.get()), (std::vector<std::uint64_t>{17}));
}

TEST_F(Api, QueryListAsTheCollectionSendsIt)
{
  Handle query = Query(nullptr,
                       L"<QueryList><Query Id=\"0\"><Select Path=\"Application\">*[System[(Provider[@Name='Natc-Test']) "
                       L"and (EventID=1) and (EventRecordID&gt;245)]]</Select></Query><Query Id=\"1\"><Select "
                       L"Path=\"Microsoft-Windows-Sysmon/Operational\">*[System[(TimeCreated[timediff(@SystemTime)&lt;="
                       L"86400000])]]</Select></Query></QueryList>",
                       EvtQueryChannelPath | EvtQueryForwardDirection | EvtQueryTolerateQueryErrors);
  ASSERT_TRUE(query);
  EXPECT_EQ(ReadAll(query.get()), (std::vector<std::uint64_t>{247, 249, 1, 2, 3, 4, 5}));
}

TEST_F(Api, MissingChannelIsToleratedOnlyWhenAsked)
{
  const wchar_t* list = L"<QueryList><Query Id=\"0\"><Select Path=\"NoSuchLog\">*</Select></Query><Query Id=\"1\">"
                        L"<Select Path=\"Microsoft-Windows-Sysmon/Operational\">*</Select></Query></QueryList>";
  SetLastError(0);
  EXPECT_FALSE(Query(nullptr, list, EvtQueryChannelPath | EvtQueryForwardDirection));
  EXPECT_EQ(GetLastError(), ERROR_EVT_CHANNEL_NOT_FOUND);
  Handle tolerant = Query(nullptr, list, 0x1101);
  ASSERT_TRUE(tolerant);
  EXPECT_EQ(ReadAll(tolerant.get()), Range(1, 5));
}

// Channel names are registry key names on Windows, which ignore case.
TEST_F(Api, ChannelNamesDifferingInCaseAreReadOnce)
{
  Handle query = Query(nullptr,
                       L"<QueryList><Query Id=\"0\"><Select Path=\"Microsoft-Windows-Sysmon/Operational\">*</Select>"
                       L"</Query><Query Id=\"1\"><Select Path=\"microsoft-windows-sysmon/operational\">*</Select>"
                       L"</Query></QueryList>");
  ASSERT_TRUE(query);
  EXPECT_EQ(ReadAll(query.get()), Range(1, 5));
}

// With EvtQueryTolerateQueryErrors a malformed <Query> (here a provider name with a quote in
// it) or one that names a missing channel is left out and the others run:
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/ne-winevt-evt_query_flags
TEST_F(Api, AMalformedQuerySpoilsOnlyItselfWhenTolerated)
{
  const wchar_t* list = L"<QueryList><Query Id=\"0\"><Select Path=\"Application\">*[System[Provider[@Name='O'Brien']]]"
                        L"</Select></Query><Query Id=\"1\"><Select Path=\"Microsoft-Windows-Sysmon/Operational\">*"
                        L"</Select></Query></QueryList>";
  SetLastError(0);
  EXPECT_FALSE(Query(nullptr, list, EvtQueryChannelPath | EvtQueryForwardDirection));
  EXPECT_EQ(GetLastError(), ERROR_EVT_INVALID_QUERY);
  Handle tolerant = Query(nullptr, list, 0x1101);
  ASSERT_TRUE(tolerant);
  EXPECT_EQ(ReadAll(tolerant.get()), Range(1, 5));
}

TEST_F(Api, AMissingChannelSpoilsOnlyItsQueryWhenTolerated)
{
  const wchar_t* list = L"<QueryList><Query Id=\"0\"><Select Path=\"NoSuchLog\">*</Select><Select Path=\"Application\">*"
                        L"</Select></Query><Query Id=\"1\"><Select Path=\"Application\">*[System[EventRecordID&lt;3]]"
                        L"</Select></Query><Query Id=\"2\"><Select Path=\"Microsoft-Windows-Sysmon/Operational\">*"
                        L"</Select></Query></QueryList>";
  Handle tolerant = Query(nullptr, list, 0x1101);
  ASSERT_TRUE(tolerant);
  EXPECT_EQ(ReadAll(tolerant.get()), (std::vector<std::uint64_t>{1, 2, 1, 2, 3, 4, 5}));
}

// EvtGetEventInfo(EvtEventPath) with its size protocol; the text follows the variant:
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/nf-winevt-evtgeteventinfo
std::wstring EventPath(EVT_HANDLE event)
{
  DWORD used = 0;
  if (EvtGetEventInfo(event, EvtEventPath, 0, nullptr, &used) || GetLastError() != ERROR_INSUFFICIENT_BUFFER)
    return L"<no size>";
  std::vector<EVT_VARIANT> buffer(used / sizeof(EVT_VARIANT) + 1);
  if (!EvtGetEventInfo(event, EvtEventPath, used, buffer.data(), &used) || buffer[0].Type != EvtVarTypeString)
    return L"<failed>";
  return buffer[0].StringVal;
}

// The path of every event of a query, in order.
std::vector<std::wstring> EventPaths(EVT_HANDLE query)
{
  std::vector<std::wstring> paths;
  EVT_HANDLE event = nullptr;
  DWORD returned = 0;
  while (EvtNext(query, 1, &event, INFINITE, 0, &returned))
  {
    Handle owned(event);
    paths.push_back(EventPath(event));
  }
  return paths;
}

TEST_F(Api, EventPathIsTheChannelOrFileTheEventCameFrom)
{
  Handle channels = Query(nullptr, L"<QueryList><Query Id=\"0\"><Select Path=\"Application\">*[System[EventRecordID=1]]"
                                   L"</Select><Select Path=\"Microsoft-Windows-Sysmon/Operational\">*[System[EventRecordID=2]]"
                                   L"</Select></Query></QueryList>");
  ASSERT_TRUE(channels);
  EXPECT_EQ(EventPaths(channels.get()),
            (std::vector<std::wstring>{L"Application", L"Microsoft-Windows-Sysmon/Operational"}));
  const std::wstring file = host.WidePath() + L"/Application.evtx";
  Handle files(EvtQuery(nullptr, file.c_str(), L"*[System[EventRecordID=3]]", EvtQueryFilePath));
  ASSERT_TRUE(files);
  EXPECT_EQ(EventPaths(files.get()), (std::vector<std::wstring>{file}));
  const std::wstring list = L"<QueryList><Query Id=\"0\"><Select Path=\"file://" + file +
                            L"\">*[System[EventRecordID=4]]</Select></Query></QueryList>";
  Handle scheme(EvtQuery(nullptr, nullptr, list.c_str(), EvtQueryForwardDirection));
  ASSERT_TRUE(scheme);
  EXPECT_EQ(EventPaths(scheme.get()), (std::vector<std::wstring>{file}));
}

TEST_F(Api, EventInfoRejectsWhatItCannotAnswer)
{
  Handle query = Query(L"Application", L"*");
  EVT_HANDLE event = nullptr;
  DWORD returned = 0, used = 0;
  ASSERT_TRUE(EvtNext(query.get(), 1, &event, INFINITE, 0, &returned));
  Handle owned(event);
  EVT_VARIANT small[1];
  EXPECT_FALSE(EvtGetEventInfo(event, EvtEventPath, sizeof small, small, &used));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  EXPECT_EQ(used, sizeof(EVT_VARIANT) + sizeof(L"Application"));
  EXPECT_FALSE(EvtGetEventInfo(event, EvtEventQueryIDs, 0, nullptr, &used));
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
  EXPECT_FALSE(EvtGetEventInfo(query.get(), EvtEventPath, 0, nullptr, &used));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_FALSE(EvtGetEventInfo(event, EvtEventPropertyIdEND, 0, nullptr, &used));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(Api, MalformedQueryIsInvalid)
{
  // Outside the documented subset (child and attribute axes; position(), band(), timediff()):
  // https://learn.microsoft.com/en-us/windows/win32/wes/consuming-events#xpath-10-limitations
  for (const wchar_t* text : {L"*[System[EventID=]]", L"<QueryList><Query>", L"<QueryList/>", L"Event[", L"//Event",
                              L"*[count(System)]", L"*[System/EventID|System/Level]", L"*[System/..]"})
  {
    SetLastError(0);
    EXPECT_FALSE(Query(L"Application", text, 0x1101)) << text;
    EXPECT_EQ(GetLastError(), ERROR_EVT_INVALID_QUERY) << text;
  }
}

TEST_F(Api, BareXPathNeedsAPath)
{
  EXPECT_FALSE(Query(nullptr, L"*"));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(Api, FilePathQueries)
{
  const std::wstring file = host.WidePath() + L"/Application.evtx";
  Handle query(EvtQuery(nullptr, file.c_str(), L"*[System[EventRecordID<=3]]", EvtQueryFilePath));
  ASSERT_TRUE(query);
  EXPECT_EQ(ReadAll(query.get()), Range(1, 3));
  EXPECT_FALSE(EvtQuery(nullptr, L"/no/such/file.evtx", L"*", EvtQueryFilePath));
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(Api, ConflictingFlagsAreInvalid)
{
  for (DWORD flags : {DWORD{EvtQueryChannelPath | EvtQueryFilePath},
                      DWORD{EvtQueryForwardDirection | EvtQueryReverseDirection}, DWORD{0x4000}})
  {
    EXPECT_FALSE(Query(L"Application", L"*", flags)) << flags;
    EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  }
}

TEST_F(Api, NextValidatesItsArguments)
{
  Handle query = Query(L"Application", L"*");
  EVT_HANDLE events[1];
  DWORD returned = 0;
  EXPECT_FALSE(EvtNext(query.get(), 0, events, INFINITE, 0, &returned));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_FALSE(EvtNext(session.get(), 1, events, INFINITE, 0, &returned));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST(Close, StaleOrNullHandlesAreInvalid)
{
  EXPECT_FALSE(EvtClose(nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  Handle session = OpenSession(L"localhost");
  ASSERT_TRUE(session);
  EVT_HANDLE raw = session.release();
  EXPECT_TRUE(EvtClose(raw));
  EXPECT_FALSE(EvtClose(raw));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

// A closed handle stays invalid while new objects get handles, and theirs stay apart from it.
TEST(Close, AClosedHandleStaysInvalidWhenNewHandlesAreMade)
{
  Handle first = OpenSession(L"localhost");
  ASSERT_TRUE(first);
  EVT_HANDLE closed = first.release();
  ASSERT_TRUE(EvtClose(closed));
  std::vector<Handle> later;
  for (int i = 0; i < 8; ++i)
  {
    later.push_back(OpenSession(L"localhost"));
    ASSERT_TRUE(later.back());
    EXPECT_NE(later.back().get(), closed);
  }
  SetLastError(0);
  EXPECT_FALSE(EvtClose(closed));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  // A handle value nobody was given is invalid too.
  EXPECT_FALSE(EvtClose(reinterpret_cast<EVT_HANDLE>(static_cast<std::uintptr_t>(0x12345678)))); // NOLINT(performance-no-int-to-ptr)
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

// With a time-out, EvtNext stops after a chunk that held no match and reports ERROR_TIMEOUT;
// the next call goes on where it stopped.
TEST_F(Api, TimeOutStopsAfterAChunkAndResumes)
{
  const std::string path = host.File("Big.evtx");
  WriteEvents(path, 1000, true, 1, [](int i, evtx::WriterEvent& e) { e.eventId = i == 1000 ? 99 : 1; });
  evtx::File file;
  ASSERT_EQ(file.Open(path), evtx::Status::Ok);
  ASSERT_GT(file.ChunkCount(), 1u);
  Handle query = Query(L"Big", L"*[System[EventID=99]]");
  ASSERT_TRUE(query);
  EVT_HANDLE event = nullptr;
  DWORD returned = 5;
  EXPECT_FALSE(EvtNext(query.get(), 1, &event, 0, 0, &returned));
  EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
  EXPECT_EQ(returned, 0u);
  DWORD lastError = 0;
  EXPECT_EQ(ReadAll(query.get(), 10, INFINITE, lastError), (std::vector<std::uint64_t>{1000}));
  EXPECT_EQ(lastError, ERROR_NO_MORE_ITEMS);
}

// A record-number bound loads only the chunks that can hold newer records.
TEST_F(Api, RecordIdBoundSkipsOlderChunksWithoutLoadingThem)
{
  const std::string path = host.File("Big.evtx");
  WriteEvents(path, 2000);
  evtx::File file;
  ASSERT_EQ(file.Open(path), evtx::Status::Ok);
  const std::uint32_t chunks = file.ChunkCount();
  ASSERT_GT(chunks, 3u);
  auto query = evtx::query::Query::ParseXPath(L"*[System[EventRecordID>1995]]", L"Big");
  natc::winevt::ChannelCursor cursor(std::move(file), 0, false, query.MinRecordId(0), L"Big");
  std::vector<std::uint64_t> ids;
  std::shared_ptr<natc::winevt::EventObject> event;
  for (;;)
  {
    const auto step = cursor.Next(query, evtx::query::EvalContext{}, event);
    if (step == natc::winevt::ChannelCursor::Step::End)
      break;
    if (step == natc::winevt::ChannelCursor::Step::Event)
      ids.push_back(event->RecordId());
  }
  EXPECT_EQ(ids, Range(1996, 2000));
  EXPECT_EQ(cursor.ChunksLoaded(), 1u);
}
} // namespace
