// The remote login record for EvtOpenSession: the host to read and, when the collection's
// account is not the one the process runs as, that account's credentials.
//   CEventLogin login(host, domain, user, password, !IsCurrentFullyQualifiedUser(domain + L"\\" + user));
//   api.OpenSession(EvtRpcLogin, login.Get(), 0, 0);
// The record points into strings the object owns: keep the object alive across the call.
#pragma once

#include "KeldaKernel/Strings.h"
#include "Platform/WinEvt.h"

namespace collector::ni::impl
{
class CEventLogin
{
public:
  // Without credentials, user, domain and password stay null so that the session uses the
  // process's own identity. Authentication is always "negotiate" (flags 1).
  CEventLogin(tstring server, tstring domain, tstring user, tstring password, bool withCredentials);
  CEventLogin(const CEventLogin&) = delete;
  CEventLogin& operator=(const CEventLogin&) = delete;
  ~CEventLogin();

  EVT_RPC_LOGIN* Get() noexcept { return &m_login; }

private:
  tstring m_server;
  tstring m_domain;
  tstring m_user;
  tstring m_password;
  EVT_RPC_LOGIN m_login{};
};

// "DOMAIN\user" as the kernel's IsCurrentFullyQualifiedUser expects it.
tstring FullyQualifiedUserName(const tstring& domain, const tstring& user);
} // namespace collector::ni::impl
