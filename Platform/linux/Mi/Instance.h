// MI_Instance over a cim::Instance. The public struct carries the data's address in reserved[0],
// so a by-value copy of the struct (as MI clients keep) reads the same data; the data lives as
// long as its owner: the operation until its next pull or close, or a clone until it is deleted.
#pragma once

#include "ClassDecl.h"

#include "Platform/Mi.h"

#include "Cim/Model.h"

#include <memory>
#include <string>

namespace platform::mi
{
struct InstanceData
{
  std::shared_ptr<const MiClassDecl> decl;
  cim::Instance instance;
  std::shared_ptr<const std::wstring> nameSpace;
  std::shared_ptr<const std::wstring> serverName;
};

// Points the handle at the data (the data must outlive every use of the handle and its copies).
void BindInstance(MI_Instance& handle, InstanceData& data);
} // namespace platform::mi
