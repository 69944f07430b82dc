// MI_Operation of a query whose results are computed when it starts and pulled one at a time with
// MI_Operation_GetInstance (instances, then the final result code and message). With callbacks
// that have an instanceResult, the results are delivered through it before the start returns.
#pragma once

#include "ClassDecl.h"

#include "Platform/Mi.h"
#include "PlatformMi/Monitor.h"

#include "Cim/Model.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace platform::mi
{
struct OperationResults
{
  std::shared_ptr<const MiClassDecl> decl; // null when no instance comes
  std::vector<cim::Instance> instances;
  std::optional<cim::Error> error;
  std::shared_ptr<const std::wstring> nameSpace;
  std::shared_ptr<const std::wstring> serverName;
};

// Fills the handle with a new operation over the results; record is its entry in the monitor.
void StartOperation(MI_Operation* handle, OperationResults results, std::shared_ptr<OperationRecord> record,
                    MI_OperationCallbacks* callbacks);
} // namespace platform::mi
