#include "Cim/Model.h"

#include "Cim/Names.h"

#include <stdexcept>

namespace cim
{
std::size_t ClassDecl::Find(std::wstring_view propertyName) const
{
  for (std::size_t i = 0; i < properties.size(); ++i)
  {
    if (EqualsNoCase(properties[i].name, propertyName))
      return i;
  }
  return npos;
}

Instance& Instance::Set(std::wstring_view propertyName, Value value)
{
  const auto index = decl->Find(propertyName);
  if (index == ClassDecl::npos)
  {
    // The message is narrow; names outside ASCII show as '?'.
    std::string name;
    for (const auto ch : propertyName)
      name.push_back(ch > 0 && ch < 0x80 ? static_cast<char>(ch) : '?');
    throw std::out_of_range("Class does not declare the property " + name);
  }
  elements[index].value = std::move(value);
  return *this;
}
} // namespace cim
