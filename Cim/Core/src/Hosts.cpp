// The hosts that tests attach, and the test of whether a destination names this machine.
// Machine() and Resolve() live in cim_providers, next to the providers they register, so that
// this library does not depend on the library that depends on it.
#include "Cim/Names.h"
#include "Cim/Provider.h"

#include <unistd.h>

#include <climits>

namespace cim
{
namespace
{
struct AttachedHosts
{
  std::mutex lock;
  std::map<std::wstring, std::shared_ptr<Host>, std::less<>> byName; // lower-case destination
};

AttachedHosts& Attached()
{
  static AttachedHosts hosts;
  return hosts;
}
} // namespace

// The header takes the destination by value; it is only read here, to build its key.
void Hosts::Attach(std::wstring destination, std::shared_ptr<Host> host) // NOLINT(performance-unnecessary-value-param)
{
  auto key = ToLower(destination);
  auto& attached = Attached();
  std::lock_guard lock(attached.lock);
  attached.byName[std::move(key)] = std::move(host);
}

void Hosts::Detach(std::wstring_view destination)
{
  const auto key = ToLower(destination);
  auto& attached = Attached();
  std::lock_guard lock(attached.lock);
  attached.byName.erase(key);
}

std::shared_ptr<Host> Hosts::FindAttached(std::wstring_view destination)
{
  const auto key = ToLower(destination);
  auto& attached = Attached();
  std::lock_guard lock(attached.lock);
  const auto found = attached.byName.find(key);
  return found == attached.byName.end() ? nullptr : found->second;
}

std::wstring Hosts::MachineName()
{
  char name[HOST_NAME_MAX + 1] = {};
  if (gethostname(name, sizeof(name) - 1) != 0)
    return {};
  return Widen(name);
}

bool Hosts::IsMachine(std::wstring_view destination)
{
  if (destination.empty() || destination == L"." || EqualsNoCase(destination, L"localhost"))
    return true;
  const auto name = MachineName();
  if (name.empty())
    return false;
  if (EqualsNoCase(destination, name))
    return true;
  // A fully qualified host name also answers to its first label, and the other way round.
  const std::wstring_view full(name);
  const auto dot = full.find(L'.');
  if (dot != std::wstring_view::npos && EqualsNoCase(destination, full.substr(0, dot)))
    return true;
  const auto destinationDot = destination.find(L'.');
  return destinationDot != std::wstring_view::npos && EqualsNoCase(destination.substr(0, destinationDot), full);
}
} // namespace cim
