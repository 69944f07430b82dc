// A thread-safe bag of named values that a collection publishes about itself (for example the
// performance collection's "TargetCollectionId"). Values are copied in and out.
#pragma once

#include "Collector/Interfaces/FieldValue.h"
#include "Collector/Interfaces/IObject.h"

#include <string_view>

namespace collector::ni
{
class IProperties : public IObject
{
public:
  // A copy of the value; an unknown name yields an empty text, never an error.
  virtual FieldValue GetProperty(std::wstring_view name) = 0;
  // Inserts or replaces (whatever the earlier value's type).
  virtual void SetProperty(std::wstring_view name, const FieldValue& value) = 0;
};
} // namespace collector::ni
