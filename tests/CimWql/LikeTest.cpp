#include "Cim/Model.h"
#include "Cim/Wql/Like.h"

#include <gtest/gtest.h>

using cim::wql::LikePattern;

namespace
{
bool Like(const wchar_t* text, const wchar_t* pattern) { return LikePattern::Compile(pattern).Matches(text); }
} // namespace

TEST(WqlLike, PercentMatchesAnyRunIncludingNone)
{
  EXPECT_TRUE(Like(L"", L"%"));
  EXPECT_TRUE(Like(L"abc", L"%"));
  EXPECT_TRUE(Like(L"abc", L"a%"));
  EXPECT_TRUE(Like(L"abc", L"%c"));
  EXPECT_TRUE(Like(L"abc", L"a%%c"));
  EXPECT_TRUE(Like(L"abc", L"%b%"));
  EXPECT_TRUE(Like(L"ac", L"a%c"));
  EXPECT_FALSE(Like(L"abd", L"a%c"));
  EXPECT_TRUE(Like(L"aXbXc", L"a%b%c"));
  EXPECT_TRUE(Like(L"abcbc", L"%bc"));
}

TEST(WqlLike, UnderscoreMatchesExactlyOne)
{
  EXPECT_TRUE(Like(L"abc", L"a_c"));
  EXPECT_FALSE(Like(L"ac", L"a_c"));
  EXPECT_FALSE(Like(L"abbc", L"a_c"));
  EXPECT_TRUE(Like(L"abbc", L"a%_c"));
  EXPECT_FALSE(Like(L"", L"_"));
}

TEST(WqlLike, SetsRangesAndNegation)
{
  EXPECT_TRUE(Like(L"b", L"[abc]"));
  EXPECT_FALSE(Like(L"d", L"[abc]"));
  EXPECT_TRUE(Like(L"q", L"[a-z]"));
  EXPECT_TRUE(Like(L"Q", L"[a-z]"));
  EXPECT_FALSE(Like(L"5", L"[a-z]"));
  EXPECT_TRUE(Like(L"5", L"[^a-z]"));
  EXPECT_FALSE(Like(L"q", L"[^a-z]"));
  EXPECT_TRUE(Like(L"-", L"[a-]"));
  EXPECT_TRUE(Like(L"]", L"[]]"));
  EXPECT_TRUE(Like(L"%", L"[%]"));
  EXPECT_FALSE(Like(L"x", L"[%]"));
  EXPECT_TRUE(Like(L"_", L"[_]"));
  EXPECT_TRUE(Like(L"disk7", L"disk[0-9]"));
  EXPECT_TRUE(Like(L"C:", L"[A-Z]:"));
}

TEST(WqlLike, IgnoresCase)
{
  EXPECT_TRUE(Like(L"SvcHost.EXE", L"svchost.exe"));
  EXPECT_TRUE(Like(L"svchost.exe", L"SVC%"));
}

TEST(WqlLike, UnclosedSetIsInvalidQuery)
{
  try
  {
    LikePattern::Compile(L"ab[cd");
    FAIL() << "no error";
  }
  catch (const cim::Error& error)
  {
    EXPECT_EQ(error.code, 15u);
  }
}

TEST(WqlLike, ManyWildcardsStayFast)
{
  // Exponential backtracking would never finish this; the greedy matcher is quadratic at worst.
  std::wstring text(5000, L'a');
  std::wstring pattern;
  for (int i = 0; i < 200; ++i)
    pattern += L"%a";
  pattern += L"b";
  EXPECT_FALSE(LikePattern::Compile(pattern).Matches(text));
}
