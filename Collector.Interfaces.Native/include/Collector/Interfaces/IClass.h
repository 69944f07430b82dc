// The kind of data one collection produces: its identifier is the collection's identifier and
// its name the collection's type name. Record keys carry it; the caller looks classes up by id.
#pragma once

#include "Collector/Interfaces/IObject.h"
#include "KeldaKernel/Strings.h"
#include "Platform/Windows.h"

#include <memory>

namespace collector::ni
{
class IClass : public IObject
{
public:
  virtual GUID GetId() const = 0;
  virtual tstring GetName() const = 0;
};

class IClassPool : public IObject
{
public:
  // The class, or an empty pointer; GUID_NULL always yields the default class (empty name).
  virtual std::shared_ptr<IClass> Get(GUID id) = 0;
};
} // namespace collector::ni
