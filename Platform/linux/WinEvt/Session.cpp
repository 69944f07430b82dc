// EvtOpenSession: a host's logs are a directory of channel files (see Hosts.h).
#include "Hosts.h"
#include "Objects.h"

#include <new>

EVT_HANDLE EvtOpenSession(EVT_LOGIN_CLASS loginClass, PVOID login, DWORD, DWORD flags) noexcept
{
  if (loginClass != EvtRpcLogin || login == nullptr || flags != 0)
  {
    SetLastError(ERROR_INVALID_PARAMETER);
    return nullptr;
  }
  try
  {
    // Credentials are accepted and not needed: the files are read with the process's rights.
    const auto* rpc = static_cast<const EVT_RPC_LOGIN*>(login);
    auto directory = natc::winevt::ResolveHost(rpc->Server, natc::winevt::ThisHostName());
    if (!directory)
    {
      SetLastError(RPC_S_SERVER_UNAVAILABLE);
      return nullptr;
    }
    return natc::winevt::Register(std::make_shared<natc::winevt::SessionObject>(std::move(*directory)));
  }
  catch (const std::bad_alloc&)
  {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return nullptr;
  }
}
