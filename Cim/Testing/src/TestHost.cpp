#include "Cim/Testing/TestHost.h"

#include "PlatformMi/Monitor.h"

namespace cim::testing
{
TestHost::TestHost(std::wstring destination, std::uint64_t perfFrequency)
    : m_destination(std::move(destination)), m_host(std::make_shared<Host>(perfFrequency))
{
  Hosts::Attach(m_destination, m_host);
}

TestHost::~TestHost()
{
  auto& monitor = platform::mi::Monitor::Instance();
  monitor.Unrefuse(m_destination);
  monitor.ClearCredentialRequirement(m_destination);
  Hosts::Detach(m_destination);
}

std::shared_ptr<TestProvider> TestHost::AddClass(std::shared_ptr<const ClassDecl> decl, std::wstring nameSpace)
{
  auto provider = std::make_shared<TestProvider>(std::move(decl));
  m_host->Register(std::move(nameSpace), provider);
  return provider;
}

void TestHost::Register(std::wstring nameSpace, std::shared_ptr<Provider> provider)
{
  m_host->Register(std::move(nameSpace), std::move(provider));
}

void TestHost::Refuse(std::uint32_t code) { platform::mi::Monitor::Instance().Refuse(m_destination, code); }

void TestHost::Accept() { platform::mi::Monitor::Instance().Unrefuse(m_destination); }

void TestHost::RequireCredentials(std::wstring domain, std::wstring user, std::wstring password)
{
  platform::mi::Credentials expected;
  expected.domain = std::move(domain);
  expected.user = std::move(user);
  expected.password = std::move(password);
  platform::mi::Monitor::Instance().RequireCredentials(m_destination, std::move(expected));
}
} // namespace cim::testing
