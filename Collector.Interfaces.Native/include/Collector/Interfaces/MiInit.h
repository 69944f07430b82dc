// Configuration of the collections that read through MI: the application their sessions are
// made from, and for "MiProp" the WQL filter (namespace, class, condition, properties).
// Usage: init->SetFilter({L"root/cimv2", L"Win32_Service", L"WHERE StartMode='Auto'", {L"Name"}});
#pragma once

#include "KeldaKernel/Strings.h"

#include <memory>
#include <vector>

// The MI client application (global namespace, like every MI wrapper).
class CMiApplication;

namespace collector::ni::mi
{
struct Filter
{
  // CIM namespace to query, e.g. "root/cimv2"; must not be empty.
  tstring Namespace;
  // Class to select from; must not be empty.
  tstring Class;
  // Text appended after the class, e.g. a WHERE clause; may be empty.
  tstring Condition;
  // Property names to read, in order.
  std::vector<tstring> Properties;
};

class IMiCollectionBaseInit
{
public:
  virtual ~IMiCollectionBaseInit() = default;
  // Replaces any earlier application; every session the collection makes uses it.
  virtual void SetApplication(std::shared_ptr<CMiApplication> application) = 0;
};

class IMiCollectionInit
{
public:
  virtual ~IMiCollectionInit() = default;
  // Once only ("Already initialized"); empty class or namespace gives "Filter is invalid".
  virtual void SetFilter(const Filter& filter) = 0;
};
} // namespace collector::ni::mi
