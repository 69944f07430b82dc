// An MI session to one host over the DCOM transport ("WMIDCOM") with packet privacy and, when a
// user name is given, explicit credentials. Always held by shared pointer; it keeps its
// application alive. Connect once; owners replace the object rather than reconnect it.
//   auto session = std::make_shared<CMiSession>(application);
//   session->Connect(L"server01", L"DOMAIN", L"user", L"secret");   // throws CMiException
//   CMiInstanceOperation operation = session->QueryInstances(L"root/cimv2", L"SELECT Name FROM Win32_Process");
#pragma once

#include "MiApplication.h"
#include "MiOperation.h"

#include "Platform/Mi.h"

#include <memory>
#include <string_view>

class CMiSession
{
public:
  explicit CMiSession(std::shared_ptr<CMiApplication> application) noexcept;
  ~CMiSession();
  CMiSession(const CMiSession&) = delete;
  CMiSession& operator=(const CMiSession&) = delete;

  // An empty user runs the session under the caller's own identity (domain and password are
  // then ignored). A bad credential surfaces at the first operation, not here.
  void Connect(std::wstring_view host, std::wstring_view domain, std::wstring_view user, std::wstring_view password);
  // A synchronous WQL query; a refused start always throws code 1 (general failure).
  CMiInstanceOperation QueryInstances(std::wstring_view nameSpace, std::wstring_view query);

  bool IsConnected() const noexcept { return m_session.ft != nullptr; }

private:
  MI_Application* application() const noexcept;

  std::shared_ptr<CMiApplication> m_application;
  MI_Session m_session MI_SESSION_NULL;
};
