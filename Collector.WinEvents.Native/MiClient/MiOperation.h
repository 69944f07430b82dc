// The result side of an MI query: an operation from which instances are pulled one at a time.
//   CMiInstanceOperation operation = session->QueryInstances(L"root/cimv2", query);
//   for (CMiInstance instance = operation.GetInstance(); !instance.IsEmpty(); instance = operation.GetInstance())
//     ...read the instance before pulling the next one: its memory ends with the next pull...
// The operation handle is shared by the operation object and every instance read from it; the
// last owner cancels the operation, drains its remaining results and closes it, because a
// synchronous MI operation must be consumed before it is closed.
#pragma once

#include "Platform/Mi.h"

#include <functional>
#include <memory>

class CMiInstance;

class CMiOperationHandle
{
public:
  // Pulls and discards one result, clearing then setting the more-results flag.
  using DrainFunction = std::function<MI_Result(MI_Operation& operation, MI_Boolean& moreResults)>;

  CMiOperationHandle(MI_Operation operation, DrainFunction drain) noexcept;
  // An open operation is cancelled, drained and closed here.
  ~CMiOperationHandle();
  CMiOperationHandle(const CMiOperationHandle&) = delete;
  CMiOperationHandle& operator=(const CMiOperationHandle&) = delete;

  MI_Operation& Get() noexcept { return m_operation; }

private:
  MI_Operation m_operation;
  DrainFunction m_drain;
};

// The drain function that CMiSession gives its operations: one MI_Operation_GetInstance whose
// results are thrown away (MI_RESULT_INVALID_PARAMETER for a closed operation).
MI_Result DrainOneInstance(MI_Operation& operation, MI_Boolean& moreResults);

class CMiOperation
{
public:
  CMiOperation(MI_Operation operation, CMiOperationHandle::DrainFunction drain);
  CMiOperation(const CMiOperation&) = default;
  CMiOperation& operator=(const CMiOperation&) = default;
  CMiOperation(CMiOperation&&) noexcept = default;
  CMiOperation& operator=(CMiOperation&&) noexcept = default;
  virtual ~CMiOperation() = default;

  // False once the API has reported the last result.
  bool HasMoreResults() const noexcept { return m_moreResults; }
  // Lets go of this object's share of the operation; it closes when instances read from it
  // are gone too. Later pulls fail with MI_RESULT_INVALID_PARAMETER.
  void Close() noexcept;

protected:
  std::shared_ptr<CMiOperationHandle> m_handle;
  bool m_moreResults = true;
};

class CMiInstanceOperation : public CMiOperation
{
public:
  using CMiOperation::CMiOperation;

  // The next instance, or an empty one when the results have ended. A failed pull throws
  // CMiException whose function slot carries the API's own error message.
  CMiInstance GetInstance();
};
