#include "Instance.h"

#include "Cim/Wql/BoundQuery.h"

namespace platform::mi
{
namespace
{
constexpr ptrdiff_t kInstanceTag = 0x4D49496E73;
constexpr ptrdiff_t kOwnedByClone = 1;

const InstanceData* DataOf(const MI_Instance* self)
{
  if (!self || self->reserved[1] != kInstanceTag || self->reserved[0] == 0)
    return nullptr;
  // The API's handles keep addresses in integer words.
  return reinterpret_cast<const InstanceData*>(self->reserved[0]); // NOLINT(performance-no-int-to-ptr)
}

// A clone owns its data and its own handle; MI_Instance_Delete frees both.
struct ClonedInstance
{
  MI_Instance handle{};
  InstanceData data;
};

MI_Result MI_CALL Clone(const MI_Instance* self, MI_Instance** newInstance);

MI_Result MI_CALL Delete(MI_Instance* self)
{
  if (!DataOf(self) || self->reserved[2] != kOwnedByClone || self->reserved[3] == 0)
    return MI_RESULT_INVALID_PARAMETER;
  std::unique_ptr<ClonedInstance> clone(
      reinterpret_cast<ClonedInstance*>(self->reserved[3])); // NOLINT(performance-no-int-to-ptr)
  if (&clone->handle != self)
  {
    // A copy of a clone's handle is not the clone: leave it alone.
    static_cast<void>(clone.release());
    return MI_RESULT_INVALID_PARAMETER;
  }
  clone->handle = MI_Instance{};
  return MI_RESULT_OK;
}

MI_Result MI_CALL NotSupported(MI_Instance*) { return MI_RESULT_NOT_SUPPORTED; }

MI_Result MI_CALL IsA(const MI_Instance* self, const MI_ClassDecl* classDecl, MI_Boolean* flag)
{
  const InstanceData* data = DataOf(self);
  if (!data || !classDecl || !flag || !classDecl->name)
    return MI_RESULT_INVALID_PARAMETER;
  *flag = std::wstring_view(classDecl->name) == data->decl->Source().name ? MI_TRUE : MI_FALSE;
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetClassName(const MI_Instance* self, const MI_Char** className)
{
  const InstanceData* data = DataOf(self);
  if (!data || !className)
    return MI_RESULT_INVALID_PARAMETER;
  *className = data->decl->Source().name.c_str();
  return MI_RESULT_OK;
}

MI_Result MI_CALL SetNameSpace(MI_Instance*, const MI_Char*) { return MI_RESULT_NOT_SUPPORTED; }

MI_Result MI_CALL GetNameSpace(const MI_Instance* self, const MI_Char** nameSpace)
{
  const InstanceData* data = DataOf(self);
  if (!data || !nameSpace)
    return MI_RESULT_INVALID_PARAMETER;
  *nameSpace = data->nameSpace->c_str();
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetElementCount(const MI_Instance* self, MI_Uint32* count)
{
  const InstanceData* data = DataOf(self);
  if (!data || !count)
    return MI_RESULT_INVALID_PARAMETER;
  *count = static_cast<MI_Uint32>(data->instance.elements.size());
  return MI_RESULT_OK;
}

MI_Result MI_CALL ChangeElement(MI_Instance*, const MI_Char*, const MI_Value*, MI_Type, MI_Uint32)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL SetElementAt(MI_Instance*, MI_Uint32, const MI_Value*, MI_Type, MI_Uint32)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result ReadElement(const InstanceData& data, std::size_t index, MI_Value* value, MI_Type* type, MI_Uint32* flags)
{
  const cim::Element& element = data.instance.elements[index];
  if (element.readError != 0)
    return static_cast<MI_Result>(element.readError);
  const cim::PropertyDecl& property = data.decl->Source().properties[index];
  if (value)
  {
    if (element.value)
      ToMiValue(*element.value, *value);
    else
      *value = MI_Value{};
  }
  if (type)
    *type = static_cast<MI_Type>(property.type);
  if (flags)
    *flags = (element.value ? 0u : static_cast<MI_Uint32>(MI_FLAG_NULL)) |
             (cim::wql::IsKey(property) ? static_cast<MI_Uint32>(MI_FLAG_KEY) : 0u);
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetElement(const MI_Instance* self, const MI_Char* name, MI_Value* value, MI_Type* type,
                             MI_Uint32* flags, MI_Uint32* index)
{
  const InstanceData* data = DataOf(self);
  if (!data || !name)
    return MI_RESULT_INVALID_PARAMETER;
  const std::size_t found = data->decl->Source().Find(name);
  if (found == cim::ClassDecl::npos)
    return MI_RESULT_NO_SUCH_PROPERTY;
  const MI_Result result = ReadElement(*data, found, value, type, flags);
  if (result == MI_RESULT_OK && index)
    *index = static_cast<MI_Uint32>(found);
  return result;
}

MI_Result MI_CALL GetElementAt(const MI_Instance* self, MI_Uint32 index, const MI_Char** name, MI_Value* value,
                               MI_Type* type, MI_Uint32* flags)
{
  const InstanceData* data = DataOf(self);
  if (!data)
    return MI_RESULT_INVALID_PARAMETER;
  if (index >= data->instance.elements.size())
    return MI_RESULT_NOT_FOUND;
  const MI_Result result = ReadElement(*data, index, value, type, flags);
  if (result == MI_RESULT_OK && name)
    *name = data->decl->Source().properties[index].name.c_str();
  return result;
}

MI_Result MI_CALL ClearElement(MI_Instance*, const MI_Char*) { return MI_RESULT_NOT_SUPPORTED; }
MI_Result MI_CALL ClearElementAt(MI_Instance*, MI_Uint32) { return MI_RESULT_NOT_SUPPORTED; }

MI_Result MI_CALL GetServerName(const MI_Instance* self, const MI_Char** serverName)
{
  const InstanceData* data = DataOf(self);
  if (!data || !serverName)
    return MI_RESULT_INVALID_PARAMETER;
  *serverName = data->serverName->c_str();
  return MI_RESULT_OK;
}

MI_Result MI_CALL SetServerName(MI_Instance*, const MI_Char*) { return MI_RESULT_NOT_SUPPORTED; }
MI_Result MI_CALL GetClass(const MI_Instance*, MI_Class**) { return MI_RESULT_NOT_SUPPORTED; }

const MI_InstanceFT kInstanceFT = {
    Clone,        NotSupported,   Delete,         IsA,           GetClassName,  SetNameSpace,
    GetNameSpace, GetElementCount, ChangeElement, ChangeElement, SetElementAt,  GetElement,
    GetElementAt, ClearElement,   ClearElementAt, GetServerName, SetServerName, GetClass,
};

MI_Result MI_CALL Clone(const MI_Instance* self, MI_Instance** newInstance)
{
  const InstanceData* data = DataOf(self);
  if (!data || !newInstance)
    return MI_RESULT_INVALID_PARAMETER;
  auto clone = std::make_unique<ClonedInstance>(ClonedInstance{MI_Instance{}, *data});
  BindInstance(clone->handle, clone->data);
  clone->handle.reserved[2] = kOwnedByClone;
  clone->handle.reserved[3] = reinterpret_cast<ptrdiff_t>(clone.get());
  *newInstance = &clone.release()->handle;
  return MI_RESULT_OK;
}
} // namespace

void BindInstance(MI_Instance& handle, InstanceData& data)
{
  handle = MI_Instance{};
  handle.ft = &kInstanceFT;
  handle.classDecl = data.decl->Get();
  handle.serverName = data.serverName->c_str();
  handle.nameSpace = data.nameSpace->c_str();
  handle.reserved[0] = reinterpret_cast<ptrdiff_t>(&data);
  handle.reserved[1] = kInstanceTag;
}
} // namespace platform::mi
