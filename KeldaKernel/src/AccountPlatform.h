// What the portable account check asks of the system: whether a domain names this machine, and
// the name of the account the process runs as. One body per platform (linux/, windows/).
#pragma once

#include "Platform/Windows.h"

#include <climits>
#include <string>
#include <string_view>

namespace kelda::account
{
// Account and machine names compare without case, as Windows compares them.
inline bool NamesEqual(std::wstring_view a, std::wstring_view b)
{
  // Account and machine names are short; anything beyond an int's range is no name of ours.
  constexpr auto limit = static_cast<std::size_t>(INT_MAX);
  if (a.size() != b.size() || a.size() > limit)
    return false;
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(), static_cast<int>(b.size()), TRUE) ==
         CSTR_EQUAL;
}

bool IsThisMachine(std::wstring_view domain);
// Empty when the system cannot tell.
std::wstring CurrentUserName();
} // namespace kelda::account
