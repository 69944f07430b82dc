#include "MiCollection.h"

#include "MiClient/MiInstance.h"

#include "Collector.Interfaces.Impl.h"
#include "KeldaKernel/Cancellation.h"
#include "KeldaKernel/Exceptions.h"

#include <cwctype>
#include <fmt/xchar.h>

namespace collector::ni::impl
{
tstring BuildMiPropQuery(const mi::Filter& filter)
{
  tstring selectList;
  for (const tstring& property : filter.Properties)
  {
    if (property.empty())
    {
      continue;
    }
    if (!selectList.empty())
    {
      selectList += L',';
    }
    selectList += property;
  }
  tstring query = fmt::format(L"SELECT {} FROM {} {}", selectList, filter.Class, filter.Condition);
  // An empty condition must not leave a blank at the end.
  while (!query.empty() && std::iswspace(static_cast<wint_t>(query.back())) != 0)
  {
    query.pop_back();
  }
  return query;
}

void MiCollection::SetFilter(const mi::Filter& filter)
{
  if (!m_query.empty())
  {
    KELDA_THROW(CKeldaException(L"Already initialized"));
  }
  if (filter.Class.empty() || filter.Namespace.empty())
  {
    KELDA_THROW(CKeldaException(L"Filter is invalid"));
  }
  tstring query = BuildMiPropQuery(filter);
  std::vector<std::shared_ptr<tstring>> names;
  names.reserve(filter.Properties.size());
  for (const tstring& property : filter.Properties)
  {
    names.push_back(std::make_shared<tstring>(property));
  }
  m_propertyNames = std::move(names);
  m_namespace = filter.Namespace;
  m_query = std::move(query);
}

FieldValue MiCollection::toFieldValue(const CMiValue& value)
{
  switch (value.GetType())
  {
  case MI_UINT8:
  case MI_SINT8:
  case MI_UINT16:
  case MI_SINT16:
  case MI_UINT32:
  case MI_SINT32:
  case MI_UINT64:
  case MI_SINT64: {
    const __int64 number = value.Value();
    return number;
  }
  case MI_DATETIME: {
    const COleDateTimeEx time = value.Value();
    return time;
  }
  case MI_STRING: {
    const std::wstring_view text = value.Value();
    return tstring(text);
  }
  default:
    break;
  }
  // Booleans, reals and single characters are left out of this collection's records on purpose.
  KELDA_THROW(CHResultException(E_NOTIMPL));
}

void MiCollection::updateImpl()
{
  try
  {
    const std::shared_ptr<CMiSession> session = getSession();
    CMiInstanceOperation operation = session->QueryInstances(m_namespace, m_query);
    std::vector<std::shared_ptr<IRecord>> batch;
    for (CMiInstance instance = operation.GetInstance(); !instance.IsEmpty(); instance = operation.GetInstance())
    {
      interruption_point();
      const auto count = static_cast<std::size_t>(instance.GetCount());
      auto record = std::make_shared<CRecordOnVectorNoKey>(kMiPropRecordType, count);
      for (const std::shared_ptr<tstring>& name : m_propertyNames)
      {
        CMiValue value;
        instance.Get(*name, value);
        if (value.IsNull())
        {
          record->AddField(name, tstring());
        }
        else
        {
          record->AddField(name, toFieldValue(value));
        }
      }
      batch.push_back(std::move(record));
    }
    operation.Close();
    if (!batch.empty())
    {
      notifyRecords(batch);
    }
  }
  catch (const std::exception& error)
  {
    log()->Error(error, fmt::format(L"Failed to execute/process {}:{}", m_namespace, m_query));
    throw;
  }
}
} // namespace collector::ni::impl
