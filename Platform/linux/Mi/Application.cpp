// MI_Application_InitializeV1 and the application's function table: sessions and destination
// options; the rest of the table (hosted providers, serializers...) answers MI_RESULT_NOT_SUPPORTED.
#include "DestinationOptions.h"
#include "Handles.h"
#include "Session.h"

#include "PlatformMi/Monitor.h"

namespace platform::mi
{
namespace
{
struct ApplicationObject
{
  std::wstring id;
};

bool IsOpen(const MI_Application* application)
{
  return From<ApplicationObject>(application, kApplicationTag) != nullptr;
}

MI_Result MI_CALL Close(MI_Application* application)
{
  if (!Release<ApplicationObject>(application, kApplicationTag))
    return MI_RESULT_INVALID_PARAMETER;
  Monitor::Instance().applications.fetch_sub(1);
  return MI_RESULT_OK;
}

MI_Result MI_CALL NewSessionEntry(MI_Application* application, const MI_Char* protocol, const MI_Char* destination,
                                  MI_DestinationOptions* options, MI_SessionCallbacks*, MI_Instance** extendedError,
                                  MI_Session* session)
{
  // Errors carry no extended error instance here.
  if (extendedError)
    *extendedError = nullptr;
  if (!IsOpen(application))
  {
    if (session)
      *session = MI_Session MI_SESSION_NULL;
    return MI_RESULT_INVALID_PARAMETER;
  }
  return NewSession(application, protocol, destination, options, session);
}

MI_Result MI_CALL NewHostedProvider(MI_Application*, const MI_Char*, const MI_Char*, MI_MainFunction, MI_Instance**,
                                    MI_HostedProvider*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewInstance(MI_Application*, const MI_Char*, const MI_ClassDecl*, MI_Instance**)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewDestinationOptionsEntry(MI_Application* application, MI_DestinationOptions* options)
{
  if (!IsOpen(application))
    return MI_RESULT_INVALID_PARAMETER;
  return NewDestinationOptions(options);
}

MI_Result MI_CALL NewOperationOptions(MI_Application*, MI_Boolean, MI_OperationOptions*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewSubscriptionDeliveryOptions(MI_Application*, MI_SubscriptionDeliveryType,
                                                 MI_SubscriptionDeliveryOptions*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewSerializer(MI_Application*, MI_Uint32, MI_Char*, MI_Serializer*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewDeserializer(MI_Application*, MI_Uint32, MI_Char*, MI_Deserializer*)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewInstanceFromClass(MI_Application*, const MI_Char*, const MI_Class*, MI_Instance**)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL NewClass(MI_Application*, const MI_ClassDecl*, const MI_Char*, const MI_Char*, MI_Class**)
{
  return MI_RESULT_NOT_SUPPORTED;
}

const MI_ApplicationFT kApplicationFT = {
    Close,
    NewSessionEntry,
    NewHostedProvider,
    NewInstance,
    NewDestinationOptionsEntry,
    NewOperationOptions,
    NewSubscriptionDeliveryOptions,
    NewSerializer,
    NewDeserializer,
    NewInstanceFromClass,
    NewClass,
};
} // namespace
} // namespace platform::mi

extern "C" MI_Result MI_MAIN_CALL MI_Application_InitializeV1(MI_Uint32, const MI_Char* applicationID,
                                                              MI_Instance** extendedError,
                                                              MI_Application* application)
{
  using namespace platform::mi;
  if (extendedError)
    *extendedError = nullptr;
  if (!application)
    return MI_RESULT_INVALID_PARAMETER;
  *application = MI_Application MI_APPLICATION_NULL;
  Monitor& monitor = Monitor::Instance();
  if (const std::uint32_t fault = monitor.Fault(Call::Initialize))
    return static_cast<MI_Result>(fault);
  auto object = std::make_unique<ApplicationObject>();
  if (applicationID)
    object->id = applicationID;
  Attach(application, kApplicationTag, std::move(object), &kApplicationFT);
  monitor.applications.fetch_add(1);
  return MI_RESULT_OK;
}
