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
