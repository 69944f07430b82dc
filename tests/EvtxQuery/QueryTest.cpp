#include "Evtx/Query/Query.h"
#include "Evtx/Query/XmlEventView.h"
#include "TimeText.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
// Test names by table row: the parameters hold pointers, which differ from run to run.
struct RowName
{
  template <class T>
  std::string operator()(const testing::TestParamInfo<T>& info) const
  {
    return "row" + std::to_string(info.index);
  }
};

using evtx::query::EvalContext;
using evtx::query::Query;
using evtx::query::QueryError;
using evtx::query::XmlEventView;

// A security logon event as Windows renders it.
const wchar_t* const kLogon = LR"(<Event xmlns="http://schemas.microsoft.com/win/2004/08/events/event"><System><Provider Name="Microsoft-Windows-Security-Auditing" Guid="{54849625-5478-4994-a5ba-3e3b0328c30d}"/><EventID>4624</EventID><Version>2</Version><Level>0</Level><Task>12544</Task><Opcode>0</Opcode><Keywords>0x8020000000000000</Keywords><TimeCreated SystemTime="2024-05-01T10:20:30.1234567Z"/><EventRecordID>42</EventRecordID><Correlation/><Execution ProcessID="636" ThreadID="700"/><Channel>Security</Channel><Computer>host.example</Computer><Security/></System><EventData><Data Name="SubjectUserSid">S-1-5-18</Data><Data Name="TargetUserName">alice</Data><Data Name="LogonType">10</Data></EventData></Event>)";

// A service event with qualifiers and user data.
const wchar_t* const kService = LR"(<Event xmlns="http://schemas.microsoft.com/win/2004/08/events/event"><System><Provider Name="Service Control Manager" EventSourceName="Service Control Manager"/><EventID Qualifiers="16384">7036</EventID><Level>4</Level><Keywords>0x8080000000000000</Keywords><TimeCreated SystemTime="2024-04-30T10:20:30.0000000Z"/><EventRecordID>18446744073709551615</EventRecordID><Channel>System</Channel><Security UserID="S-1-5-18"/></System><UserData><LowOnMemory xmlns="urn:x"><Name>svc</Name></LowOnMemory></UserData></Event>)";

// 2024-05-01T10:20:30.1234567Z plus one hour.
EvalContext OneHourLater()
{
  EvalContext context;
  context.nowFileTime = *evtx::query::ParseSystemTime(L"2024-05-01T11:20:30.1234567Z");
  return context;
}

bool Selects(const std::wstring& xpath, const wchar_t* event)
{
  const Query query = Query::ParseXPath(xpath, L"Security");
  const XmlEventView view(event);
  return query.Matches(0, view, OneHourLater());
}

struct Case
{
  const wchar_t* xpath;
  bool onLogon;
  bool onService;
};

class XPathTable : public testing::TestWithParam<Case>
{
};

TEST_P(XPathTable, MatchesAsWindowsDoes)
{
  EXPECT_EQ(Selects(GetParam().xpath, kLogon), GetParam().onLogon) << "logon event";
  EXPECT_EQ(Selects(GetParam().xpath, kService), GetParam().onService) << "service event";
}

INSTANTIATE_TEST_SUITE_P(
  Table, XPathTable,
  testing::Values(
    Case{L"*", true, true}, Case{L"Event", true, true}, Case{L"Event/System", true, true},
    Case{L"*[System/EventID=4624]", true, false}, Case{L"*[System[EventID=4624]]", true, false},
    Case{L"*[System[EventID='4624']]", true, false}, Case{L"*[System[EventID!=4624]]", false, true},
    Case{L"*[System[(EventID=1 or EventID=7036)]]", false, true},
    Case{L"*[System[Provider[@Name='Service Control Manager']]]", false, true},
    Case{L"*[System[Provider[@Name='service control manager']]]", false, false},
    Case{L"*[System[(Provider[@Name='Microsoft-Windows-Security-Auditing']) and (EventID=4624 or EventID=4625) and "
         L"(EventRecordID>41)]]",
         true, false},
    Case{L"*[System[EventRecordID>42]]", false, true}, Case{L"*[System[EventRecordID>=42]]", true, true},
    Case{L"*[System[EventRecordID<42]]", false, false}, Case{L"*[System[EventRecordID<=42]]", true, false},
    Case{L"*[System[EventRecordID>18446744073709551614]]", false, true},
    Case{L"*[System[EventRecordID=18446744073709551615]]", false, true},
    Case{L"*[System[Level=0 or Level=4]]", true, true}, Case{L"*[System[(Level <= 3)]]", true, false},
    Case{L"*[System[not(Level=4)]]", true, false}, Case{L"*[not(System/Level=4)]", true, false},
    Case{L"*[System[EventID/@Qualifiers=16384]]", false, true}, Case{L"*[System/EventID[@Qualifiers]]", false, true},
    Case{L"*[System[band(Keywords,0x0020000000000000)]]", true, false},
    Case{L"*[System[band(Keywords,9007199254740992)]]", true, false},
    Case{L"*[System[band(Keywords,0x8000000000000000)]]", true, true},
    Case{L"*[System[band(Keywords,1)]]", false, false},
    Case{L"*[System[TimeCreated[timediff(@SystemTime) <= 3600000]]]", true, false},
    Case{L"*[System[TimeCreated[timediff(@SystemTime) <= 86400000]]]", true, false},
    Case{L"*[System[TimeCreated[timediff(@SystemTime) <= 90000200]]]", true, true},
    Case{L"*[System[TimeCreated[timediff(@SystemTime) < 3600000]]]", false, false},
    Case{L"*[System[TimeCreated[timediff(@SystemTime,'2024-05-01T10:20:31.1234567Z') = 1000]]]", true, false},
    Case{L"*[System[Execution[@ProcessID=636 and @ThreadID > 699]]]", true, false},
    Case{L"*[System[Security[@UserID='S-1-5-18']]]", false, true}, Case{L"*[System/Security/@UserID]", false, true},
    Case{L"*[EventData[Data[@Name='TargetUserName']='alice']]", true, false},
    Case{L"*[EventData[Data[@Name='TargetUserName']='bob']]", false, false},
    Case{L"*[EventData[Data='alice']]", true, false}, Case{L"*[EventData[Data=10]]", true, false},
    Case{L"*[EventData[Data[@Name='LogonType']>9]]", true, false},
    Case{L"*[EventData[Data[text()='alice']]]", true, false}, Case{L"*[EventData[Data[.='alice']]]", true, false},
    Case{L"*[EventData/Data[2]='alice']", true, false}, Case{L"*[EventData/Data[1]='alice']", false, false},
    Case{L"*[UserData/LowOnMemory]", false, true}, Case{L"*[UserData/*/Name='svc']", false, true},
    Case{L"*[System/Channel='Security' and System/Computer=\"host.example\"]", true, false},
    Case{L"*[System[ ( EventID = 4624 ) ]]", true, false}, Case{L"*[System[EventID=-1]]", false, false},
    Case{L"*[System[EventID=4624.0]]", true, false}, Case{L"*[System/NoSuchElement]", false, false},
    Case{L"*[System[true()]]", true, true}, Case{L"*[System[false()]]", false, false},
    Case{L"*[System[(EventID=4624)=true()]]", true, false}, Case{L"Event[System[EventID=7036]]", false, true},
    // Event Viewer's custom range: times compare as instants, whatever their fraction digits.
    Case{L"*[System[TimeCreated[@SystemTime>='2024-05-01T10:20:00.000Z' and @SystemTime<='2024-05-01T10:21:00.999Z']]]",
         true, false},
    Case{L"*[System[TimeCreated[@SystemTime>='2024-05-01T10:20:30.1234568Z']]]", false, false},
    Case{L"*[System[TimeCreated[@SystemTime<='2024-05-01T10:20:30.123Z']]]", false, true},
    Case{L"*[System[TimeCreated[@SystemTime>'2024-04-30T10:20:30Z']]]", true, false},
    Case{L"*[System[TimeCreated['2024-04-30T10:20:30Z'<@SystemTime]]]", true, false},
    Case{L"*[System[Computer>'a']]", false, false}, Case{L"*[System[Computer<='z']]", false, false},
    // position(), the one core function of the subset.
    Case{L"*[EventData/Data[position()=2]='alice']", true, false},
    Case{L"*[EventData/Data[position()>2]=10]", true, false}, Case{L"*[EventData/Data[position()=1]='alice']", false, false},
    Case{L"*[position()=1]", true, true}, Case{L"*[System/*[position()=2 and .=4624]]", true, false}), RowName());

class InvalidXPath : public testing::TestWithParam<const wchar_t*>
{
};

TEST_P(InvalidXPath, IsRejected) { EXPECT_THROW(Query::ParseXPath(GetParam(), L"Security"), QueryError); }

INSTANTIATE_TEST_SUITE_P(
  Table, InvalidXPath,
  testing::Values(L"", L"System", L"*[", L"*[System[EventID=1]", L"*[System[EventID=]]", L"*[System[EventID 1]]",
                  L"*[System[EventID='1]]", L"*[System[EventID==1]]", L"*[unknown(1)]", L"*[band(Keywords)]",
                  L"*[System[EventID=1]] junk", L"*[@]", L"*[System[(EventID=1]]", L"*[System[EventID=1)]]",
                  L"*[System[EventID=0x]]", L"*[System[EventID=1.2.3]]", L"*[System[EventID=1 and]]", L"*[#]",
                  L"*[text()[1]]", L"/Event", L"*[System[EventID=-x]]",
                  // Outside the subset Windows accepts: other axes, functions, unions, arithmetic.
                  L"//Event", L"*[System/..]", L"*[count(System)]", L"*[contains(System/Computer,'h')]",
                  L"*[System/EventID|System/Level]", L"*[System[EventID+1=2]]", L"*[position(1)]",
                  L"*[System[EventID mod 2]]", L"*[parent::System]"), RowName());

TEST(XPath, DeepNestingIsAnErrorNotACrash)
{
  std::wstring deep = L"*[";
  for (int i = 0; i < 10000; ++i)
    deep += L"(";
  deep += L"1";
  for (int i = 0; i < 10000; ++i)
    deep += L")";
  deep += L"]";
  EXPECT_THROW(Query::ParseXPath(deep, L"Security"), QueryError);
}

// String comparisons are case-sensitive (values, attribute values and element names alike),
// as in XPath 1.0, which event queries on Windows follow.
TEST(XPath, StringComparisonsAreCaseSensitive)
{
  EXPECT_TRUE(Selects(L"*[EventData[Data[@Name='TargetUserName']='alice']]", kLogon));
  EXPECT_FALSE(Selects(L"*[EventData[Data[@Name='TargetUserName']='Alice']]", kLogon));
  EXPECT_TRUE(Selects(L"*[EventData[Data[@Name='TargetUserName']!='ALICE']]", kLogon));
  EXPECT_FALSE(Selects(L"*[EventData[Data[@Name='targetusername']='alice']]", kLogon));
  EXPECT_TRUE(Selects(L"*[System[Provider[@Name='Microsoft-Windows-Security-Auditing']]]", kLogon));
  EXPECT_FALSE(Selects(L"*[System[Provider[@Name='microsoft-windows-security-auditing']]]", kLogon));
  EXPECT_FALSE(Selects(L"*[System[Channel='security']]", kLogon));
  EXPECT_FALSE(Selects(L"*[system[Channel='Security']]", kLogon));
}

TEST(XPath, NeedsAChannel) { EXPECT_THROW(Query::Parse(L"*", L""), QueryError); }

TEST(XPath, EmptyTextSelectsEverything)
{
  const Query query = Query::Parse(L"  ", L"Security");
  ASSERT_EQ(query.Channels().size(), 1u);
  EXPECT_TRUE(query.Matches(0, XmlEventView(kLogon), OneHourLater()));
}

// The text the event collection sends, with its entities.
TEST(QueryList, CollectionQueryWithEntities)
{
  const Query query = Query::Parse(
    L"<QueryList><Query Id=\"0\"><Select Path=\"Security\">*[System[(Provider[@Name='Microsoft-Windows-Security-"
    L"Auditing']) and (EventID=4624 or EventID=2) and (EventRecordID&gt;41)]]</Select></Query><Query Id=\"1\"><Select "
    L"Path=\"System\">*[System[(TimeCreated[timediff(@SystemTime)&lt;=86400000])]]</Select></Query></QueryList>",
    L"");
  ASSERT_EQ(query.Channels(), (std::vector<std::wstring>{L"Security", L"System"}));
  EXPECT_EQ(query.MinRecordId(0), 42u);
  EXPECT_EQ(query.MinRecordId(1), 0u);
  EXPECT_TRUE(query.Matches(0, XmlEventView(kLogon), OneHourLater()));
  EXPECT_FALSE(query.Matches(1, XmlEventView(kService), OneHourLater()));
}

TEST(QueryList, UnionOfSelectsMinusSuppressesPerQuery)
{
  const Query query = Query::Parse(LR"(<QueryList>
      <Query Id="0" Path="Security">
        <Select>*[System[EventID=4624]]</Select>
        <Select Path="System">*</Select>
        <Suppress Path="System">*[System[Level=4]]</Suppress>
      </Query>
      <Query Id="1"><Select Path="Security">*[EventData[Data[@Name='TargetUserName']='alice']]</Select>
        <Suppress Path="Security">*[System[EventID=4624]]</Suppress></Query>
    </QueryList>)",
                                   L"ignored");
  ASSERT_EQ(query.Channels(), (std::vector<std::wstring>{L"Security", L"System"}));
  // Query 1 suppresses the logon, but Query 0 still selects it: the results are a union.
  EXPECT_TRUE(query.Matches(0, XmlEventView(kLogon), OneHourLater()));
  // Level 4 on System is suppressed within the only Query that selects it.
  EXPECT_FALSE(query.Matches(1, XmlEventView(kService), OneHourLater()));
  EXPECT_FALSE(query.Matches(2, XmlEventView(kService), OneHourLater()));
}

TEST(QueryList, SuppressOnlyInItsOwnQueryRemovesTheEvent)
{
  const Query query = Query::Parse(L"<QueryList><Query><Select Path=\"Security\">*</Select><Suppress "
                                   L"Path=\"Security\">*[System[EventID=4624]]</Suppress></Query></QueryList>",
                                   L"");
  EXPECT_FALSE(query.Matches(0, XmlEventView(kLogon), OneHourLater()));
}

TEST(QueryList, DuplicateChannelsAreListedOnceWithTheLowestBound)
{
  const Query query = Query::Parse(
    L"<QueryList><Query Id=\"0\"><Select Path=\"Application\">*[System[(EventRecordID&gt;100)]]</Select></Query>"
    L"<Query Id=\"1\"><Select Path=\"Application\">*[System[(EventRecordID&gt;7)]]</Select></Query></QueryList>",
    L"");
  ASSERT_EQ(query.Channels().size(), 1u);
  EXPECT_EQ(query.MinRecordId(0), 8u);
}

struct BoundCase
{
  const wchar_t* xpath;
  std::uint64_t bound;
};

class RecordIdBound : public testing::TestWithParam<BoundCase>
{
};

TEST_P(RecordIdBound, IsTheLowestMatchingRecord)
{
  EXPECT_EQ(Query::ParseXPath(GetParam().xpath, L"Security").MinRecordId(0), GetParam().bound);
}

INSTANTIATE_TEST_SUITE_P(
  Table, RecordIdBound,
  testing::Values(BoundCase{L"*", 0}, BoundCase{L"*[System[EventRecordID>41]]", 42},
                  BoundCase{L"*[System[EventRecordID>=41]]", 41}, BoundCase{L"*[System[EventRecordID=41]]", 41},
                  BoundCase{L"*[System[41<EventRecordID]]", 42}, BoundCase{L"*[System[EventRecordID<41]]", 0},
                  BoundCase{L"*[System/EventRecordID>41]", 42}, BoundCase{L"Event[System[EventRecordID>41]]", 42},
                  BoundCase{L"*[System[EventID=1 and EventRecordID>41]]", 42},
                  BoundCase{L"*[System[EventID=1 or EventRecordID>41]]", 0},
                  BoundCase{L"*[System[EventRecordID>10 or EventRecordID>41]]", 11},
                  BoundCase{L"*[System[EventRecordID>10 and EventRecordID>41]]", 42},
                  BoundCase{L"*[System[not(EventRecordID>41)]]", 0},
                  BoundCase{L"*[EventData[EventRecordID>41]]", 0},
                  BoundCase{L"*[System[EventRecordID>41.5]]", 0},
                  BoundCase{L"*[System[EventRecordID>-3]]", 0}), RowName());

class InvalidQueryList : public testing::TestWithParam<const wchar_t*>
{
};

TEST_P(InvalidQueryList, IsRejected) { EXPECT_THROW(Query::Parse(GetParam(), L"Security"), QueryError); }

INSTANTIATE_TEST_SUITE_P(
  Table, InvalidQueryList,
  testing::Values(L"<QueryList>", L"<QueryList></QueryList>", L"<Query><Select Path=\"A\">*</Select></Query>",
                  L"<QueryList><Query><Select>*</Select></Query></QueryList>",
                  L"<QueryList><Query><Suppress Path=\"A\">*</Suppress></Query></QueryList>",
                  L"<QueryList><Query><Select Path=\"A\"></Select></Query></QueryList>",
                  L"<QueryList><Query><Select Path=\"A\">*[</Select></Query></QueryList>",
                  L"<QueryList><Query><Select Path=\"A\">*[System[EventID>1]]</Select></Query></QueryList>x<",
                  L"<QueryList><Query><Select Path=\"A\">*<b/></Select></Query></QueryList>",
                  L"<QueryList><Other/></QueryList>",
                  L"<QueryList><Query><Select Path=\"A\">*</Select><Other/></Query></QueryList>"), RowName());
} // namespace

namespace
{
TEST(QueryList, ChannelNamesDifferingInCaseAreOneChannel)
{
  const Query query = Query::Parse(L"<QueryList><Query Id=\"0\"><Select Path=\"System\">*[System[EventID=1]]</Select>"
                                   L"</Query><Query Id=\"1\"><Select Path=\"system\">*[System[EventID=2]]</Select>"
                                   L"<Select Path=\"/logs/System.evtx\">*</Select><Select Path=\"/logs/system.evtx\">*"
                                   L"</Select></Query></QueryList>",
                                   L"");
  EXPECT_EQ(query.Channels(), (std::vector<std::wstring>{L"System", L"/logs/System.evtx", L"/logs/system.evtx"}));
}
} // namespace

namespace
{
// EvtQueryTolerateQueryErrors: https://learn.microsoft.com/en-us/windows/win32/api/winevt/ne-winevt-evt_query_flags
const wchar_t* const kOneQuoteTooMany =
  L"<QueryList><Query Id=\"0\"><Select Path=\"Security\">*[System[Provider[@Name='O'Brien']]]</Select></Query>"
  L"<Query Id=\"1\"><Select Path=\"System\">*[System[EventID=7036]]</Select></Query></QueryList>";

TEST(QueryList, AMalformedQuerySpoilsOnlyItselfWhenErrorsAreTolerated)
{
  EXPECT_THROW(Query::Parse(kOneQuoteTooMany, L""), QueryError);
  const Query query = Query::Parse(kOneQuoteTooMany, L"", true);
  ASSERT_EQ(query.Channels(), (std::vector<std::wstring>{L"System"}));
  EXPECT_TRUE(query.Matches(0, XmlEventView(kService), OneHourLater()));
}

TEST(QueryList, NothingWellFormedIsStillAnError)
{
  EXPECT_THROW(Query::Parse(L"<QueryList><Query Id=\"0\"><Select Path=\"System\">*[</Select></Query></QueryList>",
                            L"", true),
               QueryError);
}

TEST(QueryList, DroppingTheQueriesOfAChannelKeepsTheOthers)
{
  Query query = Query::Parse(L"<QueryList><Query Id=\"0\"><Select Path=\"Missing\">*</Select><Select Path=\"System\">"
                             L"*[System[EventID=1]]</Select></Query><Query Id=\"1\"><Select Path=\"System\">"
                             L"*[System[EventID=7036]]</Select></Query><Query Id=\"2\"><Select Path=\"Security\">*"
                             L"</Select></Query></QueryList>",
                             L"");
  ASSERT_EQ(query.Channels(), (std::vector<std::wstring>{L"Missing", L"System", L"Security"}));
  query.DropQueriesReading(0);
  EXPECT_FALSE(query.Reads(0));
  EXPECT_TRUE(query.Reads(1));
  EXPECT_TRUE(query.Reads(2));
  EXPECT_TRUE(query.Matches(1, XmlEventView(kService), OneHourLater()));
  EXPECT_TRUE(query.SelectsAll(2));
}
} // namespace
