// A thread-safe property bag: named values a collection publishes about itself through
// collector::ni::IProperties (the performance collection keeps its "TargetCollectionId" here).
// Names are exact (case-sensitive); values are copied in and out, never shared by reference.
//   CProperties bag;
//   bag.SetProperty(L"TargetCollectionId", targetId);
//   FieldValue id = bag.GetProperty(L"TargetCollectionId"); // an unknown name gives L""
#pragma once

#include "Collector/Interfaces/IProperties.h"
#include "Collector/Interfaces/Impl/CriticalSection.h"
#include "KeldaKernel/Strings.h"

#include <functional>
#include <map>
#include <string_view>

namespace collector::ni::impl
{
class CProperties : public IProperties
{
public:
  // Throws the last Win32 error as an HRESULT when the lock cannot be made.
  CProperties() = default;
  ~CProperties() override = default;
  CProperties(const CProperties&) = delete;
  CProperties& operator=(const CProperties&) = delete;

  FieldValue GetProperty(std::wstring_view name) override;
  void SetProperty(std::wstring_view name, const FieldValue& value) override;

private:
  CCriticalSection m_lock;
  // Ordinal order of the code units; transparent, so that a lookup by view copies nothing.
  std::map<tstring, FieldValue, std::less<>> m_values;
};
} // namespace collector::ni::impl
