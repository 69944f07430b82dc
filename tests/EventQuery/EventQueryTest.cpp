// The event query list text, byte for byte, and the validation of the caller's filters.
#include "EventQuery.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cwctype>
#include <limits>
#include <string>
#include <vector>

namespace
{
using collector::ni::impl::AreEventFiltersValid;
using collector::ni::impl::BuildEventQuery;
using collector::ni::impl::EventBookmarks;
using collector::ni::win_events::SFilter;

SFilter Filter(tstring path, tstring provider = {}, std::int64_t timeDiff = 0, std::vector<std::uint32_t> ids = {})
{
  SFilter filter;
  filter.Path = std::move(path);
  filter.Provider = std::move(provider);
  filter.TimeDiff = timeDiff;
  filter.EventIds = std::move(ids);
  return filter;
}

// One query of the list with the given number, path and condition.
tstring Query(int number, const tstring& path, const tstring& condition)
{
  return L"<Query Id=\"" + std::to_wstring(number) + L"\"><Select Path=\"" + path + L"\">*" + condition +
         L"</Select></Query>";
}

tstring List(const tstring& queries)
{
  return L"<QueryList>" + queries + L"</QueryList>";
}

tstring Build(const std::vector<SFilter>& filters, const EventBookmarks& bookmarks = {})
{
  return BuildEventQuery(filters, bookmarks);
}

TEST(EventQuery, PathOnlySelectsEverythingWithoutCondition)
{
  EXPECT_EQ(L"<QueryList><Query Id=\"0\"><Select Path=\"System\">*</Select></Query></QueryList>",
            Build({Filter(L"System")}));
}

TEST(EventQuery, ProviderOnly)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(Provider[@Name='Service Control Manager'])]]")),
            Build({Filter(L"System", L"Service Control Manager")}));
}

TEST(EventQuery, EventIdsOnlyOpenTheSystemCondition)
{
  EXPECT_EQ(List(Query(0, L"Application", L"[System[(EventID=7036)]]")), Build({Filter(L"Application", L"", 0, {7036})}));
  EXPECT_EQ(List(Query(0, L"Application", L"[System[(EventID=7036 or EventID=7040 or EventID=1)]]")),
            Build({Filter(L"Application", L"", 0, {7036, 7040, 1})}));
}

TEST(EventQuery, EventIdsKeepTheirOrderAndDuplicates)
{
  EXPECT_EQ(List(Query(0, L"S", L"[System[(EventID=9 or EventID=3 or EventID=9)]]")), Build({Filter(L"S", L"", 0, {9, 3, 9})}));
}

TEST(EventQuery, LargestEventIdIsUnsignedDecimal)
{
  EXPECT_EQ(List(Query(0, L"S", L"[System[(EventID=4294967295 or EventID=0)]]")),
            Build({Filter(L"S", L"", 0, {std::numeric_limits<std::uint32_t>::max(), 0})}));
}

TEST(EventQuery, ProviderAndEventIds)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(Provider[@Name='P']) and (EventID=1 or EventID=2)]]")),
            Build({Filter(L"System", L"P", 0, {1, 2})}));
}

TEST(EventQuery, PositiveTimeDiffWithoutBookmarkLimitsTheFirstRead)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(TimeCreated[timediff(@SystemTime)&lt;=3600000])]]")),
            Build({Filter(L"System", L"", 3600000)}));
  EXPECT_EQ(List(Query(0, L"System", L"[System[(TimeCreated[timediff(@SystemTime)&lt;=1])]]")),
            Build({Filter(L"System", L"", 1)}));
  EXPECT_EQ(List(Query(0, L"System", L"[System[(TimeCreated[timediff(@SystemTime)&lt;=9223372036854775807])]]")),
            Build({Filter(L"System", L"", std::numeric_limits<std::int64_t>::max())}));
}

TEST(EventQuery, ZeroOrNegativeTimeDiffAddsNoTimeCondition)
{
  const tstring plain = List(Query(0, L"System", L""));
  EXPECT_EQ(plain, Build({Filter(L"System", L"", 0)}));
  EXPECT_EQ(plain, Build({Filter(L"System", L"", -1)}));
  EXPECT_EQ(plain, Build({Filter(L"System", L"", std::numeric_limits<std::int64_t>::min())}));
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventID=5)]]")), Build({Filter(L"System", L"", -60000, {5})}));
}

TEST(EventQuery, ProviderAndTimeDiff)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(Provider[@Name='P']) and (TimeCreated[timediff(@SystemTime)&lt;=500])]]")),
            Build({Filter(L"System", L"P", 500)}));
}

TEST(EventQuery, EventIdsAndTimeDiff)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventID=7) and (TimeCreated[timediff(@SystemTime)&lt;=500])]]")),
            Build({Filter(L"System", L"", 500, {7})}));
}

TEST(EventQuery, ProviderEventIdsAndTimeDiff)
{
  EXPECT_EQ(List(Query(0, L"System",
                       L"[System[(Provider[@Name='P']) and (EventID=7 or EventID=8) and "
                       L"(TimeCreated[timediff(@SystemTime)&lt;=500])]]")),
            Build({Filter(L"System", L"P", 500, {7, 8})}));
}

TEST(EventQuery, BookmarkAlone)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventRecordID&gt;42)]]")), Build({Filter(L"System")}, {{L"System", 42}}));
}

TEST(EventQuery, BookmarkReplacesTheLookBackWindowAfterTheFirstRead)
{
  const std::vector<SFilter> filters{Filter(L"System", L"", 3600000)};
  EXPECT_EQ(List(Query(0, L"System", L"[System[(TimeCreated[timediff(@SystemTime)&lt;=3600000])]]")), Build(filters));
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventRecordID&gt;1234)]]")), Build(filters, {{L"System", 1234}}));
}

TEST(EventQuery, ProviderEventIdsAndBookmark)
{
  EXPECT_EQ(List(Query(0, L"System",
                       L"[System[(Provider[@Name='P']) and (EventID=1 or EventID=2) and (EventRecordID&gt;7)]]")),
            Build({Filter(L"System", L"P", 100, {1, 2})}, {{L"System", 7}}));
}

TEST(EventQuery, ProviderAndBookmark)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(Provider[@Name='P']) and (EventRecordID&gt;7)]]")),
            Build({Filter(L"System", L"P")}, {{L"System", 7}}));
}

TEST(EventQuery, EventIdsAndBookmark)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventID=3) and (EventRecordID&gt;7)]]")),
            Build({Filter(L"System", L"", -5, {3})}, {{L"System", 7}}));
}

TEST(EventQuery, BookmarkValuesInSignedDecimal)
{
  EXPECT_EQ(List(Query(0, L"S", L"[System[(EventRecordID&gt;0)]]")), Build({Filter(L"S")}, {{L"S", 0}}));
  EXPECT_EQ(List(Query(0, L"S", L"[System[(EventRecordID&gt;-3)]]")), Build({Filter(L"S")}, {{L"S", -3}}));
  EXPECT_EQ(List(Query(0, L"S", L"[System[(EventRecordID&gt;9223372036854775807)]]")),
            Build({Filter(L"S")}, {{L"S", std::numeric_limits<std::int64_t>::max()}}));
}

TEST(EventQuery, BookmarkOfAnotherChannelIsNotUsed)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(TimeCreated[timediff(@SystemTime)&lt;=10])]]")),
            Build({Filter(L"System", L"", 10)}, {{L"Application", 99}}));
}

TEST(EventQuery, BookmarkLookupIgnoresCaseButNothingElse)
{
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventRecordID&gt;99)]]")),
            Build({Filter(L"System")}, {{L"SYSTEM", 99}}));
  EXPECT_EQ(List(Query(0, L"System", L"")), Build({Filter(L"System")}, {{L"System ", 98}}));
}

TEST(EventQuery, ChannelPathsCompareAsUpperCase)
{
  const collector::ni::impl::SChannelPathLess less;
  EXPECT_FALSE(less(L"Microsoft-Windows-Sysmon/Operational", L"microsoft-windows-sysmon/operational"));
  EXPECT_FALSE(less(L"microsoft-windows-sysmon/operational", L"Microsoft-Windows-Sysmon/Operational"));
  // Letters fold to upper case: '[' (0x5B) lies above 'A' and below 'a'.
  EXPECT_TRUE(less(L"a", L"["));
  EXPECT_FALSE(less(L"[", L"a"));
  EXPECT_TRUE(less(L"System", L"system2"));
  // Beyond ASCII the library's case mapping decides, as before.
  const std::wstring upper(1, static_cast<wchar_t>(std::towupper(0xE9)));
  EXPECT_FALSE(less(std::wstring(1, static_cast<wchar_t>(0xE9)), upper));
  EXPECT_FALSE(less(upper, std::wstring(1, static_cast<wchar_t>(0xE9))));
}

TEST(EventQuery, TwoFiltersOnOneChannelShareItsBookmark)
{
  const std::vector<SFilter> filters{Filter(L"System", L"A", 100), Filter(L"System", L"", 200, {4})};
  EXPECT_EQ(List(Query(0, L"System", L"[System[(Provider[@Name='A']) and (EventRecordID&gt;77)]]") +
                 Query(1, L"System", L"[System[(EventID=4) and (EventRecordID&gt;77)]]")),
            Build(filters, {{L"System", 77}}));
  EXPECT_EQ(List(Query(0, L"System", L"[System[(Provider[@Name='A']) and (TimeCreated[timediff(@SystemTime)&lt;=100])]]") +
                 Query(1, L"System", L"[System[(EventID=4) and (TimeCreated[timediff(@SystemTime)&lt;=200])]]")),
            Build(filters));
}

TEST(EventQuery, SeveralFiltersNumberedFromZeroInOrder)
{
  const std::vector<SFilter> filters{
    Filter(L"System"),
    Filter(L"Application", L"MsiInstaller", 0, {1033, 1034}),
    Filter(L"Security", L"", 86400000),
    Filter(L"Setup", L"", 5),
  };
  const EventBookmarks bookmarks{{L"Application", 500}, {L"Setup", 12}, {L"Other", 1}};
  EXPECT_EQ(L"<QueryList>"
            L"<Query Id=\"0\"><Select Path=\"System\">*</Select></Query>"
            L"<Query Id=\"1\"><Select Path=\"Application\">*[System[(Provider[@Name='MsiInstaller']) and "
            L"(EventID=1033 or EventID=1034) and (EventRecordID&gt;500)]]</Select></Query>"
            L"<Query Id=\"2\"><Select Path=\"Security\">*[System[(TimeCreated[timediff(@SystemTime)&lt;=86400000])]]"
            L"</Select></Query>"
            L"<Query Id=\"3\"><Select Path=\"Setup\">*[System[(EventRecordID&gt;12)]]</Select></Query>"
            L"</QueryList>",
            Build(filters, bookmarks));
}

TEST(EventQuery, TwelveFiltersGetTwoDigitNumbers)
{
  std::vector<SFilter> filters;
  tstring expected;
  for (int i = 0; i < 12; ++i)
  {
    filters.push_back(Filter(L"C" + std::to_wstring(i)));
    expected += Query(i, L"C" + std::to_wstring(i), L"");
  }
  EXPECT_EQ(List(expected), Build(filters));
}

TEST(EventQuery, ValuesAreInsertedWithoutEscaping)
{
  EXPECT_EQ(List(Query(0, L"Microsoft-Windows-A/Operational&\"<x>", L"[System[(Provider[@Name='O'Brien <&>'])]]")),
            Build({Filter(L"Microsoft-Windows-A/Operational&\"<x>", L"O'Brien <&>")}));
}

TEST(EventQuery, NonAsciiTextPassesThrough)
{
  EXPECT_EQ(List(Query(0, L"Journal \u00e9v\u00e9nements", L"[System[(Provider[@Name='\u4e2d\u6587'])]]")),
            Build({Filter(L"Journal \u00e9v\u00e9nements", L"\u4e2d\u6587")}));
}

TEST(EventQuery, NoFiltersBuildNoQuery)
{
  EXPECT_TRUE(Build({}).empty());
  EXPECT_TRUE(Build({}, {{L"System", 1}}).empty());
}

// Validation.

void ExpectInvalidArgument(const std::vector<SFilter>& filters)
{
  EXPECT_FALSE(AreEventFiltersValid(filters));
}

TEST(EventFilterValidation, EmptyListIsInvalidArgument)
{
  ExpectInvalidArgument({});
}

TEST(EventFilterValidation, EmptyPathIsInvalidArgument)
{
  ExpectInvalidArgument({Filter(L"")});
  ExpectInvalidArgument({Filter(L"", L"Provider", 10, {1})});
  ExpectInvalidArgument({Filter(L"System"), Filter(L""), Filter(L"Application")});
  ExpectInvalidArgument({Filter(L"System"), Filter(L"")});
}

TEST(EventFilterValidation, NonEmptyPathsAreValid)
{
  EXPECT_TRUE(AreEventFiltersValid({Filter(L"System")}));
  EXPECT_TRUE(AreEventFiltersValid({Filter(L"System"), Filter(L"System"), Filter(L" ")}));
  EXPECT_TRUE(AreEventFiltersValid({Filter(L"System", L"", -1)}));
}

} // namespace

namespace
{
using collector::ni::impl::BuildPositionQuery;
using collector::ni::impl::EventChannelSet;
using collector::ni::impl::HoldsForwardedEvents;

TEST(EventQueryByPosition, ChannelsReadByPositionAreLeftOutOfTheList)
{
  const EventBookmarks bookmarks{{L"System", 7}, {L"ForwardedEvents", 9}};
  EXPECT_EQ(List(Query(0, L"System", L"[System[(EventRecordID&gt;7)]]")),
            BuildEventQuery({Filter(L"forwardedEvents"), Filter(L"System")}, bookmarks, EventChannelSet{L"ForwardedEvents"}));
  EXPECT_EQ(L"", BuildEventQuery({Filter(L"ForwardedEvents")}, bookmarks, EventChannelSet{L"ForwardedEvents"}));
}

TEST(EventQueryByPosition, APositionQueryHasNeitherRecordNumberNorWindow)
{
  const std::vector<SFilter> filters{Filter(L"ForwardedEvents", L"P", 3600000, {4624}), Filter(L"System"),
                                     Filter(L"forwardedevents", L"", 1000)};
  EXPECT_EQ(List(Query(0, L"ForwardedEvents", L"[System[(Provider[@Name='P']) and (EventID=4624)]]") +
                 Query(1, L"forwardedevents", L"")),
            BuildPositionQuery(filters, L"ForwardedEvents"));
}

TEST(EventQueryByPosition, ForwardedEventsAreKnownByTheirLogOrTheirChannel)
{
  EXPECT_TRUE(HoldsForwardedEvents(L"ForwardedEvents", L"ForwardedEvents"));
  EXPECT_TRUE(HoldsForwardedEvents(L"forwardedevents", L"Security"));
  EXPECT_TRUE(HoldsForwardedEvents(L"WEC-Authentication", L"Security"));
  EXPECT_FALSE(HoldsForwardedEvents(L"system", L"System"));
  EXPECT_FALSE(HoldsForwardedEvents(L"Microsoft-Windows-Sysmon/Operational", L"Microsoft-Windows-Sysmon/Operational"));
  EXPECT_FALSE(HoldsForwardedEvents(L"file:///logs/ForwardedEvents.evtx", L"Security"));
}
} // namespace
