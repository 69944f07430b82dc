#include "Cim/Testing/ClassBuilder.h"

namespace cim::testing
{
ClassBuilder::ClassBuilder(std::wstring className) { m_decl.name = std::move(className); }

ClassBuilder& ClassBuilder::Property(std::wstring name, Type type, std::vector<Qualifier> qualifiers)
{
  m_decl.properties.push_back(PropertyDecl{std::move(name), type, std::move(qualifiers)});
  return *this;
}

ClassBuilder& ClassBuilder::Key(std::wstring name, Type type)
{
  return Property(std::move(name), type, {Qualifier{L"Key", true}});
}

std::shared_ptr<const ClassDecl> ClassBuilder::Build() const { return std::make_shared<const ClassDecl>(m_decl); }
} // namespace cim::testing
