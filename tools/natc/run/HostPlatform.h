// What the check of a `natc run` configuration asks of the platform: whether a host name reaches
// this machine, and why a WQL query cannot run where the platform can tell without a host.
// One body per platform (linux/, windows/).
//   if (const auto problem = natc::run::WqlSyntaxProblem(query)) ...
#pragma once

#include <optional>
#include <string>

namespace natc::run
{
// "", ".", "localhost" or this machine's name, compared without case.
bool IsThisMachine(const std::wstring& host);
// Why `query` does not parse, or nullopt when it does or only the host can tell.
std::optional<std::string> WqlSyntaxProblem(const std::wstring& query);
} // namespace natc::run
