#include "Session.h"

#include "ClassDecl.h"
#include "DestinationOptions.h"
#include "Handles.h"
#include "Operation.h"
#include "Text.h"

#include "PlatformMi/Monitor.h"

#include "Cim/Names.h"
#include "Cim/Provider.h"
#include "Cim/Wql/Execute.h"

namespace platform::mi
{
namespace
{
const wchar_t kDefaultNamespace[] = L"root/cimv2";

struct SessionObject
{
  std::shared_ptr<cim::Host> host;
  std::wstring destination;
  std::shared_ptr<const std::wstring> serverName;
  std::vector<Credentials> credentials;
  MI_Application application{};
  std::shared_ptr<SessionRecord> record;
};

SessionObject* Object(MI_Session* session) { return From<SessionObject>(session, kSessionTag); }

MI_Result MI_CALL Close(MI_Session* session, void* completionContext,
                        void(MI_CALL* completionCallback)(void* completionContext))
{
  auto object = Release<SessionObject>(session, kSessionTag);
  if (!object)
    return MI_RESULT_INVALID_PARAMETER;
  Monitor& monitor = Monitor::Instance();
  monitor.Update([&] { object->record->closed = true; });
  monitor.sessions.fetch_sub(1);
  if (completionCallback)
    completionCallback(completionContext);
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetApplication(MI_Session* session, MI_Application* application)
{
  SessionObject* object = Object(session);
  if (!object || !application)
    return MI_RESULT_INVALID_PARAMETER;
  *application = object->application;
  return MI_RESULT_OK;
}

// Starts an operation that ends at once with the code.
void Fail(MI_Operation* operation, std::shared_ptr<OperationRecord> record, std::uint32_t code,
          std::wstring message, MI_OperationCallbacks* callbacks)
{
  OperationResults results;
  results.error = cim::Error{code, std::move(message)};
  StartOperation(operation, std::move(results), std::move(record), callbacks);
}

void Query(SessionObject& session, const MI_Char* namespaceName, const MI_Char* dialect, const MI_Char* query,
           MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  Monitor& monitor = Monitor::Instance();
  const std::wstring nameSpace = namespaceName && *namespaceName ? namespaceName : kDefaultNamespace;
  auto record = monitor.OperationStarted();
  monitor.Update([&] {
    record->nameSpace = nameSpace;
    record->dialect = View(dialect);
    record->query = View(query);
  });
  if (!query)
    return Fail(operation, std::move(record), MI_RESULT_INVALID_PARAMETER, L"No query text", callbacks);
  if (!dialect || !cim::EqualsNoCase(dialect, L"WQL"))
    return Fail(operation, std::move(record), MI_RESULT_QUERY_LANGUAGE_NOT_SUPPORTED,
                L"Query language not supported: " + std::wstring(View(dialect)), callbacks);
  if (!monitor.CredentialsAccepted(session.destination, session.credentials))
    return Fail(operation, std::move(record), MI_RESULT_ACCESS_DENIED, L"Access denied", callbacks);

  cim::wql::Result result = cim::wql::Execute(*session.host, nameSpace, query);
  OperationResults results;
  if (result.decl && !result.instances.empty())
    results.decl = std::make_shared<MiClassDecl>(result.decl);
  results.instances = std::move(result.instances);
  results.error = std::move(result.error);
  results.nameSpace = std::make_shared<const std::wstring>(nameSpace);
  results.serverName = session.serverName;
  StartOperation(operation, std::move(results), std::move(record), callbacks);
}

void MI_CALL QueryInstances(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char* namespaceName,
                            const MI_Char* queryDialect, const MI_Char* queryExpression,
                            MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  if (!operation)
    return;
  *operation = MI_Operation MI_OPERATION_NULL;
  SessionObject* object = Object(session);
  // A refused start leaves the operation closed, as the system's API does.
  if (!object || Monitor::Instance().Fault(Call::QueryInstances) != 0)
    return;
  Query(*object, namespaceName, queryDialect, queryExpression, callbacks, operation);
}

void MI_CALL EnumerateInstances(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char* namespaceName,
                                const MI_Char* className, MI_Boolean, MI_OperationCallbacks* callbacks,
                                MI_Operation* operation)
{
  if (!operation)
    return;
  *operation = MI_Operation MI_OPERATION_NULL;
  SessionObject* object = Object(session);
  if (!object)
    return;
  if (!className)
    return Fail(operation, Monitor::Instance().OperationStarted(), MI_RESULT_INVALID_PARAMETER, L"No class name",
                callbacks);
  // Quoting is not needed: a class name that is not an identifier makes the query malformed.
  const std::wstring query = L"SELECT * FROM " + std::wstring(className);
  Query(*object, namespaceName, L"WQL", query.c_str(), callbacks, operation);
}

void MI_CALL TestConnection(MI_Session* session, MI_Uint32, MI_OperationCallbacks* callbacks,
                            MI_Operation* operation)
{
  if (!operation)
    return;
  *operation = MI_Operation MI_OPERATION_NULL;
  if (!Object(session))
    return;
  StartOperation(operation, OperationResults{}, Monitor::Instance().OperationStarted(), callbacks);
}

// The operations this API does not offer start and end at once with MI_RESULT_NOT_SUPPORTED.
void Unsupported(MI_Session* session, MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  if (!operation)
    return;
  *operation = MI_Operation MI_OPERATION_NULL;
  if (!Object(session))
    return;
  Fail(operation, Monitor::Instance().OperationStarted(), MI_RESULT_NOT_SUPPORTED, L"Not supported", callbacks);
}

void MI_CALL InstanceOperation(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*,
                               const MI_Instance*, MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

void MI_CALL Invoke(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*, const MI_Char*,
                    const MI_Char*, const MI_Instance*, const MI_Instance*, MI_OperationCallbacks* callbacks,
                    MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

void MI_CALL AssociatorInstances(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*,
                                 const MI_Instance*, const MI_Char*, const MI_Char*, const MI_Char*, const MI_Char*,
                                 MI_Boolean, MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

void MI_CALL ReferenceInstances(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*,
                                const MI_Instance*, const MI_Char*, const MI_Char*, MI_Boolean,
                                MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

void MI_CALL Subscribe(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*, const MI_Char*,
                       const MI_Char*, const MI_SubscriptionDeliveryOptions*, MI_OperationCallbacks* callbacks,
                       MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

void MI_CALL GetClass(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*, const MI_Char*,
                      MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

void MI_CALL EnumerateClasses(MI_Session* session, MI_Uint32, MI_OperationOptions*, const MI_Char*, const MI_Char*,
                              MI_Boolean, MI_OperationCallbacks* callbacks, MI_Operation* operation)
{
  Unsupported(session, callbacks, operation);
}

const MI_SessionFT kSessionFT = {
    Close,
    GetApplication,
    InstanceOperation,
    InstanceOperation,
    InstanceOperation,
    InstanceOperation,
    Invoke,
    EnumerateInstances,
    QueryInstances,
    AssociatorInstances,
    ReferenceInstances,
    Subscribe,
    GetClass,
    EnumerateClasses,
    TestConnection,
};

bool ProtocolAccepted(const MI_Char* protocol)
{
  // Null picks the default transport; DCOM is the one WMI clients name.
  return !protocol || cim::EqualsNoCase(protocol, L"WMIDCOM");
}
} // namespace

MI_Result NewSession(MI_Application* application, const MI_Char* protocol, const MI_Char* destination,
                     MI_DestinationOptions* options, MI_Session* session)
{
  if (!session)
    return MI_RESULT_INVALID_PARAMETER;
  *session = MI_Session MI_SESSION_NULL;
  Monitor& monitor = Monitor::Instance();
  auto record = monitor.SessionCreated();
  auto credentials = DestinationCredentials(options);
  monitor.Update([&] {
    record->protocol = Optional(protocol);
    record->destination = Optional(destination);
    record->hadOptions = options != nullptr;
    record->packetPrivacy = PacketPrivacy(options);
    record->credentials = credentials;
  });
  const std::wstring target(View(destination));
  MI_Result result = MI_RESULT_OK;
  std::shared_ptr<cim::Host> host;
  if (const std::uint32_t fault = monitor.Fault(Call::NewSession))
    result = static_cast<MI_Result>(fault);
  else if (!ProtocolAccepted(protocol))
    result = protocol && cim::EqualsNoCase(protocol, L"WINRM") ? MI_RESULT_NOT_SUPPORTED : MI_RESULT_INVALID_PARAMETER;
  else if (const std::uint32_t refusal = monitor.Refusal(target))
    result = static_cast<MI_Result>(refusal);
  else if (!(host = cim::Hosts::Resolve(target)))
    result = MI_RESULT_NOT_SUPPORTED;
  monitor.Update([&] { record->result = result; });
  if (result != MI_RESULT_OK)
    return result;

  auto object = std::make_unique<SessionObject>();
  object->host = std::move(host);
  object->destination = target;
  object->serverName = std::make_shared<const std::wstring>(
      cim::Hosts::FindAttached(target) || !cim::Hosts::IsMachine(target) ? target : cim::Hosts::MachineName());
  object->credentials = std::move(credentials);
  object->application = *application;
  object->record = std::move(record);
  Attach(session, kSessionTag, std::move(object), &kSessionFT);
  monitor.sessions.fetch_add(1);
  return MI_RESULT_OK;
}
} // namespace platform::mi
