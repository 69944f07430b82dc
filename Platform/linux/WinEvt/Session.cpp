// EvtOpenSession and the check of a session's host and logon. Windows checks neither when the
// session opens: an unknown host or a bad password surfaces at EvtQuery (RPC_S_SERVER_UNAVAILABLE,
// ERROR_LOGON_FAILURE, ERROR_ACCESS_DENIED), see
// https://learn.microsoft.com/en-us/windows/win32/api/winevt/nf-winevt-evtopensession
#include "Hosts.h"
#include "Objects.h"

#include <new>

namespace natc::winevt
{
DWORD Connect(EVT_HANDLE session, std::string& directory)
{
  if (session == nullptr)
  {
    directory = LocalLogDirectory();
    return ERROR_SUCCESS;
  }
  const auto sessionObject = Find<SessionObject>(session);
  if (!sessionObject)
    return ERROR_INVALID_HANDLE;
  auto resolved = ResolveHost(sessionObject->Server().c_str(), ThisHostName());
  if (!resolved)
    return RPC_S_SERVER_UNAVAILABLE;
  const DWORD logon = CheckLogon(*resolved, sessionObject->User(), sessionObject->Password());
  if (logon != ERROR_SUCCESS)
    return logon;
  directory = std::move(*resolved);
  return ERROR_SUCCESS;
}
} // namespace natc::winevt

EVT_HANDLE EvtOpenSession(EVT_LOGIN_CLASS loginClass, PVOID login, DWORD, DWORD flags) noexcept
{
  if (loginClass != EvtRpcLogin || login == nullptr || flags != 0)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  try
  {
    const auto* rpc = static_cast<const EVT_RPC_LOGIN*>(login);
    auto text = [](const wchar_t* value) { return value != nullptr ? std::wstring(value) : std::wstring(); };
    return natc::winevt::Register(
      std::make_shared<natc::winevt::SessionObject>(text(rpc->Server), text(rpc->User), text(rpc->Password)));
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
}
