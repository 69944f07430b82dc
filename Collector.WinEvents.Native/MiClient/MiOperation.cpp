#include "MiOperation.h"

#include "MiException.h"
#include "MiInstance.h"

#include <utility>

CMiOperationHandle::CMiOperationHandle(MI_Operation operation, DrainFunction drain) noexcept
  : m_operation(operation), m_drain(std::move(drain))
{
}

CMiOperationHandle::~CMiOperationHandle()
{
  if (m_operation.ft == nullptr)
  {
    return;
  }
  static_cast<void>(MI_Operation_Cancel(&m_operation, MI_REASON_NONE));
  // Without a drain function (never the case for our operations) there is nothing to pull
  // with; closing is still better than leaking the operation.
  if (m_drain)
  {
    MI_Boolean more = MI_FALSE;
    while (m_drain(m_operation, more) == MI_RESULT_OK && more != MI_FALSE)
    {
    }
  }
  static_cast<void>(MI_Operation_Close(&m_operation));
  m_operation = MI_Operation MI_OPERATION_NULL;
  m_drain = nullptr;
}

MI_Result DrainOneInstance(MI_Operation& operation, MI_Boolean& moreResults)
{
  moreResults = MI_FALSE;
  if (operation.ft == nullptr)
  {
    return MI_RESULT_INVALID_PARAMETER;
  }
  const MI_Instance* instance = nullptr;
  MI_Result result = MI_RESULT_OK;
  const MI_Char* errorMessage = nullptr;
  const MI_Instance* completionDetails = nullptr;
  return MI_Operation_GetInstance(&operation, &instance, &moreResults, &result, &errorMessage, &completionDetails);
}

CMiOperation::CMiOperation(MI_Operation operation, CMiOperationHandle::DrainFunction drain)
  : m_handle(std::make_shared<CMiOperationHandle>(operation, std::move(drain)))
{
}

void CMiOperation::Close() noexcept
{
  m_handle.reset();
}

CMiInstance CMiInstanceOperation::GetInstance()
{
  for (;;)
  {
    if (!m_moreResults)
    {
      return CMiInstance();
    }
    if (!m_handle || m_handle->Get().ft == nullptr)
    {
      m_moreResults = false;
      KELDA_THROW(CMiException(MI_RESULT_INVALID_PARAMETER, {}));
    }
    const MI_Instance* instance = nullptr;
    MI_Boolean more = MI_FALSE;
    MI_Result result = MI_RESULT_OK;
    const MI_Char* errorMessage = nullptr;
    const MI_Instance* completionDetails = nullptr;
    const MI_Result call =
        MI_Operation_GetInstance(&m_handle->Get(), &instance, &more, &result, &errorMessage, &completionDetails);
    m_moreResults = more != MI_FALSE;
    if (call != MI_RESULT_OK || result != MI_RESULT_OK)
    {
      // The API's own message says more than a function name would.
      KELDA_THROW(CMiException(call != MI_RESULT_OK ? call : result,
                               errorMessage != nullptr ? std::wstring_view(errorMessage) : std::wstring_view()));
    }
    // Empty results are skipped until an instance arrives or the results end.
    if (instance != nullptr)
    {
      return CMiInstance(m_handle, *instance);
    }
  }
}
