// This machine's host: created, and its providers registered, on first use.
#include "Cim/Provider.h"

namespace cim
{
std::shared_ptr<Host> Hosts::Machine()
{
  // A function-local static makes the one-time registration safe under concurrent first calls.
  static const std::shared_ptr<Host> machine = [] {
    auto host = std::make_shared<Host>();
    RegisterMachineProviders(*host);
    return host;
  }();
  return machine;
}

std::shared_ptr<Host> Hosts::Resolve(std::wstring_view destination)
{
  if (auto attached = FindAttached(destination))
    return attached;
  if (IsMachine(destination))
    return Machine();
  return nullptr;
}
} // namespace cim
