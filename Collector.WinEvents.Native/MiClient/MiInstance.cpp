#include "MiInstance.h"

#include "MiException.h"

#include <cwchar>
#include <utility>

namespace
{
// The declaration of the named property in the class, or null: the first match in declaration
// order, lengths compared first and then the code units exactly.
const MI_PropertyDecl* FindProperty(const MI_ClassDecl* decl, std::wstring_view name) noexcept
{
  if (decl == nullptr || decl->properties == nullptr)
  {
    return nullptr;
  }
  for (MI_Uint32 i = 0; i < decl->numProperties; ++i)
  {
    const MI_PropertyDecl* property = decl->properties[i];
    if (property != nullptr && property->name != nullptr && std::wcslen(property->name) == name.size() &&
        std::wstring_view(property->name) == name)
    {
      return property;
    }
  }
  return nullptr;
}
} // namespace

CMiInstance::CMiInstance(std::shared_ptr<CMiOperationHandle> handle, const MI_Instance& instance) noexcept
  : m_handle(std::move(handle)), m_instance(instance)
{
}

unsigned __int64 CMiInstance::GetCount() const
{
  MI_Uint32 count = 0;
  const MI_Result result = MI_Instance_GetElementCount(&m_instance, &count);
  if (result != MI_RESULT_OK)
  {
    KELDA_THROW(CMiException(result, L"MI_Instance_GetElementCount"));
  }
  return count;
}

CMiValue& CMiInstance::Get(std::wstring_view name, CMiValue& value) const
{
  const MI_Result result =
      MI_Instance_GetElement(&m_instance, name.data(), &value.m_value, &value.m_type, &value.m_flags, nullptr);
  if (result != MI_RESULT_OK)
  {
    KELDA_THROW(CMiException(result, L"MI_Instance_GetElement"));
  }
  if (const MI_PropertyDecl* property = FindProperty(m_instance.classDecl, name))
  {
    value.m_propertyDecl = property;
  }
  return value;
}

bool CMiInstance::Declares(std::wstring_view name) const noexcept
{
  return FindProperty(m_instance.classDecl, name) != nullptr;
}
