// Runs a WQL query against a host: namespace, then text, class and properties are checked, the
// class's provider enumerates, and the result is filtered and projected.
//   auto result = cim::wql::Execute(host, L"root/cimv2", L"SELECT Name FROM Win32_Process");
// Errors are MI result codes: unknown namespace 3, malformed query or unknown property 15, unknown
// class 5; a provider failure keeps its own code (other exceptions become 1). When a provider
// fails after producing some instances, those that match are kept and delivered before the error.
#pragma once

#include "Cim/Model.h"
#include "Cim/Provider.h"
#include "Cim/Wql/BoundQuery.h"

#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace cim::wql
{
struct Result
{
  std::shared_ptr<const ClassDecl> decl; // null when the query failed before its class was known
  std::vector<Instance> instances;
  std::optional<Error> error;
};

Result Execute(const Host& host, std::wstring_view nameSpace, std::wstring_view queryText);
} // namespace cim::wql
