#include "KeldaKernel/Strings.h"

#include <gtest/gtest.h>

TEST(Strings, RoundTripThroughUtf8)
{
  const std::wstring text = L"Abc \u00E9 \u4E2D \U0001F600";
  EXPECT_EQ(kelda::ToUtf8(text), "Abc \xC3\xA9 \xE4\xB8\xAD \xF0\x9F\x98\x80");
  EXPECT_EQ(kelda::FromUtf8(kelda::ToUtf8(text)), text);
  EXPECT_EQ(kelda::ToUtf8(L""), "");
  EXPECT_EQ(kelda::FromUtf8(""), L"");
}

TEST(Strings, InvalidUtf8BecomesReplacementCharacters)
{
  EXPECT_EQ(kelda::FromUtf8("a\xFF" "b"), L"a\uFFFDb");
  // Truncated sequence at the end.
  EXPECT_EQ(kelda::FromUtf8("a\xE4\xB8"), L"a\uFFFD\uFFFD");
  // Overlong slash and an encoded surrogate.
  EXPECT_EQ(kelda::FromUtf8("\xC0\xAF"), L"\uFFFD\uFFFD");
  EXPECT_EQ(kelda::FromUtf8("\xED\xA0\x80"), L"\uFFFD\uFFFD\uFFFD");
}

TEST(Strings, InvalidWideCharactersBecomeReplacementCharacters)
{
  std::wstring text = L"x";
  text += static_cast<wchar_t>(0xD800);
  if constexpr (sizeof(wchar_t) == 4)
    text += static_cast<wchar_t>(0x110000);
  EXPECT_EQ(kelda::FromUtf8(kelda::ToUtf8(text)).substr(0, 2), L"x\uFFFD");
  EXPECT_EQ(kelda::ToUtf8(text).substr(1, 3), "\xEF\xBF\xBD");
}

TEST(Strings, AppendUtf8KeepsWhatTheBufferHeld)
{
  std::string out = "[";
  kelda::AppendUtf8(out, L"ab\u00E9c");
  kelda::AppendUtf8(out, L"");
  kelda::AppendUtf8(out, L"\U0001F600d");
  EXPECT_EQ(out, "[ab\xC3\xA9" "c\xF0\x9F\x98\x80" "d");
}

TEST(Strings, CharactersOutsideTheBmpTakeThePlatformsUnits)
{
  // U+1F600 and U+10FFFF: a surrogate pair where wchar_t is UTF-16 (Windows), one unit in UTF-32.
  const std::wstring text = kelda::FromUtf8("\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
  if constexpr (sizeof(wchar_t) == 2)
  {
    ASSERT_EQ(text.size(), 4u);
    EXPECT_EQ(static_cast<unsigned>(text[0]), 0xD83Du);
    EXPECT_EQ(static_cast<unsigned>(text[1]), 0xDE00u);
    EXPECT_EQ(static_cast<unsigned>(text[2]), 0xDBFFu);
    EXPECT_EQ(static_cast<unsigned>(text[3]), 0xDFFFu);
  }
  else
  {
    ASSERT_EQ(text.size(), 2u);
    EXPECT_EQ(static_cast<unsigned>(text[0]), 0x1F600u);
    EXPECT_EQ(static_cast<unsigned>(text[1]), 0x10FFFFu);
  }
  EXPECT_EQ(kelda::ToUtf8(text), "\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
}

TEST(Strings, HalfOfASurrogatePairBecomesOneReplacementCharacter)
{
  if constexpr (sizeof(wchar_t) != 2)
    GTEST_SKIP() << "wchar_t holds whole code points here";
  // A high surrogate followed by a plain character, and a low surrogate on its own.
  std::wstring text;
  text += static_cast<wchar_t>(0xD83D);
  text += L'a';
  text += static_cast<wchar_t>(0xDE00);
  EXPECT_EQ(kelda::ToUtf8(text), "\xEF\xBF\xBD" "a" "\xEF\xBF\xBD");
}
