// Text forms of every value type, escaping, and value conversions (pure functions).
#include "Evtx/ValueText.h"
#include "Evtx/WidenAscii.h"
#include "Evtx/Writer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <string_view>

namespace
{
using evtx::ValueType;
using evtx::WriterValue;

std::string Text(const WriterValue& v, evtx::TextEscape escape = evtx::TextEscape::None)
{
  std::string out;
  evtx::AppendValueText(out, evtx::Value{v.type, v.bytes.data(), static_cast<std::uint32_t>(v.bytes.size())}, escape);
  return out;
}

// before + middle + after, built in one string.
std::string Joined(std::string_view before, std::string_view middle, std::string_view after)
{
  std::string out;
  out.reserve(before.size() + middle.size() + after.size());
  out.append(before).append(middle).append(after);
  return out;
}

evtx::Value View(const WriterValue& v)
{
  return evtx::Value{v.type, v.bytes.data(), static_cast<std::uint32_t>(v.bytes.size())};
}

TEST(ValueText, Integers)
{
  EXPECT_EQ(Text(WriterValue::Int(ValueType::Int8, -5)), "-5");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt8, 200)), "200");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt8, 0)), "0");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt8, 9)), "9");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt32, 10)), "10");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::Int16, -300)), "-300");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt16, 65535)), "65535");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::Int32, -1)), "-1");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt32, 4294967295)), "4294967295");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::Int64, INT64_MIN)), "-9223372036854775808");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt64, -1)), "18446744073709551615");
}

// Unsigned numbers are written two digits at a time: every count of digits, with the digits
// that end and start each pair.
TEST(ValueText, UnsignedNumbersOfEveryLength)
{
  std::uint64_t power = 1;
  for (int digits = 1; digits <= 19; ++digits, power *= 10)
  {
    for (const std::uint64_t n : {power, 2 * power - 1, 10 * power - 1, 7 * power + 3})
    {
      EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt64, static_cast<std::int64_t>(n))), std::to_string(n)) << n;
      if (n <= 0xffffffffu)
      {
        EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt32, static_cast<std::int64_t>(n))), std::to_string(n)) << n;
      }
      if (n <= 0xffffu)
      {
        EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt16, static_cast<std::int64_t>(n))), std::to_string(n)) << n;
      }
    }
  }
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt64, -1)), "18446744073709551615");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt32, 100)), "100");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::UInt32, 1000000007)), "1000000007");
}

// Pointer-sized values as Windows shows them: 4624's ProcessId is 0x44c in Microsoft's example.
TEST(ValueText, SizeTIsLowerCaseHex)
{
  EXPECT_EQ(Text(WriterValue::Int(ValueType::SizeT, 0x44c)), "0x44c");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::SizeT, 0)), "0x0");
  const WriterValue four{static_cast<std::uint8_t>(ValueType::SizeT), {0xef, 0xbe, 0xad, 0xde}};
  EXPECT_EQ(Text(four), "0xdeadbeef");
  const WriterValue array{static_cast<std::uint8_t>(static_cast<std::uint8_t>(ValueType::SizeT) | evtx::kArrayFlag),
                          {4, 0, 0, 0, 0, 0, 0, 0, 0x4c, 4, 0, 0, 0, 0, 0, 0}};
  EXPECT_EQ(Text(array), "0x4, 0x44c");
}

TEST(ValueText, HexIntegersAreLowerCaseWithoutPadding)
{
  EXPECT_EQ(Text(WriterValue::Int(ValueType::HexInt32, 0x3e7)), "0x3e7");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::HexInt32, 0)), "0x0");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::HexInt64, 0x123456789abcdef0)), "0x123456789abcdef0");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::HexInt64, 0xf)), "0xf");
  EXPECT_EQ(Text(WriterValue::Int(ValueType::HexInt64, static_cast<std::int64_t>(0x8020000000000000ull))),
            "0x8020000000000000");
}

TEST(ValueText, FloatsBooleansBinary)
{
  EXPECT_EQ(Text(WriterValue::Real32(1.5f)), "1.5");
  EXPECT_EQ(Text(WriterValue::Real64(0.1)), "0.1");
  EXPECT_EQ(Text(WriterValue::Real64(-2.0)), "-2");
  EXPECT_EQ(Text(WriterValue::Bool(true)), "true");
  EXPECT_EQ(Text(WriterValue::Bool(false)), "false");
  // Irregular booleans: any nonzero value is true.
  EXPECT_EQ(Text(WriterValue{static_cast<std::uint8_t>(ValueType::Bool), {2, 0, 0, 0}}), "true");
  EXPECT_EQ(Text(WriterValue::Binary({0x0a, 0x1b, 0xff})), "0A1BFF");
  // Eight bytes are converted at a time, the rest one by one: every digit in both parts.
  EXPECT_EQ(Text(WriterValue::Binary({0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef, 0xfe, 0xdc, 0x10})),
            "0123456789ABCDEFFEDC10");
}

TEST(ValueText, GuidSidTimes)
{
  const std::uint8_t g[16] = {0x25, 0x96, 0x84, 0x54, 0x78, 0x54, 0x94, 0x49,
                              0xa5, 0xba, 0x3e, 0x3b, 0x03, 0x28, 0xc3, 0x0d};
  EXPECT_EQ(Text(WriterValue::Guid(g)), "{54849625-5478-4994-A5BA-3E3B0328C30D}");
  EXPECT_EQ(Text(WriterValue::Sid("S-1-5-21-1223297778-3299746493-1462173606-500")),
            "S-1-5-21-1223297778-3299746493-1462173606-500");
  EXPECT_EQ(Text(WriterValue::Sid("S-1-5-18")), "S-1-5-18");
  EXPECT_EQ(Text(WriterValue::FileTime(131124751716816408ull)), "2016-07-08T18:12:51.6816408Z");
  EXPECT_EQ(Text(WriterValue::SystemTime(2024, 5, 1, 10, 20, 30, 123)), "2024-05-01T10:20:30.1230000Z");
}

// MS-DTYP 2.4.2.1: an identifier authority of 2^32 or more is "0x" and 12 hex digits.
TEST(ValueText, SidWithALargeAuthorityIsHex)
{
  const WriterValue large{static_cast<std::uint8_t>(ValueType::Sid),
                          {1, 2, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 21, 0, 0, 0, 0xe8, 3, 0, 0}};
  EXPECT_EQ(Text(large), "S-1-0x000100000000-21-1000");
  const WriterValue below{static_cast<std::uint8_t>(ValueType::Sid), {1, 1, 0, 0, 0xff, 0xff, 0xff, 0xff, 7, 0, 0, 0}};
  EXPECT_EQ(Text(below), "S-1-4294967295-7");
}

TEST(ValueText, StringsDropTrailingNuls)
{
  WriterValue v = WriterValue::Text("abc");
  v.bytes.push_back(0);
  v.bytes.push_back(0);
  EXPECT_EQ(Text(v), "abc");
  EXPECT_EQ(Text(WriterValue::Text("h\xc3\xa9 \xf0\x9f\x98\x80")), "h\xc3\xa9 \xf0\x9f\x98\x80");
  EXPECT_EQ(Text(WriterValue::Ansi(std::string("ab\0", 3))), "ab");
}

TEST(ValueText, Arrays)
{
  EXPECT_EQ(Text(WriterValue::TextArray({"a", "", "b c"})), "a, , b c");
  EXPECT_EQ(Text(WriterValue::IntArray(ValueType::UInt16, {1, 2, 3})), "1, 2, 3");
  EXPECT_EQ(Text(WriterValue::IntArray(ValueType::HexInt32, {10, 255})), "0xa, 0xff");
}

TEST(ValueText, UnknownTypeIsHex)
{
  EXPECT_EQ(Text(WriterValue{0x30, {0xde, 0xad}}), "DEAD");
  EXPECT_EQ(Text(WriterValue::Null()), "");
}

TEST(ValueText, XmlEscaping)
{
  const WriterValue v = WriterValue::Text("<a & 'b'>\"\r\n");
  EXPECT_EQ(Text(v, evtx::TextEscape::Xml), "&lt;a &amp; &apos;b&apos;&gt;&quot;\r\n");
  EXPECT_EQ(Text(v, evtx::TextEscape::XmlOneLine), "&lt;a &amp; &apos;b&apos;&gt;&quot;&#13;&#10;");
  EXPECT_EQ(Text(v), "<a & 'b'>\"\r\n");
}

// One-line XML writes the controls XML forbids as control pictures (U+2400 + code) in UTF-16
// and ANSI text alike; tab stays, and the other escapings keep the control as it is.
TEST(ValueText, OneLineWritesForbiddenControlsAsPictures)
{
  const std::string text = std::string("a\x01\tb\x1f") + '\0' + "c";
  const WriterValue wide = WriterValue::Text(text);
  const WriterValue ansi = WriterValue::Ansi(text);
  const std::string pictures = "a\xe2\x90\x81\tb\xe2\x90\x9f\xe2\x90\x80" "c";
  EXPECT_EQ(Text(wide, evtx::TextEscape::XmlOneLine), pictures);
  EXPECT_EQ(Text(ansi, evtx::TextEscape::XmlOneLine), pictures);
  EXPECT_EQ(Text(wide, evtx::TextEscape::Xml), text);
  EXPECT_EQ(Text(ansi, evtx::TextEscape::Xml), text);

  std::string rewritten = "\x02keep\x03" + std::string(20, 'x') + "\x04\t\n";
  evtx::ReplaceForbiddenControls(rewritten, 1);
  EXPECT_EQ(rewritten, "\x02keep\xe2\x90\x83" + std::string(20, 'x') + "\xe2\x90\x84\t\n");
}

// Each character that escaping rewrites, and a non-ASCII one, at every offset of the blocks
// that plain runs are scanned in (8 UTF-16 units, 16 ANSI bytes): the text around it stays.
TEST(ValueText, EscapesAtEveryOffsetOfAScanBlock)
{
  const std::pair<char, std::string> cases[] = {
    {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}, {'\'', "&apos;"},
    {'\n', "&#10;"}, {'\r', "&#13;"}, {'\x01', "\xe2\x90\x81"}, {'\t', "\t"}, {'\xe9', "\xc3\xa9"}};
  for (const auto& [c, escaped] : cases)
  {
    for (std::size_t at = 0; at < 34; ++at)
    {
      const std::string before(at, 'a'), after(40 - at, 'b');
      const std::string raw = Joined(before, std::string_view(&c, 1), after);
      const std::string expected = Joined(before, escaped, after);
      EXPECT_EQ(Text(WriterValue::Ansi(raw), evtx::TextEscape::XmlOneLine), expected) << at;
      if (static_cast<unsigned char>(c) < 0x80)
      {
        EXPECT_EQ(Text(WriterValue::Text(raw), evtx::TextEscape::XmlOneLine), expected) << at;
      }
      EXPECT_EQ(Text(WriterValue::Ansi(raw)), static_cast<unsigned char>(c) < 0x80 ? raw : expected) << at;
    }
  }
}

// UTF-16 text of every length up to five scan blocks, with a rewritten or non-ASCII character
// at every place: the last block of a text ends with the text and overlaps the one before it.
// U+0109 and U+0126 narrow to the bytes of tab and '&' when their high byte is dropped.
TEST(ValueText, Utf16EscapesAtEveryPlaceOfEveryLength)
{
  const std::pair<std::string, std::string> cases[] = {
    {"", ""}, {"&", "&amp;"}, {"'", "&apos;"}, {"<", "&lt;"}, {">", "&gt;"}, {"\"", "&quot;"},
    {"\x01", "\xe2\x90\x81"}, {"\xc3\xa9", "\xc3\xa9"}, {"\xe4\xb8\xad", "\xe4\xb8\xad"},
    {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"}, {"\xc4\x89", "\xc4\x89"}, {"\xc4\xa6", "\xc4\xa6"}, {"\t", "\t"}};
  for (const auto& [c, escaped] : cases)
  {
    for (std::size_t length = 1; length <= 40; ++length)
    {
      for (std::size_t at = 0; at < length; ++at)
      {
        const std::string before(at, 'a'), after(length - at - 1, 'b');
        const std::string raw = Joined(before, c, after);
        const WriterValue value = WriterValue::Text(raw);
        EXPECT_EQ(Text(value, evtx::TextEscape::XmlOneLine), Joined(before, escaped, after)) << length << " " << at;
        EXPECT_EQ(Text(value), raw) << length << " " << at;
      }
    }
  }
}

// ANSI text with markup in it (XML in a text field): several rewritten bytes in one scan block
// of 16, plain bytes between them spanning blocks, and every length of it.
TEST(ValueText, AnsiMarkupAtEveryLength)
{
  const std::string piece = "<a x=\"1\">\xe9t\xe9</a>plain text.&";
  const std::string escapedPiece = "&lt;a x=&quot;1&quot;&gt;\xc3\xa9t\xc3\xa9&lt;/a&gt;plain text.&amp;";
  const std::string raw = piece + piece + piece;
  for (std::size_t length = 0; length <= raw.size(); ++length)
  {
    // Each byte's own text form, one by one.
    std::string expected;
    for (const char c : raw.substr(0, length))
    {
      switch (c)
      {
      case '<': expected += "&lt;"; break;
      case '>': expected += "&gt;"; break;
      case '"': expected += "&quot;"; break;
      case '&': expected += "&amp;"; break;
      case '\xe9': expected += "\xc3\xa9"; break;
      default: expected += c;
      }
    }
    EXPECT_EQ(Text(WriterValue::Ansi(raw.substr(0, length)), evtx::TextEscape::Xml), expected) << length;
  }
  EXPECT_EQ(Text(WriterValue::Ansi(raw), evtx::TextEscape::Xml), escapedPiece + escapedPiece + escapedPiece);
}

// ANSI text where rewritten bytes follow one another (binary data in a text field), then plain
// text again: each is rewritten and the plain text after them is kept.
TEST(ValueText, AnsiRunsOfRewrittenBytes)
{
  const WriterValue ansi = WriterValue::Ansi("<<&\x80\xff\x01\x02>\n\tplain'\"");
  EXPECT_EQ(Text(ansi, evtx::TextEscape::XmlOneLine),
            "&lt;&lt;&amp;\xc2\x80\xc3\xbf\xe2\x90\x81\xe2\x90\x82&gt;&#10;\tplain&apos;&quot;");
  EXPECT_EQ(Text(ansi, evtx::TextEscape::Xml),
            "&lt;&lt;&amp;\xc2\x80\xc3\xbf\x01\x02&gt;\n\tplain&apos;&quot;");
  EXPECT_EQ(Text(ansi), "<<&\xc2\x80\xc3\xbf\x01\x02>\n\tplain'\"");
}

TEST(ValueText, Conversions)
{
  std::uint64_t n = 0;
  EXPECT_TRUE(evtx::ValueToUInt64(View(WriterValue::Text("0x10")), n));
  EXPECT_EQ(n, 16u);
  EXPECT_TRUE(evtx::ValueToUInt64(View(WriterValue::Text("4624")), n));
  EXPECT_EQ(n, 4624u);
  EXPECT_FALSE(evtx::ValueToUInt64(View(WriterValue::Text("12x")), n));
  EXPECT_TRUE(evtx::ValueToUInt64(View(WriterValue::Int(ValueType::UInt16, 7036)), n));
  EXPECT_EQ(n, 7036u);
  EXPECT_FALSE(evtx::ValueToUInt64(View(WriterValue::Guid({})), n));

  std::uint64_t ft = 0;
  EXPECT_TRUE(evtx::ValueToFileTime(View(WriterValue::Text("2016-07-08T18:12:51.6816408Z")), ft));
  EXPECT_EQ(ft, 131124751716816408ull);
  EXPECT_TRUE(evtx::ValueToFileTime(View(WriterValue::Text("2021-11-19T16:52:33.833733500Z")), ft));
  std::string back;
  evtx::AppendFileTime(back, ft);
  EXPECT_EQ(back, "2021-11-19T16:52:33.8337335Z");
  EXPECT_FALSE(evtx::ValueToFileTime(View(WriterValue::Text("2021-11-19")), ft));
  EXPECT_TRUE(evtx::ValueToFileTime(View(WriterValue::SystemTime(2024, 5, 1, 10, 20, 30, 123)), ft));
  back.clear();
  evtx::AppendFileTime(back, ft);
  EXPECT_EQ(back, "2024-05-01T10:20:30.1230000Z");

  EXPECT_TRUE(evtx::ValueEquals(View(WriterValue::Text("Security")), "Security"));
  EXPECT_FALSE(evtx::ValueEquals(View(WriterValue::Text("Security")), "Securit"));
  EXPECT_TRUE(evtx::ValueEquals(View(WriterValue::Text("h\xc3\xa9")), "h\xc3\xa9"));
  EXPECT_EQ(evtx::Utf8ToWide("h\xc3\xa9\xf0\x9f\x98\x80").size(), sizeof(wchar_t) == 4 ? 3u : 4u);
}
// The in-place widening takes 16 ASCII bytes at a time: non-ASCII text at every position of such
// a block, and at the very end, must come out the same as a character-by-character conversion.
TEST(ValueText, WideningMatchesAtEveryBlockPosition)
{
  const std::string special[] = {"\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80"};
  const std::wstring wide[] = {L"\u00e9", L"\u20ac", sizeof(wchar_t) == 4 ? std::wstring(1, wchar_t(0x1f600)) : L"\xd83d\xde00"};
  for (std::size_t kind = 0; kind < 3; ++kind)
    for (std::size_t at = 0; at < 40; ++at)
    {
      std::string text(at, 'a');
      std::wstring expected(at, L'a');
      text += special[kind] + std::string(37 - at % 37, '<');
      expected += wide[kind] + std::wstring(37 - at % 37, L'<');
      EXPECT_EQ(evtx::Utf8ToWide(text), expected) << "kind " << kind << " at " << at;
      std::wstring appended = L"prefix";
      evtx::AppendUtf8AsWide(appended, text);
      EXPECT_EQ(appended, L"prefix" + expected);
    }
  // A truncated sequence at the end becomes U+FFFD and nothing is read past the text.
  EXPECT_EQ(evtx::Utf8ToWide(std::string(20, 'x') + "\xe2\x82"), std::wstring(20, L'x') + L"\ufffd\ufffd");
  EXPECT_EQ(evtx::Utf8ToWide(""), L"");
}

// Sixteen ASCII bytes widen in one step; a byte of 0x80 or more anywhere leaves the target as
// it was.
TEST(ValueText, WidenAscii16WidensOnlyWholeAsciiBlocks)
{
  std::uint8_t bytes[16];
  std::wstring expected;
  for (int k = 0; k < 16; ++k)
  {
    bytes[k] = static_cast<std::uint8_t>(k == 0 ? 0x7f : 'A' + k);
    expected += static_cast<wchar_t>(bytes[k]);
  }
  std::wstring wide(17, L'#');
  ASSERT_TRUE(evtx::WidenAscii16(bytes, wide.data()));
  EXPECT_EQ(wide, expected + L"#");
  for (int at = 0; at < 16; ++at)
  {
    std::uint8_t other[16];
    std::memcpy(other, bytes, 16);
    other[at] = 0x80;
    std::wstring untouched(16, L'#');
    EXPECT_FALSE(evtx::WidenAscii16(other, untouched.data())) << at;
    EXPECT_EQ(untouched, std::wstring(16, L'#')) << at;
  }
}

// The event XML is widened into the caller's buffer (EvtRender): ASCII runs of every length
// around the 16-byte blocks, then a character outside the BMP or the three bytes of a lone
// surrogate (which stay that one unit); the count pass agrees and nothing past it is written.
TEST(ValueText, WidenUtf8IntoABufferWritesExactlyItsUnits)
{
  const std::wstring emoji = sizeof(wchar_t) == 4 ? std::wstring(1, wchar_t(0x1f600)) : L"\xd83d\xde00";
  const std::pair<std::string, std::wstring> tails[] = {
    {"", L""}, {"\xf0\x9f\x98\x80z", emoji + L"z"}, {"\xed\xa0\x80", std::wstring(1, wchar_t(0xd800))},
    {"\xed\xbf\xbf!", std::wstring(1, wchar_t(0xdfff)) + L"!"}};
  for (const auto& [tail, wideTail] : tails)
  {
    for (std::size_t length = 0; length <= 66; ++length)
    {
      std::string text;
      std::wstring expected;
      for (std::size_t i = 0; i < length; ++i)
      {
        text += static_cast<char>(' ' + i % 95);
        expected += static_cast<wchar_t>(' ' + i % 95);
      }
      text += tail;
      expected += wideTail;
      std::wstring buffer(text.size() + 8, L'#');
      const std::size_t units = evtx::WidenUtf8(text, buffer.data());
      EXPECT_EQ(units, expected.size()) << length;
      EXPECT_EQ(evtx::WideLengthOfUtf8(text), expected.size()) << length;
      EXPECT_EQ(buffer.substr(0, units), expected) << length;
      EXPECT_EQ(buffer.substr(units), std::wstring(buffer.size() - units, L'#')) << length;
    }
  }
}
} // namespace
