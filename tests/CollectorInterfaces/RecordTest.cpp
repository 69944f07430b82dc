#include "Collector.Interfaces.Impl.h"

#include <gtest/gtest.h>

#include <string>

using namespace collector::ni;
using namespace collector::ni::impl;

namespace
{
class CTestClass : public IClass
{
public:
  GUID GetId() const override { return {1, 2, 3, {4, 5, 6, 7, 8, 9, 10, 11}}; }
  tstring GetName() const override { return L"WindowsEvents"; }
};

void AddEventFields(CRecordOnVectorNoKey& record)
{
  const auto& names = EventFieldNames();
  record.AddField(names.SourceName, L"Service Control Manager");
  record.AddField(names.Description, L"The service entered the running state.");
  record.AddField(names.CreatedTime, COleDateTimeEx(45000.5));
  record.AddField(names.InitiatedBy, L"S-1-5-18");
  record.AddField(names.EventType, 4);
  record.AddField(names.Data, std::vector<tstring>{L"a", L"b"});
  record.AddField(names.EventCode, 7036);
  record.AddField(names.InternalId, static_cast<__int64>(991));
}

TEST(RecordTest, RecordWithoutKeyHasNullKey)
{
  CRecordOnVectorNoKey record;
  EXPECT_EQ(record.GetKey(), nullptr);
  IRecord& asInterface = record;
  EXPECT_EQ(asInterface.GetKey(), nullptr);
}

TEST(RecordTest, LookupIsCaseSensitive)
{
  CRecordOnVectorNoKey record(1, 8);
  AddEventFields(record);
  EXPECT_EQ(record.FindField(L"data"), nullptr);
  EXPECT_EQ(record.FindField(L"DATA"), nullptr);
  ASSERT_NE(record.FindField(L"Data"), nullptr);
  EXPECT_EQ(record.FindField(L"Data")->GetName(), L"Data");
}

TEST(RecordTest, EveryEventFieldIsFoundWithItsValue)
{
  CRecordOnVectorNoKey record(1, 8);
  AddEventFields(record);
  EXPECT_EQ(std::get<__int64>(record.GetField(L"EventCode")->GetValue()), 7036);
  EXPECT_EQ(std::get<__int64>(record.GetField(L"InternalId")->GetValue()), 991);
  EXPECT_EQ(std::get<tstring>(record.GetField(L"SourceName")->GetValue()), L"Service Control Manager");
  EXPECT_EQ(std::get<std::vector<tstring>>(record.GetField(L"Data")->GetValue()).size(), 2u);
  EXPECT_DOUBLE_EQ(std::get<COleDateTimeEx>(record.GetField(L"CreatedTime")->GetValue()).GetDate(), 45000.5);
  EXPECT_EQ(record.GetFieldCount(), 8u);
}

TEST(RecordTest, AppendAfterLookupIsFoundOnTheNextLookup)
{
  CRecordOnVectorNoKey record;
  record.AddField(MakeFieldName(L"b"), 1);
  record.AddField(MakeFieldName(L"c"), 2);
  EXPECT_EQ(record.FindField(L"a"), nullptr);
  record.AddField(MakeFieldName(L"a"), 3);
  IField* found = record.FindField(L"a");
  ASSERT_NE(found, nullptr);
  EXPECT_EQ(std::get<__int64>(found->GetValue()), 3);
  // The earlier fields are still found after the second sort.
  ASSERT_NE(record.FindField(L"c"), nullptr);
  EXPECT_EQ(std::get<__int64>(record.FindField(L"c")->GetValue()), 2);
}

TEST(RecordTest, ShorterPrefixSortsFirstAndBothAreFound)
{
  CRecordOnVectorNoKey record;
  record.AddField(MakeFieldName(L"DataX"), 2);
  record.AddField(MakeFieldName(L"Data"), 1);
  record.AddField(MakeFieldName(L"Dat"), 0);
  EXPECT_EQ(std::get<__int64>(record.GetField(L"Data")->GetValue()), 1);
  EXPECT_EQ(std::get<__int64>(record.GetField(L"DataX")->GetValue()), 2);
  EXPECT_EQ(std::get<__int64>(record.GetField(L"Dat")->GetValue()), 0);
  const auto& fields = record.GetFields();
  EXPECT_EQ(fields[0].GetName(), L"Dat");
  EXPECT_EQ(fields[1].GetName(), L"Data");
  EXPECT_EQ(fields[2].GetName(), L"DataX");
}

TEST(RecordTest, UpperCaseSortsBeforeLowerCaseOrdinally)
{
  CRecordOnVectorNoKey record;
  record.AddField(MakeFieldName(L"a"), 1);
  record.AddField(MakeFieldName(L"B"), 2);
  ASSERT_NE(record.FindField(L"a"), nullptr);
  EXPECT_EQ(record.GetFields()[0].GetName(), L"B");
}

TEST(RecordTest, DuplicateNamesFindOneOfThem)
{
  CRecordOnVectorNoKey record;
  const auto name = MakeFieldName(L"Same");
  record.AddField(name, 1);
  record.AddField(name, 2);
  IField* found = record.FindField(L"Same");
  ASSERT_NE(found, nullptr);
  const auto value = std::get<__int64>(found->GetValue());
  EXPECT_TRUE(value == 1 || value == 2);
}

TEST(RecordTest, FindFieldByStringAndByViewAgree)
{
  CRecordOnVectorNoKey record;
  AddEventFields(record);
  const tstring name = L"EventType";
  EXPECT_EQ(record.FindField(name), record.FindField(std::wstring_view(name)));
  EXPECT_NE(record.FindField(name), nullptr);
  EXPECT_EQ(record.FindField(tstring(L"Missing")), nullptr);
}

TEST(RecordTest, GetFieldOfAbsentNameThrowsNotFound)
{
  CRecordOnVectorNoKey record;
  AddEventFields(record);
  try
  {
    record.GetField(L"Missing");
    FAIL() << "GetField of an absent name returned";
  }
  catch (const CKeldaException& error)
  {
    EXPECT_EQ(error.message(), L"Not found");
    EXPECT_NE(get_throw_function(error).find("CRecordOnVectorNoKey::GetField"), std::string::npos);
    const std::string file = get_throw_file(error);
    EXPECT_NE(file.find("Collector.Interfaces.Impl.h"), std::string::npos) << file;
    EXPECT_GT(get_throw_line(error), 0);
  }
}

TEST(RecordTest, GetFieldOnEmptyRecordThrows)
{
  CRecordOnVectorNoKey record;
  EXPECT_THROW(record.GetField(L"Data"), CKeldaException);
  EXPECT_EQ(record.FindField(L"Data"), nullptr);
}

TEST(RecordTest, DetachLeavesTheSourceEmpty)
{
  CRecordOnVectorNoKey record(17, 8);
  AddEventFields(record);
  ASSERT_NE(record.FindField(L"Data"), nullptr);
  std::unique_ptr<ICompositionRecord> detached(record.Detach());
  EXPECT_EQ(record.FindField(L"Data"), nullptr);
  EXPECT_EQ(record.GetFieldCount(), 0u);
  ASSERT_NE(detached, nullptr);
  EXPECT_EQ(detached->GetType(), 17u);
  EXPECT_EQ(detached->GetKey(), nullptr);
  ASSERT_NE(detached->FindField(L"Data"), nullptr);
  EXPECT_EQ(std::get<__int64>(detached->GetField(L"EventCode")->GetValue()), 7036);
  EXPECT_NE(dynamic_cast<CRecordOnVectorNoKey*>(detached.get()), nullptr);
  EXPECT_EQ(dynamic_cast<CRecordOnVector*>(detached.get()), nullptr);
}

TEST(RecordTest, DetachOfUnsortedRecordSortsOnItsFirstLookup)
{
  CRecordOnVectorNoKey record;
  record.AddField(MakeFieldName(L"z"), 1);
  record.AddField(MakeFieldName(L"a"), 2);
  std::unique_ptr<ICompositionRecord> detached(record.Detach());
  ASSERT_NE(detached->FindField(L"a"), nullptr);
  ASSERT_NE(detached->FindField(L"z"), nullptr);
}

TEST(RecordTest, KeyedRecordCarriesItsKeyAndDetachMovesIt)
{
  auto keyClass = std::make_shared<CTestClass>();
  auto keyField = std::make_shared<CField>(EventFieldNames().InternalId, static_cast<__int64>(991));
  CRecordOnVector record(CKey(keyClass, {keyField}), 1, 8);
  AddEventFields(record);

  IKey* key = record.GetKey();
  ASSERT_NE(key, nullptr);
  EXPECT_EQ(key->GetClass(), keyClass);
  ASSERT_EQ(key->GetFields().size(), 1u);
  EXPECT_EQ(key->GetFields()[0], keyField);
  EXPECT_EQ(key->GetFields()[0]->GetName(), L"InternalId");

  std::unique_ptr<ICompositionRecord> detached(record.Detach());
  ASSERT_NE(dynamic_cast<CRecordOnVector*>(detached.get()), nullptr);
  IKey* movedKey = detached->GetKey();
  ASSERT_NE(movedKey, nullptr);
  EXPECT_EQ(movedKey->GetClass(), keyClass);
  ASSERT_EQ(movedKey->GetFields().size(), 1u);
  EXPECT_EQ(movedKey->GetFields()[0], keyField);
  EXPECT_EQ(detached->GetType(), 1u);
  // The source keeps a key object, but it no longer holds the class or the fields.
  EXPECT_EQ(record.GetKey()->GetClass(), nullptr);
  EXPECT_TRUE(record.GetKey()->GetFields().empty());
  EXPECT_EQ(record.FindField(L"Data"), nullptr);
}

TEST(RecordTest, AddFieldGrowsByHalfTheCapacity)
{
  CRecordOnVectorNoKey record(0, 4);
  const auto name = MakeFieldName(L"n");
  for (int i = 0; i < 4; ++i)
    record.AddField(name, i);
  EXPECT_EQ(record.GetFields().capacity(), 4u);
  record.AddField(name, 4);
  EXPECT_EQ(record.GetFields().capacity(), 6u);
  // From nothing the vector grows to the size needed.
  CRecordOnVectorNoKey empty;
  empty.AddField(name, 0);
  EXPECT_EQ(empty.GetFields().capacity(), 1u);
  empty.AddField(name, 1);
  EXPECT_EQ(empty.GetFields().capacity(), 2u);
  empty.AddField(name, 2);
  EXPECT_EQ(empty.GetFields().capacity(), 3u);
}

TEST(RecordTest, MutableFieldsMakeTheRecordSortAgain)
{
  CRecordOnVectorNoKey record;
  record.AddField(MakeFieldName(L"m"), 1);
  ASSERT_NE(record.FindField(L"m"), nullptr);
  record.MutableFields().emplace_back(MakeFieldName(L"a"), 2);
  ASSERT_NE(record.FindField(L"a"), nullptr);
}

TEST(RecordTest, TypeIsKeptAndCanBeSet)
{
  CRecordOnVectorNoKey record(5);
  EXPECT_EQ(record.GetType(), 5u);
  record.SetType(1);
  EXPECT_EQ(record.GetType(), 1u);
}

TEST(KeyTest, EmptyKeyHasNoClassAndNoFields)
{
  CKey key;
  EXPECT_EQ(key.GetClass(), nullptr);
  EXPECT_TRUE(key.GetFields().empty());
  key.SetClass(std::make_shared<CTestClass>());
  key.AddField(std::make_shared<CField>(MakeFieldName(L"InternalId"), 5));
  EXPECT_EQ(key.GetClass()->GetName(), L"WindowsEvents");
  EXPECT_EQ(key.GetFields().size(), 1u);
}
} // namespace

namespace
{
// Every field keeps its own value through the sort, whatever order the fields came in, for
// records small enough to be sorted on indices and for larger ones.
void ExpectSortedWithValues(std::size_t count, unsigned seed)
{
  std::vector<std::size_t> order(count);
  for (std::size_t i = 0; i < count; ++i)
    order[i] = i;
  // A fixed shuffle: the same failing order every run.
  for (std::size_t i = count; i > 1; --i)
  {
    seed = seed * 1103515245u + 12345u;
    std::swap(order[i - 1], order[seed % i]);
  }
  CRecordOnVectorNoKey record;
  for (const std::size_t i : order)
    record.AddField(MakeFieldName(L"F" + std::to_wstring(1000 + i)), static_cast<__int64>(i));
  ASSERT_NE(record.GetField(L"F1000"), nullptr);
  const auto& fields = record.GetFields();
  ASSERT_EQ(fields.size(), count);
  for (std::size_t i = 0; i < count; ++i)
  {
    EXPECT_EQ(fields[i].GetName(), L"F" + std::to_wstring(1000 + i));
    EXPECT_EQ(std::get<__int64>(fields[i].GetValue()), static_cast<__int64>(i));
  }
}
} // namespace

TEST(RecordTest, SortKeepsEachValueWithItsNameForSmallAndLargeRecords)
{
  for (const std::size_t count : {1U, 2U, 7U, 8U, 31U, 32U, 33U, 100U})
    for (unsigned seed = 1; seed <= 5; ++seed)
    {
      SCOPED_TRACE(std::to_string(count) + " fields, seed " + std::to_string(seed));
      ExpectSortedWithValues(count, seed);
    }
}
