#include "Fixture.h"

#include <stdexcept>

namespace
{
class ThrowingProvider : public cim::Provider
{
public:
  explicit ThrowingProvider(std::shared_ptr<const cim::ClassDecl> decl) : m_decl(std::move(decl)) {}
  std::shared_ptr<const cim::ClassDecl> Class() const override { return m_decl; }
  void Enumerate(std::vector<cim::Instance>&) override { throw std::runtime_error("cannot read /proc"); }

private:
  std::shared_ptr<const cim::ClassDecl> m_decl;
};
} // namespace

TEST(WqlExecute, UnknownNamespaceComesFirst)
{
  wqltest::ItemHost fixture;
  const auto result = cim::wql::Execute(fixture.host, L"root/other", L"not even a query");
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->code, 3u);
}

TEST(WqlExecute, BackslashNamespaceIsTheSame)
{
  wqltest::ItemHost fixture;
  const auto result = cim::wql::Execute(fixture.host, L"ROOT\\CIMV2", L"SELECT * FROM Test_Item");
  EXPECT_FALSE(result.error);
  EXPECT_EQ(result.instances.size(), 4u);
}

TEST(WqlExecute, ProjectionKeepsSelectedAndKeyPropertiesOnly)
{
  wqltest::ItemHost fixture;
  const auto result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT count FROM Test_Item WHERE Note = 'first'");
  ASSERT_FALSE(result.error);
  ASSERT_EQ(result.instances.size(), 1u);
  const auto& instance = result.instances[0];
  ASSERT_EQ(instance.elements.size(), fixture.decl->properties.size());
  EXPECT_EQ(std::get<std::wstring>(*instance.elements[0].value), L"alpha"); // key
  EXPECT_EQ(std::get<std::uint32_t>(*instance.elements[1].value), 1u);     // selected
  for (std::size_t i = 2; i < instance.elements.size(); ++i)
    EXPECT_FALSE(instance.elements[i].value.has_value()) << i; // WHERE may use them, results do not carry them
}

TEST(WqlExecute, EmptySelectListIsAnInvalidQuery)
{
  wqltest::ItemHost fixture;
  const auto result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT  FROM Test_Item");
  EXPECT_TRUE(result.instances.empty());
  ASSERT_TRUE(result.error.has_value());
  EXPECT_EQ(result.error->code, 15u);
}

TEST(WqlExecute, ProjectionDropsForcedFailuresOfUnselectedProperties)
{
  wqltest::ItemHost fixture;
  fixture.provider->FailElement(0, L"Note", 2);
  auto result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT Count FROM Test_Item");
  EXPECT_EQ(result.instances[0].elements[7].readError, 0u);
  result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT Note FROM Test_Item");
  EXPECT_EQ(result.instances[0].elements[7].readError, 2u);
}

TEST(WqlExecute, ProviderFailureKeepsEarlierMatchesThenTheError)
{
  wqltest::ItemHost fixture;
  fixture.provider->FailQuery(27, L"limits", 3);
  const auto result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT * FROM Test_Item WHERE Count <> 2");
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->code, 27u);
  EXPECT_EQ(result.error->message, L"limits");
  EXPECT_EQ(wqltest::ItemHost::Names(result), (std::vector<std::wstring>{L"alpha", L"gamma_1"}));
}

TEST(WqlExecute, OtherProviderExceptionsBecomeGeneralFailure)
{
  wqltest::ItemHost fixture;
  fixture.host.Register(L"root/cimv2",
                        std::make_shared<ThrowingProvider>(cim::testing::ClassBuilder(L"Test_Broken").Key(L"Name").Build()));
  const auto result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT * FROM Test_Broken");
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->code, 1u);
  EXPECT_EQ(result.error->message, L"cannot read /proc");
}

TEST(WqlExecute, ClassCheckedBeforeProperties)
{
  wqltest::ItemHost fixture;
  const auto result = cim::wql::Execute(fixture.host, L"root/cimv2", L"SELECT Nope FROM Nope");
  ASSERT_TRUE(result.error);
  EXPECT_EQ(result.error->code, 5u);
}
