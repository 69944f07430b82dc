// A CIM host attached under a destination name for as long as the object lives, so that an MI
// session opened to that name (MI_Application_NewSession's destination) reaches it:
//   TestHost host(L"testhost");
//   auto provider = host.AddClass(decl);         // in "root/cimv2"
//   host.Refuse(MI_RESULT_ACCESS_DENIED);        // NewSession to "testhost" now fails with 2
//   host.RequireCredentials(L"DOM", L"user", L"pw"); // queries without them fail with 2
//   TestHost slow(L"slowclock", 3'579'545);      // a host whose performance counter runs at 3.58 MHz
//   cim::RegisterMachineProviders(slow.Get());   // this machine's classes on that time base
#pragma once

#include "Cim/Provider.h"
#include "Cim/Testing/TestProvider.h"

#include <cstdint>
#include <memory>
#include <string>

namespace cim::testing
{
class TestHost
{
public:
  explicit TestHost(std::wstring destination = L"testhost", std::uint64_t perfFrequency = Host::DefaultPerfFrequency);
  ~TestHost();
  TestHost(const TestHost&) = delete;
  TestHost& operator=(const TestHost&) = delete;

  const std::wstring& Destination() const { return m_destination; }
  Host& Get() { return *m_host; }

  std::shared_ptr<TestProvider> AddClass(std::shared_ptr<const ClassDecl> decl,
                                         std::wstring nameSpace = L"root/cimv2");
  void Register(std::wstring nameSpace, std::shared_ptr<Provider> provider);

  void Refuse(std::uint32_t code);
  void Accept();
  void RequireCredentials(std::wstring domain, std::wstring user, std::wstring password);

private:
  std::wstring m_destination;
  std::shared_ptr<Host> m_host;
};
} // namespace cim::testing
