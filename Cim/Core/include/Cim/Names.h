// Name comparison as CIM does it: class, property and namespace names, and host names,
// match without regard to case. Used by the model, the host registry and the providers.
#pragma once

#include <string>
#include <string_view>

namespace cim
{
// Lower-cases every character (the C library's wide rules, which cover ASCII and Latin names).
std::wstring ToLower(std::wstring_view text);
bool EqualsNoCase(std::wstring_view left, std::wstring_view right);
// A namespace name as the registry keys it: lower case, '\' written as '/', no leading or
// trailing '/'. "ROOT\\CIMV2" and "root/cimv2" are the same namespace.
std::wstring NormalizeNamespace(std::wstring_view nameSpace);
// Converts UTF-8 text (file contents, host names) to a wide string; invalid bytes become U+FFFD.
std::wstring Widen(std::string_view utf8);
} // namespace cim
