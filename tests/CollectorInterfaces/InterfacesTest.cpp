#include "Collector/Interfaces.h"

#include <gtest/gtest.h>

#include <type_traits>

using namespace collector::ni;

namespace
{
// Callers test the alternative by index, so the order is part of the interface.
static_assert(std::is_same_v<std::variant_alternative_t<0, FieldValue>, tstring>);
static_assert(std::is_same_v<std::variant_alternative_t<1, FieldValue>, __int64>);
static_assert(std::is_same_v<std::variant_alternative_t<2, FieldValue>, double>);
static_assert(std::is_same_v<std::variant_alternative_t<3, FieldValue>, COleDateTimeEx>);
static_assert(std::is_same_v<std::variant_alternative_t<4, FieldValue>, std::vector<tstring>>);
static_assert(std::is_same_v<std::variant_alternative_t<5, FieldValue>, GUID>);
static_assert(std::is_same_v<std::variant_alternative_t<6, FieldValue>, std::shared_ptr<IObject>>);
static_assert(std::variant_size_v<FieldValue> == 7);

TEST(InterfacesTest, DefaultFieldValueIsEmptyText)
{
  FieldValue value;
  ASSERT_EQ(value.index(), 0u);
  EXPECT_TRUE(std::get<tstring>(value).empty());
}

TEST(InterfacesTest, ExportedInterfacesDeriveFromTheObjectRoot)
{
  EXPECT_TRUE((std::is_base_of_v<IObject, IHost> && std::is_base_of_v<IObject, IHostPool>));
  EXPECT_TRUE((std::is_base_of_v<IObject, IUser> && std::is_base_of_v<IObject, IUserPool>));
  EXPECT_TRUE((std::is_base_of_v<IObject, IClass> && std::is_base_of_v<IObject, IClassPool>));
  EXPECT_TRUE((std::is_base_of_v<IObject, ITask> && std::is_base_of_v<IObject, ITaskPool>));
  EXPECT_TRUE((std::is_base_of_v<IObject, ICollector> && std::is_base_of_v<IObject, IProperties>));
  EXPECT_TRUE((std::is_base_of_v<IRecord, ICompositionRecord> && std::is_base_of_v<IObject, IRecord>));
  EXPECT_TRUE((std::is_base_of_v<IObject, IField> && std::is_base_of_v<IObject, IKey>));
  EXPECT_TRUE(std::has_virtual_destructor_v<win_events::ICollectionInit>);
  EXPECT_TRUE(std::has_virtual_destructor_v<mi::IMiCollectionInit>);
  EXPECT_TRUE(std::has_virtual_destructor_v<mi::IMiCollectionBaseInit>);
  EXPECT_TRUE(std::has_virtual_destructor_v<performance::IMiPerfCollectionInit>);
}

TEST(InterfacesTest, FilterRecordsStartEmpty)
{
  win_events::SFilter filter;
  EXPECT_TRUE(filter.Path.empty());
  EXPECT_EQ(filter.TimeDiff, 0);
  EXPECT_TRUE(filter.EventIds.empty());
  performance::IMiPerfCollectionInit::CounterFilter counter;
  EXPECT_DOUBLE_EQ(counter.Factor, 1.0);
  EXPECT_EQ(counter.TargetValue.index(), 0u);
}
} // namespace
