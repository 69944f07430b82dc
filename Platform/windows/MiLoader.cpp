// MI_Application_InitializeV1 for the MinGW-w64 build: MinGW-w64 has no mi.lib, and a host without
// mi.dll (Wine has none) must still load the collector, so the system's mi.dll is bound at the
// first call. Without it the call fails with MI_RESULT_NOT_SUPPORTED and a null application, and
// the MI collection that asked ends its update in Error.
#include "Platform/Mi.h"

#include <windows.h>

namespace
{
using InitializeV1 = MI_Result(MI_MAIN_CALL*)(MI_Uint32, const MI_Char*, MI_Instance**, MI_Application*);

InitializeV1 BindInitialize()
{
  // Only the system folder: a mi.dll planted beside the executable must not be picked up.
  const HMODULE module = LoadLibraryExW(L"mi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr)
    return nullptr;
  return reinterpret_cast<InitializeV1>(reinterpret_cast<void*>(GetProcAddress(module, "MI_Application_InitializeV1")));
}
} // namespace

extern "C" MI_Result MI_MAIN_CALL MI_Application_InitializeV1(MI_Uint32 flags, const MI_Char* applicationID,
                                                              MI_Instance** extendedError,
                                                              MI_Application* application)
{
  // The module stays loaded for the life of the process: applications keep function tables in it.
  static const InitializeV1 initialize = BindInitialize();
  if (extendedError != nullptr)
    *extendedError = nullptr;
  if (initialize == nullptr)
  {
    if (application != nullptr)
      *application = MI_Application MI_APPLICATION_NULL;
    return MI_RESULT_NOT_SUPPORTED;
  }
  return initialize(flags, applicationID, extendedError, application);
}
