// CProperties: unknown names, replacement, case-sensitive names, copies in and out.
#include "Properties.h"

#include <gtest/gtest.h>

#include <string>

using collector::ni::FieldValue;
using collector::ni::impl::CProperties;

namespace
{
GUID MakeGuid(unsigned char seed)
{
  GUID id{};
  id.Data1 = seed;
  id.Data4[7] = seed;
  return id;
}

TEST(PropertiesTest, NameNeverSetReadsAsEmptyText)
{
  CProperties bag;
  const FieldValue value = bag.GetProperty(L"TargetCollectionId");
  ASSERT_EQ(value.index(), 0U);
  EXPECT_TRUE(std::get<tstring>(value).empty());
}

TEST(PropertiesTest, SettingTwiceKeepsOnlyTheSecondValue)
{
  CProperties bag;
  bag.SetProperty(L"TargetCollectionId", MakeGuid(1));
  bag.SetProperty(L"TargetCollectionId", MakeGuid(2));
  const FieldValue value = bag.GetProperty(L"TargetCollectionId");
  ASSERT_TRUE(std::holds_alternative<GUID>(value));
  EXPECT_EQ(std::get<GUID>(value), MakeGuid(2));
}

TEST(PropertiesTest, ReplacementMayChangeTheType)
{
  CProperties bag;
  bag.SetProperty(L"Count", static_cast<__int64>(7));
  bag.SetProperty(L"Count", tstring(L"seven"));
  EXPECT_EQ(std::get<tstring>(bag.GetProperty(L"Count")), L"seven");
}

TEST(PropertiesTest, NamesDifferingOnlyInCaseAreDifferentProperties)
{
  CProperties bag;
  bag.SetProperty(L"Name", static_cast<__int64>(1));
  bag.SetProperty(L"name", static_cast<__int64>(2));
  EXPECT_EQ(std::get<__int64>(bag.GetProperty(L"Name")), 1);
  EXPECT_EQ(std::get<__int64>(bag.GetProperty(L"name")), 2);
  const FieldValue missing = bag.GetProperty(L"NAME");
  EXPECT_EQ(std::get<tstring>(missing), L"");
}

TEST(PropertiesTest, ValuesAreCopiesNotReferences)
{
  CProperties bag;
  std::vector<tstring> list{L"a", L"b"};
  bag.SetProperty(L"List", list);
  list.push_back(L"c");
  FieldValue read = bag.GetProperty(L"List");
  std::get<std::vector<tstring>>(read).clear();
  EXPECT_EQ(std::get<std::vector<tstring>>(bag.GetProperty(L"List")).size(), 2U);
}

TEST(PropertiesTest, AViewNotEndingAtATerminatorNamesOnlyItsCharacters)
{
  CProperties bag;
  const std::wstring text = L"TargetCollectionIdAndMore";
  bag.SetProperty(std::wstring_view(text).substr(0, 18), static_cast<__int64>(5));
  EXPECT_EQ(std::get<__int64>(bag.GetProperty(L"TargetCollectionId")), 5);
}
} // namespace
