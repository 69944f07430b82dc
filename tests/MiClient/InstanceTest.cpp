// CMiInstance: element counts, property reads (values, NULLs, failures), the declaration lookup,
// and the qualifiers that CMiValueWithQualifiers finds there.
#include "MiClientFixture.h"

#include "KeldaKernel/Exceptions.h"

using namespace miclient_test;

namespace
{
class InstanceTest : public MiClientTest
{
protected:
  void SetUp() override
  {
    MiClientTest::SetUp();
    provider->Add({{L"Name", std::wstring(L"first")}, {L"Count", std::uint32_t{42}}, {L"Flag", true}});
    session = Connected();
    operation.emplace(session->QueryInstances(L"root/cimv2", L"SELECT * FROM Test_Thing"));
    instance = operation->GetInstance();
    ASSERT_FALSE(instance.IsEmpty());
  }

  void TearDown() override
  {
    instance = CMiInstance();
    operation.reset();
    session.reset();
    MiClientTest::TearDown();
  }

  std::shared_ptr<CMiSession> session;
  std::optional<CMiInstanceOperation> operation;
  CMiInstance instance;
};

TEST_F(InstanceTest, CountsEveryElement)
{
  EXPECT_EQ(instance.GetCount(), 6u);
}

TEST_F(InstanceTest, EmptyInstanceCountFailsWithInvalidParameter)
{
  const CMiInstance empty;
  try
  {
    static_cast<void>(empty.GetCount());
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(),
              L"MI_Instance_GetElementCount (One or more parameter values passed to the method are not valid)");
    EXPECT_NE(get_throw_function(error).find("CMiInstance::GetCount"), std::string::npos);
    EXPECT_NE(get_throw_file(error).find("MiInstance.cpp"), std::string::npos);
  }
}

TEST_F(InstanceTest, EmptyInstanceGetFailsWithInvalidParameter)
{
  const CMiInstance empty;
  CMiValue value;
  EXPECT_EQ(MiErrorOf([&] { empty.Get(L"Name", value); }),
            L"MI_Instance_GetElement (One or more parameter values passed to the method are not valid)");
}

TEST_F(InstanceTest, ReadsValueTypeFlagsAndDeclaration)
{
  CMiValue value;
  CMiValue& same = instance.Get(L"Count", value);
  EXPECT_EQ(&same, &value);
  EXPECT_EQ(value.GetType(), MI_UINT32);
  EXPECT_FALSE(value.IsNull());
  const unsigned int count = value.Value();
  EXPECT_EQ(count, 42u);
  ASSERT_NE(value.GetPropertyDecl(), nullptr);
  EXPECT_EQ(std::wstring_view(value.GetPropertyDecl()->name), L"Count");
}

TEST_F(InstanceTest, UnsetPropertyCarriesTheNullFlag)
{
  CMiValue value;
  instance.Get(L"Note", value);
  EXPECT_TRUE(value.IsNull());
  EXPECT_EQ(value.GetType(), MI_STRING);
}

TEST_F(InstanceTest, UnknownPropertyThrowsNoSuchProperty)
{
  CMiValue value;
  try
  {
    instance.Get(L"Missing", value);
    FAIL() << "no exception";
  }
  catch (const CMiException& error)
  {
    EXPECT_EQ(error.message(), L"MI_Instance_GetElement (The specified property does not exist)");
    EXPECT_NE(get_throw_function(error).find("CMiInstance::Get"), std::string::npos);
  }
}

TEST_F(InstanceTest, FailingElementReadThrowsItsCode)
{
  instance = CMiInstance();
  operation.reset();
  provider->FailElement(0, L"Count", MI_RESULT_ACCESS_DENIED);
  operation.emplace(session->QueryInstances(L"root/cimv2", L"SELECT * FROM Test_Thing"));
  instance = operation->GetInstance();
  CMiValue value;
  EXPECT_EQ(MiErrorOf([&] { instance.Get(L"Count", value); }),
            L"MI_Instance_GetElement (Access to a CIM resource is not available to the client)");
}

TEST_F(InstanceTest, DeclarationLookupIsCaseSensitive)
{
  // The API itself finds the element without regard to case; the declaration must match exactly.
  CMiValue value;
  instance.Get(L"count", value);
  EXPECT_EQ(value.GetPropertyDecl(), nullptr);
  const unsigned int count = value.Value();
  EXPECT_EQ(count, 42u);
}

TEST_F(InstanceTest, NoMatchingDeclarationLeavesThePreviousOne)
{
  CMiValue value;
  instance.Get(L"Name", value);
  const MI_PropertyDecl* name = value.GetPropertyDecl();
  ASSERT_NE(name, nullptr);
  instance.Get(L"COUNT", value);
  EXPECT_EQ(value.GetPropertyDecl(), name);
}

TEST_F(InstanceTest, QualifiersOfTheDeclarationAreFoundByName)
{
  CMiValueWithQualifiers value;
  instance.Get(L"Count", value);
  EXPECT_EQ(value.GetQualifierCount(), 1u);
  ASSERT_NE(value.FindQualifier(L"CounterType"), nullptr);
  EXPECT_NE(value.FindQualifier(L"countertype"), nullptr);
  EXPECT_EQ(value.FindQualifier(L"CounterTyp"), nullptr);
  EXPECT_EQ(value.GetQualifierInteger(L"CounterType"), 65536);
  EXPECT_EQ(value.GetQualifierString(L"CounterType"), std::nullopt);
  EXPECT_EQ(value.GetQualifier(0), value.FindQualifier(L"CounterType"));
  EXPECT_EQ(value.GetQualifier(1), nullptr);

  instance.Get(L"Note", value);
  EXPECT_EQ(value.GetQualifierString(L"DisplayName"), std::wstring_view(L"A note"));
  EXPECT_EQ(value.GetQualifierInteger(L"DisplayName"), std::nullopt);
  EXPECT_EQ(value.FindQualifier(L"CounterType"), nullptr);
}

TEST(QualifierTest, ValueWithoutDeclarationHasNoQualifiers)
{
  const CMiValueWithQualifiers value;
  EXPECT_EQ(value.GetQualifierCount(), 0u);
  EXPECT_EQ(value.FindQualifier(L"CounterType"), nullptr);
  EXPECT_EQ(value.GetQualifierInteger(L"CounterType"), std::nullopt);
}
} // namespace
