// The renderer's output buffer: every length of copy, growth past its room, and hand-over of
// the text to and from the string it writes into.
#include "TextBuffer.h"

#include <gtest/gtest.h>

#include <string>

namespace
{
using evtx::detail::TextBuffer;

std::string Pattern(std::size_t n)
{
  std::string text;
  for (std::size_t i = 0; i < n; ++i)
    text += static_cast<char>('a' + i % 26);
  return text;
}

TEST(TextBuffer, AppendsOfEveryShortAndLongLengthKeepTheirBytes)
{
  std::string out = "head:";
  std::string expected = out;
  {
    TextBuffer buffer(out);
    for (std::size_t n = 0; n <= 40; ++n)
    {
      const std::string piece = Pattern(n);
      buffer.append(piece.data(), piece.size());
      buffer += '|';
      expected += piece + '|';
      ASSERT_EQ(buffer.size(), expected.size());
    }
  }
  EXPECT_EQ(out, expected);
}

// Padded appends copy a fixed block past short pieces: only the piece shows, at every length
// around the block's size, and text appended after it overwrites what the block left.
TEST(TextBuffer, PaddedAppendsOfEveryLengthKeepOnlyTheirBytes)
{
  const std::string table = Pattern(100) + std::string(evtx::detail::kCopySlack, '#');
  std::string out = "head:";
  std::string expected = out;
  {
    TextBuffer buffer(out);
    for (std::size_t n = 0; n <= 90; ++n)
    {
      buffer.AppendPadded(table.data() + 10 - n % 10, n);
      buffer += '|';
      expected += table.substr(10 - n % 10, n) + '|';
      ASSERT_EQ(buffer.size(), expected.size());
    }
  }
  EXPECT_EQ(out, expected);
}

TEST(TextBuffer, GrowsPastItsRoomAndGivesTheStringItsLength)
{
  std::string out;
  const std::string big = Pattern(5000);
  {
    TextBuffer buffer(out);
    buffer += "<a>";
    buffer.append(big);
    buffer.append(big.data(), big.data() + 3);
    buffer += "</a>";
    EXPECT_EQ(buffer.back(), '>');
  }
  EXPECT_EQ(out, "<a>" + big + "abc</a>");
}

TEST(TextBuffer, ResizeCutsAndCommitSyncHandTheTextOver)
{
  std::string out = "x";
  TextBuffer buffer(out);
  buffer += "abcdef";
  buffer.resize(4);
  EXPECT_EQ(buffer.Commit(), "xabc");
  out += "!!";
  buffer.Sync();
  buffer += '?';
  buffer.resize(buffer.size() + 2);
  buffer.data()[buffer.size() - 2] = '1';
  buffer.back() = '2';
  EXPECT_EQ(buffer.Commit(), "xabc!!?12");
}

TEST(TextBuffer, ValuesWriteAsIntoAString)
{
  const std::uint8_t number[] = {0x39, 0x30, 0, 0};
  const std::uint8_t text[] = {'a', 0, '<', 0, 0xe9, 0, 0x3d, 0xd8, 0x00, 0xde};
  const evtx::Value values[] = {
    evtx::Value{static_cast<std::uint8_t>(evtx::ValueType::UInt32), number, sizeof number},
    evtx::Value{static_cast<std::uint8_t>(evtx::ValueType::String), text, sizeof text},
    evtx::Value{static_cast<std::uint8_t>(evtx::ValueType::Binary), text, sizeof text},
  };
  for (const evtx::Value& value : values)
  {
    std::string expected;
    evtx::AppendValueText(expected, value, evtx::TextEscape::Xml);
    std::string out;
    {
      TextBuffer buffer(out);
      evtx::detail::AppendValueText(buffer, value, evtx::TextEscape::Xml);
    }
    EXPECT_EQ(out, expected);
  }
  std::string out;
  {
    TextBuffer buffer(out);
    evtx::detail::AppendUtf16(buffer, text, 5, evtx::TextEscape::Xml);
  }
  EXPECT_EQ(out, "a&lt;\xc3\xa9\xf0\x9f\x98\x80");
}
} // namespace
