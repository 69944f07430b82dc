#include "output/JsonLines.h"
#include "output/JsonString.h"

#include "Collector.Interfaces.Impl.h"

#include <gtest/gtest.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

namespace
{
using collector::ni::FieldValue;
using collector::ni::ICollectionTypes;
using collector::ni::impl::CField;
using collector::ni::impl::CKey;
using collector::ni::impl::CRecordOnVector;
using collector::ni::impl::CRecordOnVectorNoKey;

const GUID kCollection{0x01234567, 0x89AB, 0xCDEF, {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef}};

std::shared_ptr<tstring> Name(const wchar_t* text) { return std::make_shared<tstring>(text); }

class FixedState : public ICollectionTypes::IState
{
public:
  FixedState(ICollectionTypes::States state, tstring description) : m_state(state), m_description(std::move(description)) {}
  ICollectionTypes::States GetState() const override { return m_state; }
  tstring GetDescription() const override { return m_description; }

private:
  ICollectionTypes::States m_state;
  tstring m_description;
};
} // namespace

TEST(JsonLines, EventRecordPrintsKeyAndFieldsInRecordOrder)
{
  auto internalId = std::make_shared<CField>(Name(L"InternalId"), FieldValue(static_cast<__int64>(1073748860)));
  CKey key(nullptr, {internalId});
  CRecordOnVector record(std::move(key), 1, 8);
  record.AddField(Name(L"SourceName"), FieldValue(tstring(L"Service Control Manager")));
  SYSTEMTIME time{2016, 7, 5, 8, 18, 12, 51, 682};
  record.AddField(Name(L"CreatedTime"), FieldValue(COleDateTimeEx(time)));
  record.AddField(Name(L"InitiatedBy"), FieldValue(tstring(L"NT AUTHORITY\\SYSTEM")));
  record.AddField(Name(L"Data"), FieldValue(std::vector<tstring>{L"a", L"b"}));
  record.AddField(Name(L"EventCode"), FieldValue(static_cast<__int64>(7036)));

  EXPECT_EQ(natc::FormatRecordLine(kCollection, L"WindowsEvents", record),
            R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"WindowsEvents","type":1,)"
            R"("key":{"InternalId":1073748860},"fields":{"SourceName":"Service Control Manager",)"
            R"("CreatedTime":"2016-07-08T18:12:51.682Z","InitiatedBy":"NT AUTHORITY\\SYSTEM","Data":["a","b"],)"
            R"("EventCode":7036}})");
}

TEST(JsonLines, KeylessRecordHasNoKeyAndInvalidDateIsNull)
{
  CRecordOnVectorNoKey record(0, 3);
  COleDateTimeEx invalid;
  invalid.SetStatus(COleDateTimeEx::invalid);
  record.AddField(Name(L"t"), FieldValue(invalid));
  record.AddField(Name(L"v"), FieldValue(0.5));
  record.AddField(Name(L"g"), FieldValue(kCollection));
  EXPECT_EQ(natc::FormatRecordLine(kCollection, L"MiProp", record),
            R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"MiProp","type":0,)"
            R"("fields":{"t":null,"v":0.5,"g":"{01234567-89AB-CDEF-0123-456789ABCDEF}"}})");
}

TEST(JsonLines, NestedRecordPrintsAsObjectAndOtherObjectsAsNull)
{
  auto inner = std::make_shared<CRecordOnVectorNoKey>(0, 1);
  inner->AddField(Name(L"x"), FieldValue(static_cast<__int64>(-3)));
  CRecordOnVectorNoKey record(0, 2);
  record.AddField(Name(L"inner"), FieldValue(std::shared_ptr<collector::ni::IObject>(inner)));
  record.AddField(Name(L"none"), FieldValue(std::shared_ptr<collector::ni::IObject>()));
  EXPECT_EQ(natc::FormatRecordLine(kCollection, L"C", record),
            R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"C","type":0,)"
            R"("fields":{"inner":{"x":-3},"none":null}})");
}

TEST(JsonLines, StateLineNamesTheState)
{
  FixedState state(ICollectionTypes::Error, L"The parameter is incorrect.");
  EXPECT_EQ(natc::FormatStateLine(kCollection, L"WindowsEvents", state),
            R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"WindowsEvents",)"
            R"("state":"Error","description":"The parameter is incorrect."})");
  EXPECT_EQ(natc::StateName(static_cast<ICollectionTypes::States>(9)), L"Unknown");
}

TEST(JsonLines, TextsAreEscapedAndKeptAsUtf8)
{
  CRecordOnVectorNoKey record(0, 2);
  record.AddField(Name(L"s"), FieldValue(tstring(L"q\"b\\n\nt\t\x01 \u00E9\U0001F600")));
  record.AddField(Name(L"nan"), FieldValue(std::numeric_limits<double>::quiet_NaN()));
  EXPECT_EQ(natc::FormatRecordLine(kCollection, L"C", record),
            R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"C","type":0,)"
            R"("fields":{"s":"q\"b\\n\nt\t\u0001 )" "\xC3\xA9\xF0\x9F\x98\x80" R"(","nan":null}})");
}

TEST(JsonLines, PrinterWritesItsLinesInOrderByTheStateLine)
{
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  {
    auto printer = std::make_shared<natc::JsonLinePrinter>(L"C", file);
    for (int i = 0; i < 3; ++i)
    {
      auto record = std::make_shared<CRecordOnVectorNoKey>(0, 1);
      record->AddField(Name(L"i"), FieldValue(static_cast<__int64>(i)));
      const std::shared_ptr<collector::ni::IRecord> records[] = {record};
      printer->OnRecords(kCollection, records);
    }
    // A state line goes out at once, with every line before it.
    printer->OnStateChanged(kCollection, FixedState(ICollectionTypes::Running, L""));
    std::rewind(file);
    std::string text(4096, '\0');
    text.resize(std::fread(text.data(), 1, text.size(), file));
    const std::string head = R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"C",)";
    EXPECT_EQ(text, head + R"("type":0,"fields":{"i":0}})" "\n" + head + R"("type":0,"fields":{"i":1}})" "\n" +
                      head + R"("type":0,"fields":{"i":2}})" "\n" + head + R"("state":"Running","description":""})" "\n");
    EXPECT_EQ(printer->RecordCount(), 3u);
  }
  std::fclose(file);
}

TEST(JsonLines, BrokenWideCharactersBecomeReplacementCharacters)
{
  std::vector<char> buffer;
  std::wstring text = L"a";
  text += static_cast<wchar_t>(0xD800);
  text += L"\x1F";
  const std::string quoted(buffer.data(), natc::QuoteJsonString(text, buffer));
  EXPECT_EQ(quoted, "\"a\xEF\xBF\xBD\\u001F\"");
  EXPECT_EQ(std::string(buffer.data(), natc::QuoteJsonString(L"", buffer)), "\"\"");
}

TEST(JsonLines, QuotingMatchesInShortTexts)
{
  // Texts shorter than a block and the short rests of longer ones, with a character that needs
  // work at every position; each quoted into a buffer of exactly the announced size.
  const std::wstring specials[] = {L"\"",         L"\n", L"\u00E9", L"\x7F", L"\u0100", L"\u4E2D", L"\U0001F600",
                                   std::wstring(1, static_cast<wchar_t>(0xD800))};
  const std::string quoted[] = {"\\\"",       "\\n", "\xC3\xA9", "\x7F", "\xC4\x80", "\xE4\xB8\xAD", "\xF0\x9F\x98\x80",
                                "\xEF\xBF\xBD"};
  for (std::size_t kind = 0; kind < std::size(specials); ++kind)
  {
    for (std::size_t length = 1; length < 40; ++length)
    {
      for (std::size_t at = 0; at < length; ++at)
      {
        const std::wstring text = std::wstring(at, L'a') + specials[kind] + std::wstring(length - at - 1, L'b');
        const std::string expected =
          "\"" + std::string(at, 'a') + quoted[kind] + std::string(length - at - 1, 'b') + "\"";
        std::vector<char> buffer(natc::QuotedJsonSize(text.size()));
        ASSERT_EQ(std::string(buffer.data(), natc::QuoteJsonString(text, buffer.data())), expected)
          << kind << " " << length << " " << at;
      }
    }
  }
  std::vector<char> buffer(natc::QuotedJsonSize(1));
  EXPECT_EQ(std::string(buffer.data(), natc::QuoteJsonString(L"x", buffer.data())), "\"x\"");
}

TEST(JsonLines, QuotingMatchesAtEveryBlockPosition)
{
  // Texts longer than a block, with a character that needs work at every position.
  const std::wstring specials[] = {L"\"", L"\\", L"\n", L"\x01", L"\u00E9", L"\x7F"};
  const std::string quoted[] = {"\\\"", "\\\\", "\\n", "\\u0001", "\xC3\xA9", "\x7F"};
  std::vector<char> buffer;
  for (std::size_t kind = 0; kind < std::size(specials); ++kind)
  {
    for (std::size_t at = 0; at < 40; ++at)
    {
      const std::wstring text = std::wstring(at, L'a') + specials[kind] + std::wstring(40 - at, L'b');
      const std::string expected = "\"" + std::string(at, 'a') + quoted[kind] + std::string(40 - at, 'b') + "\"";
      ASSERT_EQ(std::string(buffer.data(), natc::QuoteJsonString(text, buffer)), expected) << kind << " " << at;
    }
  }
}

namespace
{
// The contract of QuoteJsonString, spelled out slowly: each character as UTF-8 (a broken one as
// U+FFFD), then quoted by RapidJSON's Writer.
std::string ReferenceQuote(const std::wstring& text)
{
  std::string utf8;
  for (std::size_t i = 0; i < text.size(); ++i)
  {
    auto c = static_cast<char32_t>(static_cast<std::make_unsigned_t<wchar_t>>(text[i]));
    if (sizeof(wchar_t) == 2 && c >= 0xD800 && c <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF)
    {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<char32_t>(text[i + 1]) - 0xDC00);
      ++i;
    }
    if ((c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF)
      c = 0xFFFD;
    if (c < 0x80)
      utf8 += static_cast<char>(c);
    else if (c < 0x800)
      utf8 += {static_cast<char>(0xC0 | (c >> 6)), static_cast<char>(0x80 | (c & 0x3F))};
    else if (c < 0x10000)
      utf8 += {static_cast<char>(0xE0 | (c >> 12)), static_cast<char>(0x80 | ((c >> 6) & 0x3F)),
               static_cast<char>(0x80 | (c & 0x3F))};
    else
      utf8 += {static_cast<char>(0xF0 | (c >> 18)), static_cast<char>(0x80 | ((c >> 12) & 0x3F)),
               static_cast<char>(0x80 | ((c >> 6) & 0x3F)), static_cast<char>(0x80 | (c & 0x3F))};
  }
  rapidjson::StringBuffer quoted;
  rapidjson::Writer<rapidjson::StringBuffer> writer(quoted);
  writer.String(utf8.data(), static_cast<rapidjson::SizeType>(utf8.size()));
  return std::string(quoted.GetString(), quoted.GetSize());
}

std::string QuoteExactly(const std::wstring& text)
{
  // A buffer of exactly the announced size: a store past it is caught by the sanitizer build.
  std::vector<char> buffer(natc::QuotedJsonSize(text.size()));
  return std::string(buffer.data(), natc::QuoteJsonString(text, buffer.data()));
}

// A record with no list of fields and no type, to print between records built on a vector.
class CBareRecord : public collector::ni::IRecord
{
public:
  collector::ni::IKey* GetKey() override { return nullptr; }
  collector::ni::IField* FindField(std::wstring_view) override { return nullptr; }
  collector::ni::IField* FindField(const tstring&) override { return nullptr; }
  collector::ni::IField* GetField(std::wstring_view) override { return nullptr; }
};

const std::string kHead = R"({"collection":"{01234567-89AB-CDEF-0123-456789ABCDEF}","class":"C",)";

std::string Lines(natc::CJsonLineWriter& writer, const std::vector<collector::ni::IRecord*>& records)
{
  rapidjson::StringBuffer out;
  for (auto* record : records)
    writer.AppendRecordLine(out, "{01234567-89AB-CDEF-0123-456789ABCDEF}", "C", *record);
  return std::string(out.GetString(), out.GetSize());
}
} // namespace

TEST(JsonLines, EveryEscapeClassIsQuotedAsTheWriterDoes)
{
  // Golden texts: the two-character escapes, every other control character, DEL and the
  // encodings of two, three and four bytes.
  EXPECT_EQ(QuoteExactly(L"\"\\/\b\f\n\r\t"), R"("\"\\/\b\f\n\r\t")");
  std::wstring controls;
  std::string escaped = "\"";
  for (wchar_t c = 0; c < 0x20; ++c)
  {
    controls += c;
    static const char* const named[] = {"\\b", "\\t", "\\n", nullptr, "\\f", "\\r"};
    if (c >= 8 && c <= 13 && named[c - 8] != nullptr)
      escaped += named[c - 8];
    else
    {
      char text[8];
      std::snprintf(text, sizeof text, "\\u%04X", static_cast<unsigned>(c));
      escaped += text;
    }
  }
  escaped += '"';
  EXPECT_EQ(QuoteExactly(controls), escaped);
  EXPECT_EQ(QuoteExactly(L"\x7F\u00E9\u4E2D\U0001F600"), "\"\x7F\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80\"");
  EXPECT_EQ(QuoteExactly(std::wstring(1, static_cast<wchar_t>(0xDFFF))), "\"\xEF\xBF\xBD\"");
  EXPECT_EQ(QuoteExactly(L""), "\"\"");
}

TEST(JsonLines, QuotingMatchesTheReferenceOnMixedTexts)
{
  // Every length up to five blocks, with specials of every class at random places and in runs,
  // so that whole blocks, the block that ends a text and the characters between meet them all.
  std::vector<wchar_t> specials = {L'"', L'\\', L'\n', L'\x01', L'\x1F', L'\x7F', 0xE9, 0x100, 0x4E2D, 0xFFFF,
                                   static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0xDC00)};
  if constexpr (sizeof(wchar_t) == 4)
  {
    specials.push_back(static_cast<wchar_t>(0x1F600));
    specials.push_back(static_cast<wchar_t>(0x110000));
    specials.push_back(static_cast<wchar_t>(-1));
  }
  std::uint32_t seed = 12345;
  const auto next = [&seed](std::uint32_t bound) {
    seed = seed * 1664525u + 1013904223u;
    return (seed >> 8) % bound;
  };
  for (int round = 0; round < 20; ++round)
  {
    for (std::size_t length = 0; length <= 80; ++length)
    {
      std::wstring text;
      for (std::size_t k = 0; k < length; ++k)
      {
        // Mostly plain, as real texts are; sometimes several specials in a row.
        const std::uint32_t pick = next(100);
        text += pick < 80 ? static_cast<wchar_t>(L'a' + next(26))
                          : specials[next(static_cast<std::uint32_t>(specials.size()))];
      }
      ASSERT_EQ(QuoteExactly(text), ReferenceQuote(text)) << "round " << round << " length " << length;
    }
  }
}

TEST(JsonLines, NumbersPrintAsTheWriterPrintsThem)
{
  const double reals[] = {0.0, -0.0, 0.1, 1.5e-7, 1e21, -123456789012.25, 5e-324, 1.7976931348623157e308, 3.0};
  const __int64 integers[] = {0, -1, 7036, std::numeric_limits<__int64>::min(), std::numeric_limits<__int64>::max()};
  CRecordOnVectorNoKey record(0, std::size(reals) + std::size(integers));
  rapidjson::StringBuffer expected;
  rapidjson::Writer<rapidjson::StringBuffer> writer(expected);
  writer.StartObject();
  for (const double real : reals)
  {
    record.AddField(Name(L"r"), FieldValue(real));
    writer.Key("r");
    writer.Double(real);
  }
  for (const __int64 integer : integers)
  {
    record.AddField(Name(L"i"), FieldValue(integer));
    writer.Key("i");
    writer.Int64(integer);
  }
  writer.EndObject();
  EXPECT_EQ(natc::FormatRecordLine(kCollection, L"C", record),
            kHead + R"("type":0,"fields":)" + std::string(expected.GetString(), expected.GetSize()) + "}");
  EXPECT_NE(std::string(expected.GetString()).find(R"("r":0.0,"r":-0.0,)"), std::string::npos);
}

TEST(JsonLines, KeysFollowTheirNamesAcrossRecordsOfEveryKind)
{
  natc::CJsonLineWriter writer;
  const auto a = Name(L"a");
  const auto b = Name(L"b");
  auto id = std::make_shared<CField>(Name(L"id"), FieldValue(static_cast<__int64>(5)));
  CRecordOnVector keyed(CKey(nullptr, {id}), 2, 3);
  keyed.AddField(a, FieldValue(static_cast<__int64>(1)));
  keyed.AddField(b, FieldValue(tstring(L"x")));
  keyed.AddField(id->GetSharedName(), FieldValue(static_cast<__int64>(5)));
  // The same texts in other name objects and in the other order.
  CRecordOnVectorNoKey swapped(1, 2);
  swapped.AddField(Name(L"b"), FieldValue(static_cast<__int64>(2)));
  swapped.AddField(Name(L"a"), FieldValue(static_cast<__int64>(3)));
  CBareRecord bare;
  const std::string keyedLine = kHead + R"("type":2,"key":{"id":5},"fields":{"a":1,"b":"x","id":5}})" "\n";
  const std::string swappedLine = kHead + R"("type":1,"fields":{"b":2,"a":3}})" "\n";
  const std::string bareLine = kHead + R"("fields":{}})" "\n";
  EXPECT_EQ(Lines(writer, {&keyed, &bare, &swapped, &keyed, &keyed, &swapped, &bare, &bare, &keyed}),
            keyedLine + bareLine + swappedLine + keyedLine + keyedLine + swappedLine + bareLine + bareLine + keyedLine);

  // More names than the writer keeps (the later ones are encoded for each use), short and long.
  CRecordOnVectorNoKey wide(0, 100);
  std::string fields;
  for (int k = 0; k < 100; ++k)
  {
    const std::wstring name = (k % 2 == 0 ? L"f\"" : L"a longer field name \u00E9 \"") + std::to_wstring(k);
    wide.AddField(Name(name.c_str()), FieldValue(static_cast<__int64>(k)));
    fields += (k == 0 ? "" : ",") + std::string(k % 2 == 0 ? R"("f\")" : "\"a longer field name \xC3\xA9 \\\"") +
              std::to_string(k) + "\":" + std::to_string(k);
  }
  const std::string wideLine = kHead + R"("type":0,"fields":{)" + fields + "}}\n";
  EXPECT_EQ(Lines(writer, {&wide, &keyed, &wide}), wideLine + keyedLine + wideLine);
}

TEST(JsonLines, DateTimesRepeatedOrNotPrintTheirOwnText)
{
  const COleDateTimeEx first(SYSTEMTIME{2019, 3, 6, 9, 7, 23, 5, 468});
  const COleDateTimeEx second(SYSTEMTIME{2019, 3, 6, 9, 7, 23, 5, 469});
  COleDateTimeEx invalid = first;
  invalid.SetStatus(COleDateTimeEx::invalid);
  // Valid, but past the year 9999: no text.
  const COleDateTimeEx beyondYear9999(3000000.0);
  CRecordOnVectorNoKey record(0, 8);
  const COleDateTimeEx* const times[] = {&first, &first, &second, &invalid, &second, &beyondYear9999, &beyondYear9999, &first};
  for (const COleDateTimeEx* time : times)
    record.AddField(Name(L"t"), FieldValue(*time));
  const std::string a = R"("2019-03-09T07:23:05.468Z")";
  const std::string b = R"("2019-03-09T07:23:05.469Z")";
  EXPECT_EQ(natc::FormatRecordLine(kCollection, L"C", record),
            kHead + R"("type":0,"fields":{"t":)" + a + R"(,"t":)" + a + R"(,"t":)" + b + R"(,"t":null,"t":)" + b +
              R"(,"t":null,"t":null,"t":)" + a + "}}");
}
