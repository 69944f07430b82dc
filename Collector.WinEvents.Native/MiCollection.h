// The "MiProp" collection: once per update it runs one WQL query over MI against the task's
// host and hands every returned instance, as one keyless record of the requested properties,
// to the subscribers in a single batch. The task sets the filter once before Run:
//   collection->SetFilter({L"root/cimv2", L"Win32_Service", L"WHERE StartMode='Auto'", {L"Name", L"State"}});
//   // query: SELECT Name,State FROM Win32_Service WHERE StartMode='Auto'
// Records carry the type kMiPropRecordType; a NULL property is an empty string; integers,
// date-times and strings are supported, other MI types fail the pass with E_NOTIMPL.
#pragma once

#include "MiClient/MiValue.h"
#include "MiCollectionBase.h"

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/MiInit.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace collector::ni::impl
{
// Record type of "MiProp" records: they have no key and no kind beyond their collection's class.
inline constexpr std::uint32_t kMiPropRecordType = 0;

// The query text of a filter: "SELECT {list} FROM {class} {condition}" with the non-empty
// property names joined by "," and trailing white space removed.
tstring BuildMiPropQuery(const mi::Filter& filter);

class MiCollection : public MiCollectionBase, public mi::IMiCollectionInit
{
public:
  using MiCollectionBase::MiCollectionBase;

  // Once only: "Already initialized"; an empty class or namespace: "Filter is invalid".
  void SetFilter(const mi::Filter& filter) override;

  const tstring& GetNamespace() const noexcept { return m_namespace; }
  const tstring& GetQuery() const noexcept { return m_query; }

  // The field value of an MI value: integers as __int64, datetime, string; booleans, reals,
  // char16 and non-scalar types throw CHResultException(E_NOTIMPL).
  static FieldValue toFieldValue(const CMiValue& value);

protected:
  void updateImpl() override;

private:
  tstring m_namespace;
  tstring m_query;
  // One shared name per filter property (empty ones too), shared with every field made.
  std::vector<std::shared_ptr<tstring>> m_propertyNames;
};
} // namespace collector::ni::impl
