// Root of every exported collector interface. Objects are handed out as shared pointers to an
// interface and destroyed through this virtual destructor.
#pragma once

namespace collector::ni
{
class IObject
{
public:
  virtual ~IObject() = default;
};
} // namespace collector::ni
