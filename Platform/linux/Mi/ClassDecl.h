// The MI_ClassDecl of a cim::ClassDecl: property declarations with their types, key flags and
// qualifiers, laid out as MI clients walk them. Names and string values point into the source
// declaration, which this object keeps alive; instances share it through a shared pointer.
#pragma once

#include "Platform/Mi.h"

#include "Cim/Model.h"

#include <deque>
#include <memory>
#include <vector>

namespace platform::mi
{
class MiClassDecl
{
public:
  explicit MiClassDecl(std::shared_ptr<const cim::ClassDecl> source);
  MiClassDecl(const MiClassDecl&) = delete;
  MiClassDecl& operator=(const MiClassDecl&) = delete;

  const MI_ClassDecl* Get() const { return &m_decl; }
  const cim::ClassDecl& Source() const { return *m_source; }

private:
  std::shared_ptr<const cim::ClassDecl> m_source;
  MI_ClassDecl m_decl{};
  std::vector<MI_PropertyDecl> m_properties;
  std::vector<const MI_PropertyDecl*> m_propertyList;
  std::deque<MI_Qualifier> m_qualifiers;
  std::deque<MI_Value> m_qualifierValues;
  std::vector<std::vector<const MI_Qualifier*>> m_qualifierLists;
};

// Fills an MI_Value from a CIM value; strings point into the value.
void ToMiValue(const cim::Value& value, MI_Value& out);
} // namespace platform::mi
