#include "EventLogin.h"

#include <fmt/xchar.h>

#include <algorithm>

namespace collector::ni::impl
{
CEventLogin::CEventLogin(tstring server, tstring domain, tstring user, tstring password, bool withCredentials)
  : m_server(std::move(server)), m_domain(std::move(domain)), m_user(std::move(user)), m_password(std::move(password))
{
  m_login.Server = m_server.data();
  if (withCredentials)
  {
    m_login.User = m_user.data();
    m_login.Domain = m_domain.data();
    m_login.Password = m_password.data();
  }
  m_login.Flags = EvtRpcLoginAuthNegotiate;
}

CEventLogin::~CEventLogin()
{
  // The password does not outlive the login in memory.
  std::fill(m_password.begin(), m_password.end(), L'\0');
}

tstring FullyQualifiedUserName(const tstring& domain, const tstring& user)
{
  return fmt::format(L"{}\\{}", domain, user);
}
} // namespace collector::ni::impl
