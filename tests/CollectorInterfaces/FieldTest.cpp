#include "Collector.Interfaces.Impl.h"

#include <gtest/gtest.h>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
TEST(FieldTest, NegativeThirtyTwoBitIntegerIsSignExtended)
{
  const int value = -123456;
  CField field(MakeFieldName(L"EventCode"), value);
  ASSERT_EQ(field.GetValue().index(), 1u);
  EXPECT_EQ(std::get<__int64>(field.GetValue()), -123456LL);
}

TEST(FieldTest, MutableAndConstValueAreTheSameObject)
{
  CField field(MakeFieldName(L"Data"), tstring(L"payload"));
  const CField& constant = field;
  EXPECT_EQ(&field.GetValue(), &constant.GetValue());
  // A change through one is seen through the other.
  field.GetValue() = 2.5;
  ASSERT_EQ(constant.GetValue().index(), 2u);
  EXPECT_DOUBLE_EQ(std::get<double>(constant.GetValue()), 2.5);
}

TEST(FieldTest, FieldsWithTheSameSharedNameReportTheSameNameObject)
{
  const auto name = MakeFieldName(L"SourceName");
  CField first(name, L"a");
  CField second(name, L"b");
  EXPECT_EQ(&first.GetName(), &second.GetName());
  EXPECT_EQ(&first.GetName(), name.get());
  // Each field holds its own reference next to the caller's.
  EXPECT_EQ(name.use_count(), 3);
}

TEST(FieldTest, ConstructorsPickTheExpectedAlternative)
{
  const auto name = MakeFieldName(L"x");
  EXPECT_EQ(CField(name, L"text").GetValue().index(), 0u);
  EXPECT_EQ(CField(name, std::wstring_view(L"text")).GetValue().index(), 0u);
  EXPECT_EQ(CField(name, 7).GetValue().index(), 1u);
  EXPECT_EQ(CField(name, static_cast<__int64>(7)).GetValue().index(), 1u);
  EXPECT_EQ(CField(name, 4000000000u).GetValue().index(), 1u);
  EXPECT_EQ(std::get<__int64>(CField(name, 4000000000u).GetValue()), 4000000000LL);
  EXPECT_EQ(CField(name, 1.5).GetValue().index(), 2u);
  EXPECT_EQ(CField(name, COleDateTimeEx(2.0)).GetValue().index(), 3u);
  EXPECT_EQ(CField(name, std::vector<tstring>{L"a", L"b"}).GetValue().index(), 4u);
  EXPECT_EQ(CField(name, GUID_NULL).GetValue().index(), 5u);
  EXPECT_EQ(CField(name, std::shared_ptr<IObject>()).GetValue().index(), 6u);
}

TEST(FieldTest, DateTimeIsBuiltFromItsSource)
{
  SYSTEMTIME time{};
  time.wYear = 1899;
  time.wMonth = 12;
  time.wDay = 31;
  time.wHour = 12;
  CField field(MakeFieldName(L"CreatedTime"), time);
  ASSERT_EQ(field.GetValue().index(), 3u);
  EXPECT_DOUBLE_EQ(std::get<COleDateTimeEx>(field.GetValue()).GetDate(), 1.5);
}

TEST(FieldTest, DefaultFieldHasNoNameAndEmptyText)
{
  CField field;
  EXPECT_TRUE(field.GetName().empty());
  EXPECT_EQ(field.GetSharedName(), nullptr);
  ASSERT_EQ(field.GetValue().index(), 0u);
  EXPECT_TRUE(std::get<tstring>(field.GetValue()).empty());
}

TEST(FieldTest, MoveTakesOverNameAndValue)
{
  const auto name = MakeFieldName(L"Description");
  CField source(name, tstring(L"a long description that does not fit in place"));
  CField target(std::move(source));
  EXPECT_EQ(target.GetSharedName(), name);
  EXPECT_EQ(std::get<tstring>(target.GetValue()), L"a long description that does not fit in place");
}

TEST(FieldNamesTest, EventFieldNamesAreMadeOnceWithTheirTexts)
{
  const auto& names = EventFieldNames();
  EXPECT_EQ(&names, &EventFieldNames());
  EXPECT_EQ(*names.SourceName, L"SourceName");
  EXPECT_EQ(*names.Description, L"Description");
  EXPECT_EQ(*names.CreatedTime, L"CreatedTime");
  EXPECT_EQ(*names.InitiatedBy, L"InitiatedBy");
  EXPECT_EQ(*names.EventType, L"EventType");
  EXPECT_EQ(*names.Data, L"Data");
  EXPECT_EQ(*names.EventCode, L"EventCode");
  EXPECT_EQ(*names.InternalId, L"InternalId");
  EXPECT_EQ(EventFieldNames().Data.get(), names.Data.get());
}
} // namespace
