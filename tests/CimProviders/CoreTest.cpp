// The data model and the host registry: name lookups, namespaces, destinations.
#include "Cim/Names.h"
#include "Cim/Provider.h"

#include <gtest/gtest.h>

namespace
{
std::shared_ptr<const cim::ClassDecl> MakeDecl()
{
  auto decl = std::make_shared<cim::ClassDecl>();
  decl->name = L"Test_Class";
  decl->properties = {{L"Name", cim::Type::String, {}}, {L"Count", cim::Type::UInt32, {}}};
  return decl;
}

class FixedProvider : public cim::Provider
{
public:
  std::shared_ptr<const cim::ClassDecl> Class() const override { return m_decl; }
  void Enumerate(std::vector<cim::Instance>& out) override
  {
    out.emplace_back(m_decl).Set(L"Name", std::wstring(L"one"));
  }

private:
  std::shared_ptr<const cim::ClassDecl> m_decl = MakeDecl();
};
} // namespace

TEST(CimModel, FindIsCaseInsensitive)
{
  const auto decl = MakeDecl();
  EXPECT_EQ(decl->Find(L"name"), 0u);
  EXPECT_EQ(decl->Find(L"COUNT"), 1u);
  EXPECT_EQ(decl->Find(L"Missing"), cim::ClassDecl::npos);
  EXPECT_EQ(decl->Find(L""), cim::ClassDecl::npos);
}

TEST(CimModel, SetStoresValueAndRejectsUnknownNames)
{
  cim::Instance instance(MakeDecl());
  ASSERT_EQ(instance.elements.size(), 2u);
  EXPECT_FALSE(instance.elements[1].value.has_value());
  instance.Set(L"count", std::uint32_t{7}).Set(L"NAME", std::wstring(L"x"));
  ASSERT_TRUE(instance.elements[1].value.has_value());
  EXPECT_EQ(std::get<std::uint32_t>(*instance.elements[1].value), 7u);
  EXPECT_EQ(cim::TypeOf(*instance.elements[1].value), cim::Type::UInt32);
  EXPECT_THROW(instance.Set(L"Nope", true), std::out_of_range);
}

TEST(CimNames, NamespaceNormalization)
{
  EXPECT_EQ(cim::NormalizeNamespace(L"ROOT\\CIMV2"), L"root/cimv2");
  EXPECT_EQ(cim::NormalizeNamespace(L"/root/cimv2/"), L"root/cimv2");
  EXPECT_EQ(cim::NormalizeNamespace(L""), L"");
}

TEST(CimNames, WidenDecodesUtf8AndReplacesBadBytes)
{
  EXPECT_EQ(cim::Widen("abc"), L"abc");
  EXPECT_EQ(cim::Widen("\xC3\xA9"), L"\u00E9");
  EXPECT_EQ(cim::Widen("\xF0\x9F\x98\x80"), std::wstring(1, static_cast<wchar_t>(0x1F600)));
  EXPECT_EQ(cim::Widen("a\xFF" "b"), L"a\uFFFDb");
  EXPECT_EQ(cim::Widen("\xC3"), L"\uFFFD");
  EXPECT_EQ(cim::Widen("\xC0\x80"), L"\uFFFD\uFFFD"); // overlong encoding
}

TEST(CimHost, RegisterAndFindIgnoreCaseAndSeparator)
{
  cim::Host host;
  host.Register(L"root\\Test", std::make_shared<FixedProvider>());
  EXPECT_TRUE(host.HasNamespace(L"ROOT/test"));
  EXPECT_FALSE(host.HasNamespace(L"root/other"));
  EXPECT_NE(host.Find(L"root/test", L"test_class"), nullptr);
  EXPECT_EQ(host.Find(L"root/test", L"Other_Class"), nullptr);
  EXPECT_EQ(host.Find(L"root/none", L"Test_Class"), nullptr);
}

TEST(CimHosts, MachineNamesResolveToTheMachine)
{
  const auto machine = cim::Hosts::Machine();
  ASSERT_NE(machine, nullptr);
  EXPECT_EQ(cim::Hosts::Resolve(L""), machine);
  EXPECT_EQ(cim::Hosts::Resolve(L"."), machine);
  EXPECT_EQ(cim::Hosts::Resolve(L"LocalHost"), machine);
  const auto name = cim::Hosts::MachineName();
  ASSERT_FALSE(name.empty());
  EXPECT_EQ(cim::Hosts::Resolve(cim::ToLower(name)), machine);
  EXPECT_EQ(cim::Hosts::Resolve(L"no-such-host.invalid"), nullptr);
}

TEST(CimHosts, AttachedHostsTakePrecedenceAndDetach)
{
  auto host = std::make_shared<cim::Host>();
  cim::Hosts::Attach(L"TestHost", host);
  EXPECT_EQ(cim::Hosts::Resolve(L"testhost"), host);
  cim::Hosts::Attach(L"localhost", host);
  EXPECT_EQ(cim::Hosts::Resolve(L"localhost"), host);
  cim::Hosts::Detach(L"LOCALHOST");
  cim::Hosts::Detach(L"testhost");
  EXPECT_EQ(cim::Hosts::Resolve(L"testhost"), nullptr);
  EXPECT_EQ(cim::Hosts::Resolve(L"localhost"), cim::Hosts::Machine());
}
