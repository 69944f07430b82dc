// A provider serves one CIM class: its declaration and, on demand, all its instances.
// Namespaces hold providers; a host (this machine, or a test host) is a set of namespaces.
#pragma once

#include "Cim/Model.h"

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace cim
{
class Provider
{
public:
  virtual ~Provider() = default;
  virtual std::shared_ptr<const ClassDecl> Class() const = 0;
  // Appends every instance of the class as of now. Throws cim::Error to fail the query.
  virtual void Enumerate(std::vector<Instance>& out) = 0;
};

// The namespaces and classes that one host serves, and the frequency of its performance counter
// (the Frequency_PerfTime its raw performance classes publish: 10,000,000 on this machine; a
// test host may be given another, as older Windows servers report 2 to 3.6 or 14.318 MHz).
// Thread-safe.
class Host
{
public:
  static constexpr std::uint64_t DefaultPerfFrequency = 10'000'000;
  explicit Host(std::uint64_t perfFrequency = DefaultPerfFrequency) : m_perfFrequency(perfFrequency) {}
  std::uint64_t PerfFrequency() const { return m_perfFrequency; }

  void Register(std::wstring nameSpace, std::shared_ptr<Provider> provider);
  bool HasNamespace(std::wstring_view nameSpace) const;
  // The provider of the class in the namespace (names compared case-insensitively), or null.
  std::shared_ptr<Provider> Find(std::wstring_view nameSpace, std::wstring_view className) const;

private:
  const std::uint64_t m_perfFrequency;
  mutable std::mutex m_lock;
  // namespace (lower case, '\\' as '/') -> class name (lower case) -> provider
  std::map<std::wstring, std::map<std::wstring, std::shared_ptr<Provider>>, std::less<>> m_namespaces;
};

// Which host an MI session's destination reaches. "", "localhost", "." and this machine's
// name reach the machine's own host (its providers are registered on first use); names that
// tests attach reach their hosts; anything else reaches nothing.
// Machine() and Resolve() are defined by the cim_providers library (which owns the machine's
// providers): link cim_providers to call them. The rest is in cim.
class Hosts
{
public:
  static std::shared_ptr<Host> Machine();
  static void Attach(std::wstring destination, std::shared_ptr<Host> host);
  static void Detach(std::wstring_view destination);
  // An attached host takes precedence, so a test may stand in for "localhost" too.
  static std::shared_ptr<Host> Resolve(std::wstring_view destination);

  // The host attached under that destination (case-insensitive), or null.
  static std::shared_ptr<Host> FindAttached(std::wstring_view destination);
  // Whether the destination names this machine: "", ".", "localhost" or its host name
  // (case-insensitive; a fully qualified name and its first label both count).
  static bool IsMachine(std::wstring_view destination);
  // This machine's host name as the system reports it (gethostname), or empty.
  static std::wstring MachineName();
};

// Registers the providers of this machine (Win32_* classes over /proc and /sys) in "root/cimv2";
// their performance time base counts at the host's frequency.
void RegisterMachineProviders(Host& host);
} // namespace cim
