#include "Operation.h"

#include "Handles.h"
#include "Instance.h"

namespace platform::mi
{
namespace
{
const wchar_t kCancelled[] = L"The operation was cancelled";

struct OperationObject
{
  OperationResults results;
  std::size_t next = 0;
  bool cancelled = false;
  bool finished = false;
  // The instance handed out by the last pull; replaced by the next one.
  std::unique_ptr<InstanceData> current;
  MI_Instance currentHandle{};
  std::wstring errorMessage;
  std::shared_ptr<OperationRecord> record;
};

OperationObject* Object(MI_Operation* operation) { return From<OperationObject>(operation, kOperationTag); }

MI_Result MI_CALL Close(MI_Operation* operation)
{
  auto object = Release<OperationObject>(operation, kOperationTag);
  if (!object)
    return MI_RESULT_INVALID_PARAMETER;
  Monitor& monitor = Monitor::Instance();
  monitor.Update([&] { object->record->closed = true; });
  monitor.operations.fetch_sub(1);
  return MI_RESULT_OK;
}

MI_Result MI_CALL Cancel(MI_Operation* operation, MI_CancellationReason)
{
  OperationObject* object = Object(operation);
  if (!object)
    return MI_RESULT_INVALID_PARAMETER;
  object->cancelled = true;
  Monitor::Instance().Update([&] { object->record->cancelled = true; });
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetSession(MI_Operation*, MI_Session*) { return MI_RESULT_NOT_SUPPORTED; }

MI_Result MI_CALL GetInstance(MI_Operation* operation, const MI_Instance** instance, MI_Boolean* moreResults,
                              MI_Result* result, const MI_Char** errorMessage, const MI_Instance** completionDetails)
{
  OperationObject* object = Object(operation);
  if (!object || !instance || !moreResults)
    return MI_RESULT_INVALID_PARAMETER;
  // The previous instance's memory ends here, as with the system's API.
  object->current.reset();
  object->currentHandle = MI_Instance{};
  *instance = nullptr;
  *moreResults = MI_FALSE;
  if (completionDetails)
    *completionDetails = nullptr;
  if (errorMessage)
    *errorMessage = nullptr;
  if (result)
    *result = MI_RESULT_OK;
  if (object->finished)
    return MI_RESULT_FAILED;

  OperationResults& results = object->results;
  std::size_t delivered = 0;
  MI_Result final = MI_RESULT_OK;
  if (!object->cancelled && object->next < results.instances.size())
  {
    object->current = std::make_unique<InstanceData>(InstanceData{
        results.decl, std::move(results.instances[object->next++]), results.nameSpace, results.serverName});
    BindInstance(object->currentHandle, *object->current);
    *instance = &object->currentHandle;
    delivered = 1;
    object->finished = object->next == results.instances.size() && !results.error;
  }
  else
  {
    object->finished = true;
    if (object->cancelled)
    {
      final = MI_RESULT_FAILED;
      object->errorMessage = kCancelled;
    }
    else if (results.error)
    {
      final = static_cast<MI_Result>(results.error->code);
      object->errorMessage = results.error->message;
    }
    if (final != MI_RESULT_OK && errorMessage)
      *errorMessage = object->errorMessage.c_str();
    if (result)
      *result = final;
  }
  *moreResults = object->finished ? MI_FALSE : MI_TRUE;
  Monitor::Instance().Update([&] {
    OperationRecord& record = *object->record;
    ++record.pulls;
    record.delivered += delivered;
    if (object->finished)
    {
      record.drained = true;
      record.finalResult = final;
    }
  });
  return MI_RESULT_OK;
}

MI_Result MI_CALL GetIndication(MI_Operation*, const MI_Instance**, const MI_Char**, const MI_Char**, MI_Boolean*,
                                MI_Result*, const MI_Char**, const MI_Instance**)
{
  return MI_RESULT_NOT_SUPPORTED;
}

MI_Result MI_CALL GetClass(MI_Operation*, const MI_Class**, MI_Boolean*, MI_Result*, const MI_Char**,
                           const MI_Instance**)
{
  return MI_RESULT_NOT_SUPPORTED;
}

const MI_OperationFT kOperationFT = {Close, Cancel, GetSession, GetInstance, GetIndication, GetClass};
} // namespace

void StartOperation(MI_Operation* handle, OperationResults results, std::shared_ptr<OperationRecord> record,
                    MI_OperationCallbacks* callbacks)
{
  auto object = std::make_unique<OperationObject>();
  object->results = std::move(results);
  object->record = std::move(record);
  Attach(handle, kOperationTag, std::move(object), &kOperationFT);
  Monitor::Instance().operations.fetch_add(1);
  if (!callbacks || !callbacks->instanceResult)
    return;
  // Asynchronous style: every result goes to the callback now; the caller still closes.
  MI_Boolean more = MI_TRUE;
  while (more)
  {
    const MI_Instance* instance = nullptr;
    MI_Result result = MI_RESULT_OK;
    const MI_Char* message = nullptr;
    if (GetInstance(handle, &instance, &more, &result, &message, nullptr) != MI_RESULT_OK)
      break;
    callbacks->instanceResult(handle, callbacks->callbackContext, instance, more, result, message, nullptr,
                              nullptr);
  }
}
} // namespace platform::mi
