#include "output/JsonLines.h"
#include "output/JsonString.h"

#include "Collector.Interfaces.Impl.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <memory>
#include <string>

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
