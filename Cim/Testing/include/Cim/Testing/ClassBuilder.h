// Builds a class declaration for tests:
//   auto decl = ClassBuilder(L"Test_Process").Key(L"Name")
//                   .Property(L"Count", Type::UInt32, {{L"CounterType", std::uint32_t{65536}}})
//                   .Build();
#pragma once

#include "Cim/Model.h"

#include <memory>
#include <string>
#include <vector>

namespace cim::testing
{
class ClassBuilder
{
public:
  explicit ClassBuilder(std::wstring className);
  ClassBuilder& Property(std::wstring name, Type type, std::vector<Qualifier> qualifiers = {});
  // A property with the qualifier "Key" = true (kept by every projection).
  ClassBuilder& Key(std::wstring name, Type type = Type::String);
  std::shared_ptr<const ClassDecl> Build() const;

private:
  ClassDecl m_decl;
};
} // namespace cim::testing
