#include "MiFixture.h"

#include <cstring>

using cim::testing::MiMonitor;
using mitest::MiTest;
using mitest::Pull;

namespace
{
class MiInstanceTest : public MiTest
{
protected:
  void SetUp() override
  {
    MiTest::SetUp();
    typed = host.AddClass(cim::testing::ClassBuilder(L"Test_Types")
                              .Key(L"Name")
                              .Property(L"B", cim::Type::Boolean)
                              .Property(L"U8", cim::Type::UInt8)
                              .Property(L"S8", cim::Type::SInt8)
                              .Property(L"U16", cim::Type::UInt16)
                              .Property(L"S16", cim::Type::SInt16)
                              .Property(L"U32", cim::Type::UInt32,
                                        {{L"CounterType", std::uint32_t{272696576}}, {L"DisplayName", std::wstring(L"u32")}})
                              .Property(L"S32", cim::Type::SInt32)
                              .Property(L"U64", cim::Type::UInt64)
                              .Property(L"S64", cim::Type::SInt64)
                              .Property(L"R32", cim::Type::Real32)
                              .Property(L"R64", cim::Type::Real64)
                              .Property(L"C16", cim::Type::Char16)
                              .Property(L"Stamp", cim::Type::DateTime)
                              .Property(L"Span", cim::Type::DateTime)
                              .Property(L"Text", cim::Type::String)
                              .Build());
    cim::DateTime stamp;
    stamp.year = 2020;
    stamp.month = 1;
    stamp.day = 1;
    stamp.hour = 12;
    stamp.utc = 120;
    cim::DateTime span;
    span.isTimestamp = false;
    span.days = 1;
    span.hours = 12;
    typed->Add({{L"Name", std::wstring(L"one")}, {L"B", true}, {L"U8", std::uint8_t{200}}, {L"S8", std::int8_t{-100}},
                {L"U16", std::uint16_t{60000}}, {L"S16", std::int16_t{-30000}}, {L"U32", std::uint32_t{4000000000u}},
                {L"S32", std::int32_t{-2000000000}}, {L"U64", std::uint64_t{18000000000000000000u}},
                {L"S64", std::int64_t{-9000000000000000000}}, {L"R32", 2.5f}, {L"R64", -2.9}, {L"C16", u'Z'},
                {L"Stamp", stamp}, {L"Span", span}, {L"Text", std::wstring(L"hello")}});
    typed->Add({{L"Name", std::wstring(L"two")}});
    session = Open();
  }

  void TearDown() override
  {
    if (operation.ft)
      MI_Operation_Close(&operation);
    MI_Session_Close(&session, nullptr, nullptr);
    MiTest::TearDown();
  }

  const MI_Instance* First(const MI_Char* query = L"SELECT * FROM Test_Types")
  {
    operation = Query(session, query);
    return Pull(operation).instance;
  }

  MI_Value Get(const MI_Instance* instance, const MI_Char* name, MI_Type expectedType, MI_Uint32* flags = nullptr)
  {
    MI_Value value;
    std::memset(&value, 0xAB, sizeof(value));
    MI_Type type = MI_INSTANCE;
    MI_Uint32 ownFlags = 0;
    EXPECT_EQ(MI_Instance_GetElement(instance, name, &value, &type, flags ? flags : &ownFlags, nullptr), MI_RESULT_OK)
        << std::string(name, name + std::wcslen(name));
    EXPECT_EQ(type, expectedType);
    return value;
  }

  std::shared_ptr<cim::testing::TestProvider> typed;
  MI_Session session = MI_SESSION_NULL;
  MI_Operation operation = MI_OPERATION_NULL;
};
} // namespace

TEST_F(MiInstanceTest, EveryScalarTypeReadsWithItsTypeCode)
{
  const MI_Instance* instance = First();
  ASSERT_NE(instance, nullptr);
  EXPECT_EQ(Get(instance, L"B", MI_BOOLEAN).boolean, MI_TRUE);
  EXPECT_EQ(Get(instance, L"U8", MI_UINT8).uint8, 200);
  EXPECT_EQ(Get(instance, L"S8", MI_SINT8).sint8, -100);
  EXPECT_EQ(Get(instance, L"U16", MI_UINT16).uint16, 60000);
  EXPECT_EQ(Get(instance, L"S16", MI_SINT16).sint16, -30000);
  EXPECT_EQ(Get(instance, L"U32", MI_UINT32).uint32, 4000000000u);
  EXPECT_EQ(Get(instance, L"S32", MI_SINT32).sint32, -2000000000);
  EXPECT_EQ(Get(instance, L"U64", MI_UINT64).uint64, 18000000000000000000u);
  EXPECT_EQ(Get(instance, L"S64", MI_SINT64).sint64, -9000000000000000000);
  EXPECT_FLOAT_EQ(Get(instance, L"R32", MI_REAL32).real32, 2.5f);
  EXPECT_DOUBLE_EQ(Get(instance, L"R64", MI_REAL64).real64, -2.9);
  EXPECT_EQ(Get(instance, L"C16", MI_CHAR16).char16, u'Z');
  EXPECT_STREQ(Get(instance, L"Text", MI_STRING).string, L"hello");
  const MI_Datetime stamp = Get(instance, L"Stamp", MI_DATETIME).datetime;
  EXPECT_EQ(stamp.isTimestamp, 1u);
  EXPECT_EQ(stamp.u.timestamp.year, 2020u);
  EXPECT_EQ(stamp.u.timestamp.hour, 12u);
  EXPECT_EQ(stamp.u.timestamp.utc, 120);
  const MI_Datetime span = Get(instance, L"Span", MI_DATETIME).datetime;
  EXPECT_EQ(span.isTimestamp, 0u);
  EXPECT_EQ(span.u.interval.days, 1u);
  EXPECT_EQ(span.u.interval.hours, 12u);
}

TEST_F(MiInstanceTest, NamesAreCaseInsensitiveAndUnknownOnesFail)
{
  const MI_Instance* instance = First();
  EXPECT_STREQ(Get(instance, L"text", MI_STRING).string, L"hello");
  MI_Value value;
  MI_Type type;
  MI_Uint32 flags;
  EXPECT_EQ(MI_Instance_GetElement(instance, L"Nope", &value, &type, &flags, nullptr), MI_RESULT_NO_SUCH_PROPERTY);
  EXPECT_EQ(MI_Instance_GetElement(instance, nullptr, &value, &type, &flags, nullptr), MI_RESULT_INVALID_PARAMETER);
  MI_Uint32 index = 99;
  EXPECT_EQ(MI_Instance_GetElement(instance, L"U8", &value, &type, &flags, &index), MI_RESULT_OK);
  EXPECT_EQ(index, 2u);
}

TEST_F(MiInstanceTest, NullAndKeyFlags)
{
  const MI_Instance* instance = First(L"SELECT * FROM Test_Types WHERE Name = 'two'");
  ASSERT_NE(instance, nullptr);
  MI_Uint32 flags = 0;
  Get(instance, L"U32", MI_UINT32, &flags);
  EXPECT_TRUE(flags & MI_FLAG_NULL);
  Get(instance, L"Name", MI_STRING, &flags);
  EXPECT_FALSE(flags & MI_FLAG_NULL);
  EXPECT_TRUE(flags & MI_FLAG_KEY);
}

TEST_F(MiInstanceTest, ForcedElementFailure)
{
  typed->FailElement(0, L"U32", MI_RESULT_ACCESS_DENIED);
  const MI_Instance* instance = First();
  MI_Value value;
  MI_Type type;
  MI_Uint32 flags;
  EXPECT_EQ(MI_Instance_GetElement(instance, L"U32", &value, &type, &flags, nullptr), MI_RESULT_ACCESS_DENIED);
  EXPECT_EQ(MI_Instance_GetElement(instance, L"U8", &value, &type, &flags, nullptr), MI_RESULT_OK);
}

TEST_F(MiInstanceTest, CountAndElementsByIndex)
{
  const MI_Instance* instance = First();
  MI_Uint32 count = 0;
  EXPECT_EQ(MI_Instance_GetElementCount(instance, &count), MI_RESULT_OK);
  EXPECT_EQ(count, 16u);
  const MI_Char* name = nullptr;
  MI_Value value;
  MI_Type type;
  MI_Uint32 flags;
  EXPECT_EQ(MI_Instance_GetElementAt(instance, 15, &name, &value, &type, &flags), MI_RESULT_OK);
  EXPECT_STREQ(name, L"Text");
  EXPECT_EQ(MI_Instance_GetElementAt(instance, 16, &name, &value, &type, &flags), MI_RESULT_NOT_FOUND);
  const MI_Char* text = nullptr;
  EXPECT_EQ(MI_Instance_GetClassName(instance, &text), MI_RESULT_OK);
  EXPECT_STREQ(text, L"Test_Types");
  EXPECT_EQ(MI_Instance_GetNameSpace(instance, &text), MI_RESULT_OK);
  EXPECT_STREQ(text, L"root/cimv2");
  EXPECT_EQ(MI_Instance_GetServerName(instance, &text), MI_RESULT_OK);
  EXPECT_STREQ(text, L"mitest");
  EXPECT_STREQ(instance->serverName, L"mitest");
  EXPECT_STREQ(instance->nameSpace, L"root/cimv2");
}

TEST_F(MiInstanceTest, ClassDeclarationCarriesPropertiesAndQualifiers)
{
  const MI_Instance* instance = First();
  const MI_ClassDecl* decl = instance->classDecl;
  ASSERT_NE(decl, nullptr);
  EXPECT_STREQ(decl->name, L"Test_Types");
  ASSERT_EQ(decl->numProperties, 16u);
  EXPECT_STREQ(decl->properties[0]->name, L"Name");
  EXPECT_TRUE(decl->properties[0]->flags & MI_FLAG_KEY);
  const MI_PropertyDecl* u32 = decl->properties[6];
  EXPECT_STREQ(u32->name, L"U32");
  EXPECT_EQ(u32->type, static_cast<MI_Uint32>(MI_UINT32));
  ASSERT_EQ(u32->numQualifiers, 2u);
  EXPECT_STREQ(u32->qualifiers[0]->name, L"CounterType");
  EXPECT_EQ(u32->qualifiers[0]->type, static_cast<MI_Uint32>(MI_UINT32));
  EXPECT_EQ(*static_cast<const MI_Uint32*>(u32->qualifiers[0]->value), 272696576u);
  EXPECT_STREQ(u32->qualifiers[1]->name, L"DisplayName");
  EXPECT_EQ(u32->qualifiers[1]->type, static_cast<MI_Uint32>(MI_STRING));
  EXPECT_STREQ(*static_cast<const MI_Char* const*>(u32->qualifiers[1]->value), L"u32");
  EXPECT_EQ(decl->properties[1]->numQualifiers, 0u);
}

TEST_F(MiInstanceTest, ProjectionLeavesUnselectedPropertiesNull)
{
  const MI_Instance* instance = First(L"SELECT U8 FROM Test_Types WHERE Text = 'hello'");
  ASSERT_NE(instance, nullptr);
  MI_Uint32 count = 0;
  MI_Instance_GetElementCount(instance, &count);
  EXPECT_EQ(count, 16u);
  MI_Uint32 flags = 0;
  EXPECT_EQ(Get(instance, L"U8", MI_UINT8, &flags).uint8, 200);
  EXPECT_FALSE(flags & MI_FLAG_NULL);
  Get(instance, L"Text", MI_STRING, &flags);
  EXPECT_TRUE(flags & MI_FLAG_NULL);
  Get(instance, L"Name", MI_STRING, &flags); // a key stays
  EXPECT_FALSE(flags & MI_FLAG_NULL);
}

TEST_F(MiInstanceTest, CopiesOfTheHandleReadTheSameData)
{
  const MI_Instance* instance = First();
  const MI_Instance copy = *instance; // as MI clients keep it, by value
  EXPECT_STREQ(Get(&copy, L"Text", MI_STRING).string, L"hello");
}

TEST_F(MiInstanceTest, CloneOutlivesTheNextPullAndTheOperation)
{
  const MI_Instance* instance = First();
  MI_Instance* clone = nullptr;
  ASSERT_EQ(MI_Instance_Clone(instance, &clone), MI_RESULT_OK);
  EXPECT_NE(Pull(operation).instance, nullptr);
  MI_Operation_Close(&operation);
  EXPECT_STREQ(Get(clone, L"Text", MI_STRING).string, L"hello");
  MI_Instance copy = *clone;
  EXPECT_EQ(MI_Instance_Delete(&copy), MI_RESULT_INVALID_PARAMETER); // only the clone itself
  EXPECT_EQ(MI_Instance_Delete(clone), MI_RESULT_OK);
}

TEST_F(MiInstanceTest, InstancesOfAnOperationCannotBeDeleted)
{
  const MI_Instance* instance = First();
  EXPECT_EQ(MI_Instance_Delete(const_cast<MI_Instance*>(instance)), MI_RESULT_INVALID_PARAMETER);
}
