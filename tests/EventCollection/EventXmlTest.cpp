// Reading the rendered XML of an event into the texts and values of its record.
#include "EventXml.h"

#include "KeldaKernel/Exceptions.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <string>

namespace
{
using namespace collector::ni::impl;

// A System event as Windows renders it (7036, Service Control Manager).
const wchar_t* const serviceEvent =
  L"<Event xmlns='http://schemas.microsoft.com/win/2004/08/events/event'><System>"
  L"<Provider Name='Service Control Manager' Guid='{555908d1-a6d7-4695-8e1e-26931d2012f4}' "
  L"EventSourceName='Service Control Manager'/><EventID Qualifiers='16384'>7036</EventID><Version>0</Version>"
  L"<Level>4</Level><Task>0</Task><Opcode>0</Opcode><Keywords>0x8080000000000000</Keywords>"
  L"<TimeCreated SystemTime='2016-07-08T18:12:51.681640000Z'/><EventRecordID>2</EventRecordID><Correlation/>"
  L"<Execution ProcessID='476' ThreadID='2788'/><Channel>System</Channel><Computer>WIN-TEST</Computer>"
  L"<Security UserID='S-1-5-18'/></System><EventData><Data Name='param1'>Windows Update</Data>"
  L"<Data Name='param2'>running</Data><Binary>770075006100750073006500720076002F0034000000</Binary></EventData>"
  L"</Event>";

SEventXmlText Read(std::wstring_view xml)
{
  CEventXmlReader reader;
  SEventXmlText text;
  reader.Read(xml, text);
  return text;
}

TEST(EventXml, ReadsTheNodesOfAServiceEvent)
{
  const SEventXmlText text = Read(serviceEvent);
  EXPECT_EQ(text.Provider, L"Service Control Manager");
  EXPECT_EQ(text.SystemTime, L"2016-07-08T18:12:51.681640000Z");
  EXPECT_EQ(text.EventRecordId, L"2");
  EXPECT_EQ(text.Channel, L"System");
  EXPECT_EQ(text.Level, L"4");
  EXPECT_EQ(text.EventId, L"7036");
  EXPECT_EQ(text.Qualifiers, L"16384");
  EXPECT_EQ(text.UserId, L"S-1-5-18");
  EXPECT_EQ(text.Data, (std::vector<std::wstring>{L"Windows Update", L"running",
                                                  L"770075006100750073006500720076002F0034000000"}));
}

TEST(EventXml, MakesTheRecordValues)
{
  SEventXmlText text = Read(serviceEvent);
  const SEventValues values = MakeEventValues(text);
  EXPECT_EQ(values.SourceName, L"Service Control Manager");
  EXPECT_EQ(values.EventType, 3);
  EXPECT_EQ(values.EventCode, 7036);
  EXPECT_EQ(values.InternalId, 1073748860);
  EXPECT_EQ(values.RecordId, 2);
  EXPECT_EQ(values.Data.size(), 3u);
  SYSTEMTIME st{};
  ASSERT_TRUE(values.CreatedTime.GetAsSystemTime(st));
  EXPECT_EQ(st.wYear, 2016);
  EXPECT_EQ(st.wSecond, 51);
  EXPECT_EQ(st.wMilliseconds, 682);
}

TEST(EventXml, TheEventCodeIsTheIdentifierHeldToAnInt)
{
  const auto values = [](const wchar_t* eventId) {
    SEventXmlText text = Read(std::wstring(L"<Event><System><EventID Qualifiers='1'>") + eventId +
                              L"</EventID></System></Event>");
    return MakeEventValues(text);
  };
  EXPECT_EQ(values(L"4624").EventCode, 4624);
  EXPECT_EQ(values(L"4624").InternalId, 0x10000 | 4624);
  EXPECT_EQ(values(L"4294967296").EventCode, INT_MAX);
  EXPECT_EQ(values(L"4294967296").InternalId, 4294967296LL | 0x10000);
  EXPECT_EQ(values(L"-5").EventCode, -5);
  EXPECT_EQ(values(L"-5").InternalId, -5);
  EXPECT_EQ(values(L"-3000000000").EventCode, INT_MIN);
  EXPECT_EQ(values(L"-3000000000").InternalId, -3000000000LL);
}

TEST(EventXml, MissingNodesGiveEmptyTexts)
{
  SEventXmlText text = Read(L"<Event><System><EventID>4624</EventID></System></Event>");
  EXPECT_EQ(text.Provider, L"");
  EXPECT_EQ(text.SystemTime, L"");
  EXPECT_EQ(text.Channel, L"");
  EXPECT_EQ(text.Qualifiers, L"");
  EXPECT_EQ(text.UserId, L"");
  EXPECT_TRUE(text.Data.empty());
  const SEventValues values = MakeEventValues(text);
  EXPECT_EQ(values.InternalId, 4624);
  EXPECT_EQ(values.RecordId, 0);
  EXPECT_EQ(values.EventType, 3);
  EXPECT_EQ(values.CreatedTime.GetStatus(), COleDateTimeEx::invalid);
}

TEST(EventXml, SystemValuesAndDataAreReadWhereAnEventHasThem)
{
  // Elements of the same names inside UserData are not the event's.
  const SEventXmlText text =
    Read(L"<Event><System><Channel>Security</Channel><Channel>Second</Channel></System>"
         L"<UserData><Log><Channel>Other</Channel><EventData><Data>inner</Data></EventData></Log></UserData>"
         L"<EventData><Data>outer</Data></EventData></Event>");
  EXPECT_EQ(text.Channel, L"Security");
  EXPECT_EQ(text.Data, std::vector<std::wstring>{L"outer"});
}

TEST(EventXml, OnlyElementsOfTheWholeNameAreRead)
{
  // Names that begin or end like the wanted ones, ahead of them, are other elements.
  const SEventXmlText text =
    Read(L"<Event><Sys/><SystemX><Channel>no</Channel></SystemX><System>"
         L"<Provide Name='no'/><ProviderX Name='no'/><Provider Name='P'/><EventI>9</EventI><EventIDX>9</EventIDX>"
         L"<EventRecordI>9</EventRecordI><EventRecordIDs>9</EventRecordIDs><EventRecordID>5</EventRecordID>"
         L"<EventID>7</EventID><Leve>9</Leve><Level2>9</Level2><Level>2</Level><Channels>no</Channels>"
         L"<Chan>no</Chan><Channel>C</Channel><TimeCreate SystemTime='no'/><TimeCreated SystemTime='T'/>"
         L"<SecurityX UserID='no'/><Securit UserID='no'/><Security UserID='U'/></System>"
         L"<EventDat><Data>no</Data></EventDat><EventDataX><Data>no</Data></EventDataX>"
         L"<EventData><Data>yes</Data></EventData></Event>");
  EXPECT_EQ(text.Provider, L"P");
  EXPECT_EQ(text.EventRecordId, L"5");
  EXPECT_EQ(text.EventId, L"7");
  EXPECT_EQ(text.Level, L"2");
  EXPECT_EQ(text.Channel, L"C");
  EXPECT_EQ(text.SystemTime, L"T");
  EXPECT_EQ(text.UserId, L"U");
  EXPECT_EQ(text.Data, std::vector<std::wstring>{L"yes"});
}

TEST(EventXml, UserDataEventsHaveNoData)
{
  const SEventXmlText text =
    Read(L"<Event><System><Channel>Security</Channel></System><UserData><LogFileCleared>"
         L"<SubjectUserName>bob</SubjectUserName></LogFileCleared></UserData></Event>");
  EXPECT_TRUE(text.Data.empty());
}

TEST(EventXml, TextsAreDecodedAndConcatenated)
{
  const SEventXmlText text =
    Read(L"<Event><EventData><Data>a &amp; b &lt;c&gt; &#x41;&#66;</Data><Data><![CDATA[<raw>]]></Data>"
         L"<Data>x<b>y</b>z</Data><Data/><Data> </Data><Data>\x00E9\x4E2D\U0001F600</Data></EventData></Event>");
  EXPECT_EQ(text.Data, (std::vector<std::wstring>{L"a & b <c> AB", L"<raw>", L"xyz", L"", L" ",
                                                  L"\x00E9\x4E2D\U0001F600"}));
}

TEST(EventXml, TextBetweenDataElementsIsAnItemInItsPlace)
{
  // The leading text, before the first child, is stored on the element itself by the parse.
  EXPECT_EQ(Read(L"<Event><EventData>lead<Data>a</Data>mid<Data>b<x/>c</Data></EventData></Event>").Data,
            (std::vector<std::wstring>{L"lead", L"a", L"mid", L"bc"}));
  EXPECT_EQ(Read(L"<Event><EventData> </EventData></Event>").Data, std::vector<std::wstring>{L" "});
}

TEST(EventXml, LineEndsAreNormalisedOnlyWhereTheTextHasThem)
{
  EXPECT_EQ(Read(L"<Event><EventData><Data>a\r\nb\rc</Data><Data>d\ne</Data></EventData></Event>").Data,
            (std::vector<std::wstring>{L"a\nb\nc", L"d\ne"}));
  EXPECT_EQ(Read(L"<Event><System><Provider Name='p\r\nq'/></System></Event>").Provider, L"p\nq");
  EXPECT_EQ(Read(L"<Event><EventData><Data>no reference here</Data></EventData></Event>").Data,
            (std::vector<std::wstring>{L"no reference here"}));
}

// An ASCII document without references or carriage returns gives its values from the rendered
// text; any other is converted back from UTF-8. Both give the same texts.
TEST(EventXml, AsciiAndOtherDocumentsGiveTheSameTexts)
{
  const std::wstring body =
    L"<System><Provider Name='Prov' Guid='{1}'/><EventID Qualifiers='16384'>4624</EventID><Level>0</Level>"
    L"<TimeCreated SystemTime='2024-05-01T10:20:30.1234567Z'/><EventRecordID>81</EventRecordID>"
    L"<Channel>Security</Channel><Security UserID='S-1-5-18'/></System><EventData>lead"
    L"<Data Name='a'>one</Data><Data><![CDATA[<raw> & ]]></Data><Data>x<b>y</b>z</Data><Data/><Data> </Data>"
    L"between<Data Name='last'>the end</Data></EventData>";
  const std::vector<std::wstring> data{L"lead", L"one", L"<raw> & ", L"xyz", L"", L" ", L"between", L"the end"};
  // ASCII; then one other character; then a reference; then a line end (each outside the values).
  for (const std::wstring& extra : {std::wstring(), std::wstring(L"<Computer>\x00E9</Computer>"),
                                    std::wstring(L"<Computer>&amp;</Computer>"), std::wstring(L"<Computer>\r\n</Computer>")})
  {
    std::wstring xml = L"<Event>";
    xml += body;
    xml += extra;
    xml += L"</Event>";
    xml.push_back(L'\0');
    const SEventXmlText text = Read(xml);
    EXPECT_EQ(text.Provider, L"Prov");
    EXPECT_EQ(text.SystemTime, L"2024-05-01T10:20:30.1234567Z");
    EXPECT_EQ(text.EventRecordId, L"81");
    EXPECT_EQ(text.Channel, L"Security");
    EXPECT_EQ(text.Level, L"0");
    EXPECT_EQ(text.EventId, L"4624");
    EXPECT_EQ(text.Qualifiers, L"16384");
    EXPECT_EQ(text.UserId, L"S-1-5-18");
    EXPECT_EQ(text.Data, data);
  }
}

// Values of an ASCII document read from the rendered text are appended where the text stands,
// whatever precedes them, and end where the value ends.
TEST(EventXml, AsciiValuesAreTheRenderedCharacters)
{
  std::wstring xml = L"<Event><EventData>";
  std::vector<std::wstring> expected;
  for (int i = 0; i < 40; ++i)
  {
    std::wstring value(static_cast<std::size_t>(i * 3), static_cast<wchar_t>(L'a' + i % 26));
    value += std::to_wstring(i);
    xml += L"<Data Name='n" + std::to_wstring(i) + L"'>" + value + L"</Data>";
    expected.push_back(value);
  }
  xml += L"</EventData></Event>";
  EXPECT_EQ(Read(xml).Data, expected);
}

TEST(EventXml, StopsAtTheTerminatingZero)
{
  std::wstring xml = L"<Event><System><Level>2</Level></System></Event>";
  xml.push_back(L'\0');
  xml += L"garbage";
  EXPECT_EQ(Read(xml).Level, L"2");
}

TEST(EventXml, MalformedXmlThrows)
{
  CEventXmlReader reader;
  SEventXmlText text;
  EXPECT_THROW(reader.Read(L"<Event><System></Event>", text), CHResultException);
  EXPECT_THROW(reader.Read(L"", text), CHResultException);
}

TEST(EventXml, AReusedReaderForgetsThePreviousEvent)
{
  CEventXmlReader reader;
  SEventXmlText text;
  reader.Read(serviceEvent, text);
  reader.Read(L"<Event><System><Level>1</Level></System><EventData><Data>only</Data></EventData></Event>", text);
  EXPECT_EQ(text.Provider, L"");
  EXPECT_EQ(text.Level, L"1");
  EXPECT_EQ(text.Data, std::vector<std::wstring>{L"only"});
}

TEST(Utf8, RoundTripsEveryPlane)
{
  const std::wstring wide = L"A\x00E9\x4E2D\U0001F600\U0010FFFF";
  std::string utf8;
  WideToUtf8(wide, utf8);
  EXPECT_EQ(utf8, "A\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
  std::wstring back;
  AppendUtf8(back, utf8);
  EXPECT_EQ(back, wide);
}

TEST(Utf8, InvalidSequencesBecomeReplacementCharacters)
{
  std::wstring out;
  AppendUtf8(out, "a\xFF" "b\xC3");
  EXPECT_EQ(out, L"a\xFFFD" L"b\xFFFD");
  out.clear();
  // An over-long form of '/' is not accepted.
  AppendUtf8(out, "\xC0\xAF");
  EXPECT_EQ(out, L"\xFFFD\xFFFD");
}
// The ASCII fast paths take blocks of eight and sixteen: every position of a non-ASCII character
// against those blocks, and text that appends to what is already there.
TEST(Utf8, RoundTripsAroundTheAsciiBlocks)
{
  for (std::size_t before = 0; before < 80; ++before)
  {
    const std::wstring wide = std::wstring(before, L'x') + L"\x00E9" + std::wstring(33, L'y') + L"\U0001F600z";
    std::string utf8;
    WideToUtf8(wide, utf8);
    ASSERT_EQ(utf8, std::string(before, 'x') + "\xC3\xA9" + std::string(33, 'y') + "\xF0\x9F\x98\x80z") << before;
    std::wstring back = L"kept";
    AppendUtf8(back, utf8);
    ASSERT_EQ(back, L"kept" + wide) << before;
  }
}
// Characters that are no Unicode scalar value become U+FFFD wherever they stand in long ASCII
// runs (the blocks of sixteen and thirty-two characters).
TEST(Utf8, ValuesBeyondUnicodeInAsciiRunsAreReplaced)
{
  if constexpr (sizeof(wchar_t) == 4)
  {
    for (const auto bad : {static_cast<std::uint32_t>(0x110000), static_cast<std::uint32_t>(0xFFFFFFFF),
                           static_cast<std::uint32_t>(0x80000000), static_cast<std::uint32_t>(0xD800)})
    {
      for (std::size_t before = 0; before < 70; before += 3)
      {
        std::wstring wide(before, L'a');
        wide.push_back(static_cast<wchar_t>(bad));
        wide += std::wstring(40, L'b');
        std::string utf8;
        WideToUtf8(wide, utf8);
        ASSERT_EQ(utf8, std::string(before, 'a') + "\xEF\xBF\xBD" + std::string(40, 'b')) << before << " " << bad;
      }
    }
  }
}
} // namespace
