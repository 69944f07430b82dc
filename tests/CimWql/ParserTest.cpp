#include "Cim/Model.h"
#include "Cim/Wql/Parser.h"

#include <gtest/gtest.h>

#include <string>

using cim::wql::CompareOp;
using cim::wql::Expr;
using cim::wql::Parse;

namespace
{
std::uint32_t ErrorOf(const std::wstring& text)
{
  try
  {
    Parse(text);
  }
  catch (const cim::Error& error)
  {
    return error.code;
  }
  return 0;
}
} // namespace

TEST(WqlParser, SelectListAndClass)
{
  const auto query = Parse(L"SELECT Name,Frequency_PerfTime , Timestamp_PerfTime FROM Win32_PerfRawData_PerfOS_Processor");
  EXPECT_FALSE(query.selectAll);
  EXPECT_EQ(query.properties, (std::vector<std::wstring>{L"Name", L"Frequency_PerfTime", L"Timestamp_PerfTime"}));
  EXPECT_EQ(query.className, L"Win32_PerfRawData_PerfOS_Processor");
  EXPECT_EQ(query.where, nullptr);
}

TEST(WqlParser, StarAndKeywordsInAnyCase)
{
  const auto query = Parse(L"  select * from Win32_Service where StartMode='Auto'  ");
  EXPECT_TRUE(query.selectAll);
  ASSERT_NE(query.where, nullptr);
  EXPECT_EQ(query.where->kind, Expr::Kind::Compare);
  EXPECT_EQ(query.where->left.property, L"StartMode");
  EXPECT_EQ(std::get<std::wstring>(query.where->right.literal), L"Auto");
}

TEST(WqlParser, OrOfAndsIsOneFlatNodePerLevel)
{
  const auto query = Parse(L"SELECT * FROM C WHERE A = 1 AND B = 2 AND C = 3 OR NOT D = 4");
  ASSERT_NE(query.where, nullptr);
  ASSERT_EQ(query.where->kind, Expr::Kind::Or);
  ASSERT_EQ(query.where->children.size(), 2u);
  EXPECT_EQ(query.where->children[0].kind, Expr::Kind::And);
  EXPECT_EQ(query.where->children[0].children.size(), 3u);
  EXPECT_EQ(query.where->children[1].kind, Expr::Kind::Not);
}

TEST(WqlParser, LiteralKinds)
{
  const auto literal = [](const std::wstring& text) {
    return Parse(L"SELECT * FROM C WHERE P = " + text).where->right.literal;
  };
  EXPECT_EQ(std::get<std::int64_t>(literal(L"42")), 42);
  EXPECT_EQ(std::get<std::int64_t>(literal(L"-42")), -42);
  EXPECT_EQ(std::get<std::int64_t>(literal(L"-9223372036854775808")), INT64_MIN);
  EXPECT_EQ(std::get<std::uint64_t>(literal(L"18446744073709551615")), UINT64_MAX);
  EXPECT_EQ(std::get<std::int64_t>(literal(L"0x1F")), 31);
  EXPECT_DOUBLE_EQ(std::get<double>(literal(L"2.5")), 2.5);
  EXPECT_DOUBLE_EQ(std::get<double>(literal(L"1e3")), 1000.0);
  EXPECT_DOUBLE_EQ(std::get<double>(literal(L"99999999999999999999")), 1e20);
  EXPECT_EQ(std::get<bool>(literal(L"True")), true);
  EXPECT_EQ(std::get<bool>(literal(L"FALSE")), false);
  EXPECT_TRUE(std::holds_alternative<std::monostate>(literal(L"null")));
  EXPECT_EQ(std::get<std::wstring>(literal(L"'C:\\\\Windows'")), L"C:\\Windows");
  EXPECT_EQ(std::get<std::wstring>(literal(L"\"say \\\"hi\\\"\"")), L"say \"hi\"");
}

TEST(WqlParser, OperatorsAndMirrors)
{
  const auto op = [](const std::wstring& text) { return Parse(L"SELECT * FROM C WHERE P " + text + L" 1").where->op; };
  EXPECT_EQ(op(L"="), CompareOp::Equal);
  EXPECT_EQ(op(L"<>"), CompareOp::NotEqual);
  EXPECT_EQ(op(L"!="), CompareOp::NotEqual);
  EXPECT_EQ(op(L"<"), CompareOp::Less);
  EXPECT_EQ(op(L"<="), CompareOp::LessEqual);
  EXPECT_EQ(op(L">"), CompareOp::Greater);
  EXPECT_EQ(op(L">="), CompareOp::GreaterEqual);
}

TEST(WqlParser, IsNullAndLike)
{
  auto query = Parse(L"SELECT * FROM C WHERE P IS NOT NULL");
  EXPECT_EQ(query.where->kind, Expr::Kind::IsNull);
  EXPECT_TRUE(query.where->negated);
  query = Parse(L"SELECT * FROM C WHERE P NOT LIKE 'x%'");
  EXPECT_EQ(query.where->kind, Expr::Kind::Like);
  EXPECT_TRUE(query.where->negated);
}

TEST(WqlParser, MalformedTextIsInvalidQuery)
{
  for (const wchar_t* text :
       {L"", L"SELECT", L"SELECT *", L"SELECT * FROM", L"SELECT * FROM 5", L"SELECT * FROM C WHERE",
        L"SELECT * FROM C WHERE P", L"SELECT * FROM C WHERE P =", L"SELECT * FROM C WHERE P IS", L"SELECT * FROM C WHERE P IS NOT",
        L"SELECT * FROM C WHERE P LIKE", L"SELECT * FROM C WHERE 'x' LIKE 'x'", L"SELECT * FROM C WHERE 5 IS NULL",
        L"SELECT * FROM C WHERE P = 1 OR", L"SELECT * FROM C WHERE ()", L"SELECT * FROM C WHERE P = -'x'",
        L"SELECT * FROM C WHERE P = 0xFFFFFFFFFFFFFFFFFF", L"SELECT * FROM C ;",
        L"SELECT a b FROM C", L"SELECT * FROM C WHERE P = #", L"SELECT FROM FROM C", L"SELECT * FROM SELECT"})
  {
    EXPECT_EQ(ErrorOf(text), 15u) << std::string(text, text + std::wcslen(text));
  }
}

TEST(WqlParser, DeepNestingIsRefusedNotACrash)
{
  std::wstring text = L"SELECT * FROM C WHERE ";
  for (int i = 0; i < 5000; ++i)
    text += L"(";
  text += L"P = 1";
  for (int i = 0; i < 5000; ++i)
    text += L")";
  EXPECT_EQ(ErrorOf(text), 15u);

  std::wstring nots = L"SELECT * FROM C WHERE ";
  for (int i = 0; i < 5000; ++i)
    nots += L"NOT ";
  EXPECT_EQ(ErrorOf(nots + L"P = 1"), 15u);
}

TEST(WqlParser, LongFlatConditionsParse)
{
  std::wstring text = L"SELECT * FROM C WHERE P = 0";
  for (int i = 1; i < 5000; ++i)
    text += L" OR P = " + std::to_wstring(i);
  const auto query = Parse(text);
  EXPECT_EQ(query.where->children.size(), 5000u);
}
